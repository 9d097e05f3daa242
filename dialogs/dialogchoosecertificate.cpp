#include "dialogs/dialogchoosecertificate.h"

#include "ui_dialogchoosecertificate.h"

#include "opcua/opcuawrapper.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QMessageBox>
#include <QThread>

DialogChooseCertificate::DialogChooseCertificate(QWidget* parent)
    : QDialog(parent), ui(new Ui::DialogChooseCertificate)
{
    ui->setupUi(this);
}

DialogChooseCertificate::~DialogChooseCertificate()
{
    delete ui;
}

void DialogChooseCertificate::setPaths(QString certificate, QString key, QString trust)
{
    ui->certFileEdit->setText(certificate);
    ui->keyFileEdit->setText(key);
    ui->clientCertEdit->setText(trust);
}

void DialogChooseCertificate::on_pushButton_clicked()
{
    certificatePath = ui->certFileEdit->text();
    keyPath = ui->keyFileEdit->text();
    trustPath = ui->clientCertEdit->text();
    if (!certificatePath.isEmpty() && !keyPath.isEmpty() && !trustPath.isEmpty()) {
        accept();
        return;
    }
    QMessageBox::warning(this, "Внимание", "Заполните все поля");
}

void DialogChooseCertificate::on_pushButton_2_clicked()
{
    close();
}

void DialogChooseCertificate::on_certFileButton_clicked()
{
    const QString file =
        QFileDialog::getOpenFileName(this, "Открыть файл", QDir::currentPath(),
                                     "Файл сертификата сервера MODBUS (*.der);;Все файлы (*.*)");
    if (!file.isEmpty())
        ui->certFileEdit->setText(file);
}

void DialogChooseCertificate::on_keyFileButton_clicked()
{
    const QString file =
        QFileDialog::getOpenFileName(this, "Открыть файл", QDir::currentPath(),
                                     "Файл приватного ключа сервера MODBUS (*.pem);;Все файлы (*.*)");
    if (!file.isEmpty())
        ui->keyFileEdit->setText(file);
}

void DialogChooseCertificate::on_clientCertButton_clicked()
{
    const QString dir =
        QFileDialog::getExistingDirectory(this, "Открыть каталог", QDir::currentPath(),
                                          QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
    if (!dir.isEmpty())
        ui->clientCertEdit->setText(dir);
}

void DialogChooseCertificate::InstallAsCertificateChooser()
{
    OPCUAWrapper::SetCertificateChooser([](const CertificatePaths& known) {
        CertificatePaths chosen;
        auto run = [&known, &chosen] {
            DialogChooseCertificate dialog(nullptr);
            dialog.setPaths(known.certificate, known.privateKey, known.trustDirectory);
            dialog.exec();
            chosen = {dialog.certificatePath, dialog.keyPath, dialog.trustPath};
        };
        // A worker (the automatic connection) waits here while the GUI thread,
        // which sits in the busy dialog's loop, shows the dialog.
        if (QThread::currentThread() == qApp->thread())
            run();
        else
            QMetaObject::invokeMethod(qApp, run, Qt::BlockingQueuedConnection);
        return chosen;
    });
}
