#include "dialogs/createcertificates.h"

#include "ui_createcertificates.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>

CreateCertificates::CreateCertificates(QWidget* parent) : QDialog(parent), ui(new Ui::CreateCertificates)
{
    ui->setupUi(this);
    connect(ui->checkBox_usePassword, &QCheckBox::stateChanged, this,
            [this](int state) { on_checkBox_usePassword_checkStateChanged(Qt::CheckState(state)); });
}

CreateCertificates::~CreateCertificates()
{
    delete ui;
}

void CreateCertificates::on_lineEdit_country_name_textChanged(const QString& text)
{
    // Country codes have two letters; a third one is taken back at once.
    if (text.size() >= 3)
        ui->lineEdit_country_name->setText(text.left(text.size() - 1));
}

void CreateCertificates::on_checkBox_usePassword_checkStateChanged(const Qt::CheckState& state)
{
    const bool on = state == Qt::Checked;
    ui->lineEdit_password->setEnabled(on);
    ui->lineEdit_passwordRepeat->setEnabled(on);
}

QString CreateCertificates::chooseFolder()
{
    return QFileDialog::getExistingDirectory(this, "Открыть каталог", QDir::currentPath(),
                                             QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
}

void CreateCertificates::on_pushButton_fileDialogCert_clicked()
{
    ui->lineEdit_outputCatalogCert->setText(chooseFolder());
}

void CreateCertificates::on_pushButton_fileDialogKey_clicked()
{
    ui->lineEdit_outputCatalogKey->setText(chooseFolder());
}

void CreateCertificates::on_pushButton_cancel_clicked()
{
    close();
}

int CreateCertificates::validityDays() const
{
    const int n = ui->comboBox_validate->currentText().section(' ', 0, 0).toInt();
    switch (ui->comboBox_validate->currentIndex()) {
    case 0:
        return n;
    case 1:
        return n * 7;
    case 2:
        return n * 30;
    default:
        return n * 365;
    }
}

void CreateCertificates::fillSettings()
{
    m_settings.clear();
    m_settings["appURI"] = ui->lineEdit_appURI->text();
    m_settings["common_name"] = ui->lineEdit_common_name->text();
    m_settings["organization_name"] = ui->lineEdit_organization_name->text();
    m_settings["organization_unit"] = ui->lineEdit_organization_unit->text();
    m_settings["locality_name"] = ui->lineEdit_locality_name->text();
    m_settings["city_name"] = ui->lineEdit_city_name->text();
    m_settings["country_name"] = ui->lineEdit_country_name->text();
    m_settings["domains"] = ui->textEdit_domains->toPlainText();
    m_settings["ip_adresses"] = ui->textEdit_ip_adresses->toPlainText();
    m_settings["outputCatalogCert"] = ui->lineEdit_outputCatalogCert->text();
    m_settings["outputCatalogKey"] = ui->lineEdit_outputCatalogKey->text();
    m_settings["keySize"] = ui->comboBox_keySize->currentText().section(' ', 0, 0);
    m_settings["algotirm"] = ui->comboBox_algoritm->currentText();
    m_settings["validate"] = QString::number(validityDays());
    if (ui->checkBox_usePassword->isChecked()) {
        m_settings["password"] = ui->lineEdit_password->text();
        m_settings["passwordRepeat"] = ui->lineEdit_passwordRepeat->text();
    }
}

QString CreateCertificates::checkSettings() const
{
    if (m_settings["common_name"].isEmpty())
        return "Имя не заполнено";
    if (m_settings["organization_name"].isEmpty())
        return "Имя организации не заполнено";
    if (m_settings["domains"].isEmpty() && m_settings["ip_adresses"].isEmpty())
        return "Домены или IP адреса не заполнено";
    if (m_settings["outputCatalogCert"].isEmpty() || m_settings["outputCatalogKey"].isEmpty())
        return "Путь до каталога с сертификатами не заполнено";
    if (!QFileInfo(m_settings["outputCatalogCert"]).isDir() ||
        !QFileInfo(m_settings["outputCatalogKey"]).isDir())
        return "Путь до каталога с сертификатами не являеться путем";
    if (ui->checkBox_usePassword->isChecked()) {
        if (m_settings["password"].isEmpty() || m_settings["passwordRepeat"].isEmpty())
            return "Пароль не заполнено";
        if (m_settings["password"] != m_settings["passwordRepeat"])
            return "Пароли не совпадают";
    }
    return QString();
}

void CreateCertificates::on_pushButton_ok_clicked()
{
    fillSettings();
    const QString failure = checkSettings();
    if (!failure.isEmpty()) {
        QMessageBox::warning(this, "Внимание", failure);
        return;
    }
    emit signalCreateCertificate(m_settings);
    accept();
}
