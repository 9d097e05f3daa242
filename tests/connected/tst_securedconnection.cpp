#include "app/mainwindow.h"
#include "dialogs/dialogchoosecertificate.h"
#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalSpy>
#include <QTableWidget>
#include <QTextEdit>
#include <QTreeWidget>
#include <QtTest>

namespace {

const char kSecure[] = "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256 (Sign and Encrypt)";

void quiet(QtMsgType, const QMessageLogContext&, const QString&) {}

} // namespace

// The whole road to a secured session: certificates from the certificate
// tool, users written by the users dialog, a gateway started on both, and the
// program's client logging in with a password and with its certificate.
class SecuredConnectionTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString m_startDir;
    QString m_config;
    QString m_gatewayCert, m_gatewayKey, m_gatewayTrust;
    QString m_clientCert, m_clientKey, m_clientTrust;

    QString folder(const QString& name)
    {
        const QString path = m_dir.filePath(name);
        QDir().mkpath(path);
        return path;
    }

    // A gateway on the configuration with the users, its certificate and no anonymous sessions.
    bool startSecured(GatewayProcess& gateway)
    {
        GatewayProcess::Options options(m_config);
        options.anonymous = false;
        options.certificate = m_gatewayCert;
        options.privateKey = m_gatewayKey;
        options.trustFolder = m_gatewayTrust;
        return !m_clientCert.isEmpty() && gateway.start(options);
    }

    // Finds the gateway and opens a session on its encrypted endpoint.
    static int connectSecured(OPCUAWrapper& client, const QString& url, int authKind, const QString& user,
                              const QString& password)
    {
        QSignalSpy endpoints(&client, &OPCUAWrapper::signalSetEndpointDlgSearchDevice);
        if (client.findServers(url) != 0 || client.getEndpoints(url) != 0 || endpoints.isEmpty() ||
            !endpoints.first().first().toStringList().contains(kSecure))
            return -1;
        return client.connectToServer(url, kSecure, true, authKind, user, password);
    }

