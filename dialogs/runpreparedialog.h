#pragma once

#include <QDialog>
#include <QList>
#include <QMap>
#include <QString>

class QLineEdit;

namespace Ui {
class RunPrepareDialog;
}

// Collects what the gateway needs before it starts and keeps it in the tail
// of the configuration file. It starts nothing itself.
class RunPrepareDialog : public QDialog
{
    Q_OBJECT
public:
    explicit RunPrepareDialog(QWidget* parent = nullptr);
    ~RunPrepareDialog() override;

    void Init(const QString& config, const QString& der, const QString& pem, const QString& trust);
    void accept() override;
    int saveParametrsStartServer(QList<QString> args);

    // Results read after the dialog closed: the seven start arguments (the
    // list only grows, so entries 0 to 6 are those of the first use) and the port.
    const QList<QString>& parameters() const { return m_parameters; }
    const QString& port() const { return m_port; }

    static const QMap<int, QString> logLevelMap;

signals:
    void signalRunServer(QString dirTrust, QString der, QString pem);

private slots:
    void on_RunPrepareDialog_accepted();
    void on_pushButton_save_clicked();
    void on_radioButton_anonimus_clicked();
    void on_radioButton_authCertificate_clicked();
    void on_radioButton_authLoginPassword_clicked();
    void on_cgfBrowseButton_clicked();
    void on_userBrowseButton_clicked();
    void on_certFileButton_clicked();
    void on_keyFileButton_clicked();
    void on_clientCertButton_clicked();

private:
    // Steps shared by accept and save: a configuration path that exists.
    bool checkConfigPath();
    void appendParameters();
    void setUsersEnabled(bool enabled);
    void chooseFile(QLineEdit* edit, const QString& filter);

    QList<QString> m_parameters;
    QString m_port;
    Ui::RunPrepareDialog* ui;
    QString m_configPath;
};
