#include "dialogs/dialogaddusers.h"

#include "ui_dialogaddusers.h"

#include "config/scrambler.h"
#include "dialogs/stardelegate.h"

#include <QHeaderView>
#include <QMessageBox>
#include <QPushButton>

namespace {
const QString kMarker = QStringLiteral("USERS\n\n");
const QString kHeader = QStringLiteral("[users]\nusers = ");
// The list starts behind the marker and the header.
const int kListOffset = 23;
} // namespace

DialogAddUsers::DialogAddUsers(QString path, QWidget* parent)
    : QDialog(parent), ui(new Ui::DialogAddUsers), m_path(path)
{
    ui->setupUi(this);
    ui->buttonBox->button(QDialogButtonBox::Cancel)->setText("Отмена");
    readFileUsers();
    ui->tableWidget_users->setSelectionBehavior(QAbstractItemView::SelectRows);
    ui->tableWidget_users->setSelectionMode(QAbstractItemView::SingleSelection);
    ui->tableWidget_users->setItemDelegateForColumn(1, new StarDelegate(ui->tableWidget_users));
}

DialogAddUsers::~DialogAddUsers()
{
    delete ui;
}

bool DialogAddUsers::readUsers(QString& text, bool& hasBlock)
{
    if (!CScrambler::ReadFile(m_path, text))
        return false;
    const int at = text.indexOf(kMarker);
    hasBlock = at >= 0;
    if (hasBlock)
        m_users = text.mid(at + kListOffset);
    return true;
}

void DialogAddUsers::writeClearText(const QString& text)
{
    if (!CScrambler::WriteFile(m_path, text))
        QMessageBox::warning(this, "Внимание", "Не удалось сохранить файл конфигурации");
}

void DialogAddUsers::readFileUsers()
{
    QString text;
    bool hasBlock = false;
    if (readUsers(text, hasBlock) && hasBlock && !m_users.isEmpty())
        fillTableUsers(m_users);
}

void DialogAddUsers::fillTableUsers(QString list)
{
    QTableWidget* table = ui->tableWidget_users;
    table->verticalHeader()->hide();
    table->setColumnWidth(0, 130);
    table->setColumnWidth(1, 130);

    QStringList parts = list.split(';');
    // What stands behind the closing ";" is no field.
    parts.removeLast();
    table->setRowCount(parts.size() / 2);
    for (int row = 0; row < parts.size() / 2; ++row) {
        for (int column = 0; column < 2; ++column) {
            auto* item = new QTableWidgetItem(parts[2 * row + column]);
            item->setFlags(Qt::ItemIsSelectable | Qt::ItemIsEnabled);
            table->setItem(row, column, item);
        }
    }
}

void DialogAddUsers::saveUsers(QString login, QString password)
{
    QString text;
    bool hasBlock = false;
    if (!readUsers(text, hasBlock))
        return;
    if (hasBlock) {
        if (!m_users.isEmpty())
            text.remove(m_users);
        text.append(m_users + login + ";" + password);
    } else {
        text.append(kMarker);
        text.append(kHeader + login + ";" + password);
    }
    text.append(";");
    writeClearText(text);
}

void DialogAddUsers::deleteUser(QString value)
{
    QString text;
    bool hasBlock = false;
    if (!readUsers(text, hasBlock) || !hasBlock)
        return;

    QStringList parts;
    if (!m_users.isEmpty()) {
        text.remove(m_users);
        parts = m_users.split(';');
        // The search value is a password, but every part is compared: the part
        // behind a hit is taken away with it, whatever it is.
        const int hit = parts.indexOf(value);
        if (hit >= 0)
            parts.remove(hit, qMin(2, int(parts.size()) - hit));
    }
    text.append(parts.join(';'));
    writeClearText(text);
}

void DialogAddUsers::on_pushButton_add_user_clicked()
{
    const QString login = ui->lineEdit_login->text();
    const QString password = ui->lineEdit_password->text();
    if (login.isEmpty()) {
        QMessageBox::warning(this, "Внимание", "Заполните поле логин");
        return;
    }
    saveUsers(login, password);
    readFileUsers();
}

void DialogAddUsers::on_pushButton_delete_user_clicked()
{
    QTableWidgetItem* current = ui->tableWidget_users->currentItem();
    if (!current)
        return;
    const QTableWidgetItem* password = ui->tableWidget_users->item(current->row(), 1);
    deleteUser(password ? password->text() : QString());
    readFileUsers();
}

void DialogAddUsers::on_DialogAddUsers_accepted() {}

void DialogAddUsers::accept()
{
    m_login = ui->lineEdit_login->text();
    m_password = ui->lineEdit_password->text();
    QDialog::accept();
}