private slots:
    void initTestCase()
    {
        qInstallMessageHandler(quiet);
        m_startDir = QDir::currentPath();
        m_config = m_dir.filePath("secured.cfg");
        QVERIFY(QFile::copy(QString(VELMORA_TEST_DATA) + "/worked_example.cfg", m_config));
        QVERIFY(QFile::setPermissions(m_config, QFile::ReadOwner | QFile::WriteOwner));
        m_gatewayTrust = folder("gateway-trust");
        m_clientTrust = folder("client-trust");
    }

    void cleanup()
    {
        OPCUAWrapper::SetCertificateChooser(nullptr);
        QDir::setCurrent(m_startDir);
    }

    // Both pairs through the program's certificate command (the tool in the
    // working directory); users through the users command on the open configuration.
    void certificatesAndUsersFromTheProgram()
    {
        const QString work = folder("work");
        QVERIFY(
            QFile::link(QString(VELMORA_BIN_DIR) + "/generate_certificate", work + "/generate_certificate"));
        QVERIFY(QDir::setCurrent(work));
        const QString gatewayPki = folder("gateway-pki"), clientPki = folder("client-pki");
        ModalWatcher watcher;
        MainWindow w;
        const auto makePair = [&](const QString& pki) {
            watcher.answer([&](QWidget* d) {
                d->findChild<QLineEdit*>("lineEdit_organization_name")->setText("Velmora");
                d->findChild<QTextEdit*>("textEdit_domains")->setPlainText("localhost");
                d->findChild<QTextEdit*>("textEdit_ip_adresses")->setPlainText("127.0.0.1");
                d->findChild<QLineEdit*>("lineEdit_outputCatalogCert")->setText(pki);
                d->findChild<QLineEdit*>("lineEdit_outputCatalogKey")->setText(pki);
                d->findChild<QPushButton*>("pushButton_ok")->click();
            });
            watcher.answer(QMessageBox::Ok);
            w.on_create_certiifcates_triggered();
            return watcher.seen().last().title == "Успешно" &&
                   watcher.seen().last().text == "Сертификаты успешно созданы!";
        };
        QVERIFY(makePair(gatewayPki) && makePair(clientPki));
        m_gatewayCert = gatewayPki + "/server_cert.der";
        m_gatewayKey = gatewayPki + "/server_key.pem";
        m_clientCert = clientPki + "/server_cert.der";
        m_clientKey = clientPki + "/server_key.pem";

        // Each side trusts the other's certificate.
        QVERIFY(QFile::copy(m_clientCert, m_gatewayTrust + "/client.der"));
        QVERIFY(QFile::copy(m_gatewayCert, m_clientTrust + "/gateway.der"));

        watcher.answerFile(m_config);
        w.on_open_action_triggered();
        watcher.answer([](QWidget* d) {
            for (const auto& user : {std::pair("оператор", "секрет 1"), std::pair("admin", "")}) {
                d->findChild<QLineEdit*>("lineEdit_login")->setText(user.first);
                d->findChild<QLineEdit*>("lineEdit_password")->setText(user.second);
                d->findChild<QPushButton*>("pushButton_add_user")->click();
            }
            QCOMPARE(d->findChild<QTableWidget*>("tableWidget_users")->rowCount(), 2);
            qobject_cast<QDialog*>(d)->accept();
        });
        w.on_action_addUsers_triggered();
        QCOMPARE(watcher.pending(), 0);
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    // The program's client logs in each way first, then a user does it as
    // anyone would: the find-server dialog with login and password, the
    // certificate dialog the program installs, then an edit over that session.
    void passwordAndCertificateSessions()
    {
        GatewayProcess gateway;
        QVERIFY2(startSecured(gateway), qPrintable(gateway.output()));
        OPCUAWrapper::SetCertificateChooser([this](const CertificatePaths&) {
            return CertificatePaths{m_clientCert, m_clientKey, m_clientTrust};
        });

        // The dialog's second user has an empty password, and the first one's
        // password is no key to it; then the certificate as the identity.
        OPCUAWrapper client;
        QSignalSpy log(&client, &OPCUAWrapper::signalSetLogDlgSearchDevice);
        QCOMPARE(connectSecured(client, gateway.url(), 2, "admin", ""), 0);
        QCOMPARE(client.disconnectToServer(), 0);
        QCOMPARE(connectSecured(client, gateway.url(), 2, "admin", "секрет 1"), 1);
        QCOMPARE(log.last().first().toString(),
                 QString("Не удалось подключиться к конечной точке. Код ошибки BadUserAccessDenied"));
        QVERIFY(gateway.output().contains("Сессия отклонена: пользователь \"admin\""));
        QCOMPARE(connectSecured(client, gateway.url(), 3, "", ""), 0);
        QVERIFY(gateway.output().contains("Сессия открыта: сертификат пользователя, "
                                          "Basic256Sha256 (SignAndEncrypt)"));
        QCOMPARE(client.disconnectToServer(), 0);

        DialogChooseCertificate::InstallAsCertificateChooser();

        ModalWatcher watcher;
        MainWindow w;
        w.show();
        watcher.answerFile(m_config);
        w.on_open_action_triggered();
        const QString url = gateway.url();
        watcher.answer([url](QWidget* d) {
            d->findChild<QLineEdit*>("le_device")->setText(url);
            d->findChild<QPushButton*>("pb_searchDevice")->click();
            d->findChild<QPushButton*>("pb_getEndPoint")->click();
            auto* endpoints = d->findChild<QComboBox*>("cb_endpoint");
            endpoints->setCurrentIndex(endpoints->findText(kSecure));
            d->findChild<QRadioButton*>("radioButton_userpassword")->click();
            d->findChild<QLineEdit*>("le_user")->setText("оператор");
            d->findChild<QLineEdit*>("le_password")->setText("секрет 1");
            d->findChild<QPushButton*>("pb_connect")->click();
            d->findChild<QPushButton*>("pb_ok")->click();
        });
        QString chooser;
        watcher.answer([this, &chooser](QWidget* d) {
            chooser = d->objectName();
            d->findChild<QLineEdit*>("certFileEdit")->setText(m_clientCert);
            d->findChild<QLineEdit*>("keyFileEdit")->setText(m_clientKey);
            d->findChild<QLineEdit*>("clientCertEdit")->setText(m_clientTrust);
            d->findChild<QPushButton*>("pushButton")->click();
        });
        w.on_action_triggered();
        QCOMPARE(chooser, QString("DialogChooseCertificate"));
        QVERIFY(MainWindowProbe::connected(w));
        QVERIFY(gateway.output().contains("Сессия открыта: пользователь \"оператор\", "
                                          "Basic256Sha256 (SignAndEncrypt)"));

        QTreeWidgetItem* channelRow = w.findChild<QTreeWidget*>("treeWidget")->topLevelItem(0)->child(0);
        channelRow->treeWidget()->clearSelection();
        channelRow->child(0)->setSelected(true);
        watcher.answer([](QWidget* d) {
            d->findChild<QLineEdit*>("nameEdit")->setText("Защищённая");
            qobject_cast<QDialog*>(d)->accept();
        });
        w.on_add_group_action_triggered();
        QVERIFY(gateway.output().contains(QRegularExpression(
            "Вызов метода addNode: Channel_0.Device_0;3;Защищённая;[^\n]*\n[^\n]*Метод addNode: Good")));
        QVERIFY(MainWindowProbe::groups(w).count("Channel_0.Device_0.Защищённая"));
        QCOMPARE(watcher.unexpectedCount(), 0);
        QCOMPARE(gateway.stop(), 0);
    }
};

QTEST_MAIN(SecuredConnectionTest)
#include "tst_securedconnection.moc"
