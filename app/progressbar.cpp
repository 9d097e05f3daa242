#include "app/progressbar.h"
#include "ui_progressbar.h"

#include <QCloseEvent>
#include <QMessageBox>

namespace {

// Warning texts of the worker result codes 1..13; other codes close silently.
QString failureText(int err)
{
    switch (err) {
    case 1:
        return QStringLiteral(
            "Не удалось автоматически подключиться к серверу. Проверьте, запущен ли сервер, "
            "доступны ли IP адрес и порт, и попробуйте вручную.");
    case 2:
        return QStringLiteral(
            "Не удалось автоматически получить конечные точки. Проверьте, запущен ли сервер, "
            "доступны ли IP адрес и порт, и попробуйте вручную.");
    case 3:
        return QStringLiteral("Не удалось автоматически подключиться к конечной точке. Проверьте, запущен ли "
                              "сервер, доступны ли IP адрес и порт, и попробуйте вручную.");
    case 4:
        return QStringLiteral(
            "Не удалось подключиться к конечной точке. Проверьте, запущен ли сервер, доступны "
            "ли IP адрес и порт, и попробуйте вручную.");
    case 5:
        return QStringLiteral(
            "Добавление тега завершилось неудачно, не удалось добавить дочерний элемент в группу.");
    case 6:
        return QStringLiteral("Добавление тега завершилось неудачно, на сервере произошла ошибка.");
    case 7:
        return QStringLiteral("Ошибка заполнения дерева, не верный формат файла.");
    case 8:
        return QStringLiteral("Ошибка отключение подписки выбранных тегов, подробности смотрите с логе.");
    case 9:
        return QStringLiteral("Ошибка отключение опроса выбранных тегов, подробности смотрите с логе.");
    case 10:
        return QStringLiteral("Ошибка создания подписки выбранных тегов, подробности смотрите с логе.");
    case 11:
        return QStringLiteral("Ошибка запуска опроса выбранных тегов, подробности смотрите с логе.");
    case 12:
    case 13:
        return QStringLiteral("Не удалось сохранить файл конфигурации.");
    default:
        return QString();
    }
}

} // namespace

ProgressBar::ProgressBar(QWidget* parent) : QDialog(parent), ui(new Ui::ProgressBar)
{
    ui->setupUi(this);
}

ProgressBar::~ProgressBar()
{
    delete ui;
}

void ProgressBar::slotCloseProgressBar(int err)
{
    m_result = err;
    const QString text = failureText(err);
    // The box runs inside this slot, so the bar keeps running behind it.
    if (!text.isEmpty())
        QMessageBox::warning(this, QStringLiteral("Внимание"), text);
    m_allowClose = true;
    close();
}

void ProgressBar::slotSetLabelProgressBar(QString newLabel)
{
    ui->label->setText(newLabel);
}

void ProgressBar::closeEvent(QCloseEvent* event)
{
    if (m_allowClose)
        QDialog::closeEvent(event);
    else
        event->ignore();
}
