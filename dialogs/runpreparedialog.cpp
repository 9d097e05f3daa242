#include "dialogs/runpreparedialog.h"

#include "config/runparameters.h"
#include "ui_runpreparedialog.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QPushButton>

const QMap<int, QString> RunPrepareDialog::logLevelMap = {
    {0, "none"}, {1, "fatal"}, {2, "error"}, {3, "warning"}, {4, "info"}, {5, "debug"}, {6, "verbose"},
};

RunPrepareDialog::RunPrepareDialog(QWidget* parent) : QDialog(parent), ui(new Ui::RunPrepareDialog)
{
    ui->setupUi(this);
    ui->usersSettingsEdit->hide();
    ui->userBrowseButton->hide();
    ui->label_4->hide();
    ui->buttonBox->button(QDialogButtonBox::Ok)->setText("Запустить сервер");
    ui->buttonBox->button(QDialogButtonBox::Cancel)->setText("Отмена");
    connect(ui->buttonBox, &QDialogButtonBox::accepted, this, &RunPrepareDialog::accept);
}

RunPrepareDialog::~RunPrepareDialog()
{
    delete ui;
}

void RunPrepareDialog::Init(const QString& config, const QString& der, const QString& pem, const QString& trust)
{
    m_configPath = config;
    ui->cfgPathEdit->setText(config);
    ui->portBox->setValue(4840);
    ui->logLevelBox->setCurrentIndex(3);
    ui->radioButton_anonimus->setChecked(true);
    setUsersEnabled(false);
    ui->certFileEdit->setText(der);
    ui->keyFileEdit->setText(pem);
    ui->clientCertEdit->setText(trust);
}

bool RunPrepareDialog::checkConfigPath()
{
    const QString path = ui->cfgPathEdit->text();
    if (path.isEmpty()) {
        QMessageBox::warning(this, "Ошибка", "Заполните поле файл конфигурации!");
        return false;
    }
    if (!QFileInfo::exists(path)) {
        QMessageBox::warning(this, "Внимание", "По указанному пути файл конфигурации не найден");
        return false;
    }
    return true;
}

void RunPrepareDialog::accept()
{
    if (!checkConfigPath())
        return;

    const QString cert = ui->certFileEdit->text();
    const QString key = ui->keyFileEdit->text();
    const QString trust = ui->clientCertEdit->text();
    if (!cert.isEmpty() && !key.isEmpty()) {
        if (trust.isEmpty()) {
            QMessageBox::warning(this, "Внимание", "Каталог доверенных сертификатов клиентов не заполнен!");
            return;
        }
        const QFileInfo trustInfo(trust);
        if (trustInfo.exists() && !trustInfo.isDir()) {
            QMessageBox::warning(this, "Внимание", "Каталог доверенных сертификатов не являеться каталогом");
            return;
        }
        // The gateway trusts what lies in the folder, its own certificate included;
        // an existing copy is kept and a failed copy goes unreported.
        QDir().mkpath(trust);
        QFile::copy(cert, QDir(trust).filePath(QFileInfo(cert).fileName()));
        emit signalRunServer(trust, cert, key);
    }
    if (ui->radioButton_authCertificate->isChecked() && (cert.isEmpty() || key.isEmpty() || trust.isEmpty())) {
        QMessageBox::warning(this, "Внимание",
                             "Выбрана аутентификация по сертификату, но информация по сертификатам не заполнена!");
        return;
    }
    QDialog::accept();
}

void RunPrepareDialog::appendParameters()
{
    m_parameters << ui->cfgPathEdit->text() << QString::number(ui->portBox->value())
                 << logLevelMap.value(ui->logLevelBox->currentIndex(), "warning")
                 << (ui->radioButton_anonimus->isChecked() ? "true" : "false") << ui->certFileEdit->text()
                 << ui->keyFileEdit->text() << ui->clientCertEdit->text();
    m_port = ui->portBox->text();
}

void RunPrepareDialog::on_RunPrepareDialog_accepted()
{
    appendParameters();
}

void RunPrepareDialog::on_pushButton_save_clicked()
{
    if (!checkConfigPath())
        return;
    appendParameters();
    if (saveParametrsStartServer(m_parameters) != 0)
        QMessageBox::warning(this, "Внимание", "Ошибка при сохранении файла конфигурации");
    else
        QMessageBox::information(this, "Внимание", "Cохранении файла конфигурации прошло успешно");
}

int RunPrepareDialog::saveParametrsStartServer(QList<QString> args)
{
    return CRunParameters::Save(args);
}

void RunPrepareDialog::setUsersEnabled(bool enabled)
{
    ui->usersSettingsEdit->setEnabled(enabled);
    ui->userBrowseButton->setEnabled(enabled);
}

void RunPrepareDialog::on_radioButton_anonimus_clicked()
{
    setUsersEnabled(false);
}

void RunPrepareDialog::on_radioButton_authCertificate_clicked()
{
    setUsersEnabled(false);
}

void RunPrepareDialog::on_radioButton_authLoginPassword_clicked()
{
    setUsersEnabled(true);
}

void RunPrepareDialog::chooseFile(QLineEdit* edit, const QString& filter)
{
    const QString path = QFileDialog::getOpenFileName(this, "Открыть файл", m_configPath, filter);
    if (!path.isEmpty())
        edit->setText(path);
}

void RunPrepareDialog::on_cgfBrowseButton_clicked()
{
    chooseFile(ui->cfgPathEdit, "Конфигурация OPC UA сервера MODBUS (*.cfg);;Все файлы (*.*)");
}

void RunPrepareDialog::on_userBrowseButton_clicked()
{
    chooseFile(ui->usersSettingsEdit, "Файл настроек пользователей сервера MODBUS (*.csv);;Все файлы (*.*)");
}

void RunPrepareDialog::on_certFileButton_clicked()
{
    chooseFile(ui->certFileEdit, "Файл сертификата сервера MODBUS (*.der);;Все файлы (*.*)");
}

void RunPrepareDialog::on_keyFileButton_clicked()
{
    chooseFile(ui->keyFileEdit, "Файл приватного ключа сервера MODBUS (*.pem);;Все файлы (*.*)");
}

void RunPrepareDialog::on_clientCertButton_clicked()
{
    const QString dir = QFileDialog::getExistingDirectory(this, "Открыть каталог", QDir::currentPath());
    if (!dir.isEmpty())
        ui->clientCertEdit->setText(dir);
}
