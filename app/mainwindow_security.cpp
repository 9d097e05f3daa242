// Certificates and users.
#include "app/mainwindow.h"

#include "app/logging.h"
#include "dialogs/createcertificates.h"
#include "dialogs/dialogaddusers.h"
#include "ui_mainwindow.h"

#include <QMessageBox>

#include <cstdlib>

void MainWindow::on_create_certiifcates_triggered()
{
    CreateCertificates dialog(this);
    connect(&dialog, &CreateCertificates::signalCreateCertificate, this, &MainWindow::slotCreateCertificates);
    if (dialog.exec() != QDialog::Accepted)
        return;

    const QMap<QString, QString>& s = m_certSettings;
    const QString arguments =
        QString("-CN=%1 -O=%2 -OU=%3 -ST=%4 -L=%5 -C=%6 -DNS=%7 -IP=%8 -size=%9 -alg=%10 -val=%11 -der=%12 "
                "-pem=%13")
            .arg(s["common_name"], s["organization_name"], s["organization_unit"], s["locality_name"],
                 s["city_name"], s["country_name"], s["domains"], s["ip_adresses"], s["keySize"],
                 s["algotirm"], s["validate"], s["outputCatalogCert"], s["outputCatalogKey"]);
    // The tool lies beside the program, and the values go to the shell
    // unquoted: a value with a blank reaches the tool as several words.
    const QByteArray command = (besideProgram("generate_certificate") + " " + arguments).toUtf8();
    const int code = std::system(command.constData()) / 256;

    if (code == 0) {
        const QString text = "Сертификаты успешно созданы!";
        QMessageBox::information(this, "Успешно", text);
        VLOG_INFO().noquote() << text;
        return;
    }
    const QString text = QString("При создании сертификатов произошла ошибка!\nКод ошибки - %1").arg(code);
    QMessageBox::warning(this, "Ошибка", text);
    VLOG_WARNING().noquote() << text;
}

void MainWindow::on_action_addUsers_triggered()
{
    if (m_configPath.isEmpty()) {
        QMessageBox::warning(this, "Внимание", "Не открыта конфигурация сервера, операция прервана");
        return;
    }
    DialogAddUsers dialog(m_configPath, this);
    dialog.exec();
}
