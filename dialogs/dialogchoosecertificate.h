#pragma once

#include <QDialog>
#include <QString>

namespace Ui {
class DialogChooseCertificate;
}

// Asks for the certificate, its private key and the folder of trusted certificates.
class DialogChooseCertificate : public QDialog
{
    Q_OBJECT
public:
    explicit DialogChooseCertificate(QWidget* parent = nullptr);
    ~DialogChooseCertificate() override;

    void setPaths(QString certificate, QString key, QString trust);

    // Lets the OPC UA client ask for certificates through this dialog, from any
    // thread: the dialog always runs on the GUI thread. Called once by the application.
    static void InstallAsCertificateChooser();

    // Empty until OK is pressed.
    QString certificatePath;
    QString keyPath;
    QString trustPath;

private slots:
    void on_pushButton_clicked();
    void on_pushButton_2_clicked();
    void on_certFileButton_clicked();
    void on_keyFileButton_clicked();
    void on_clientCertButton_clicked();

private:
    Ui::DialogChooseCertificate* ui;
};
