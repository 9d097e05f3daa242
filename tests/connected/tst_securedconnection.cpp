#include "dialogs/dialogchoosecertificate.h"
#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/session.h"

#include <QtTest>
#include <QtWidgets>

namespace {

const char kSecure[] = "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256 (Sign and Encrypt)";

void setText(QWidget* d, const char* name, const QString& text)
{
    if (auto* edit = d->findChild<QTextEdit*>(name))
        edit->setPlainText(text);
    else
        requireChild<QLineEdit>(d, name)->setText(text);
}

void click(QWidget* d, const char* name)
{
    requireChild<QAbstractButton>(d, name)->click();
}

} // namespace

// The whole road to a secured session: certificates from the certificate tool through the
// program's command, users written by the users dialog, a gateway started on both without
// anonymous sessions, and the program's client logging in with a password and with its certificate.
class SecuredConnectionTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_config, m_gatewayPki, m_clientPki, m_gatewayTrust, m_clientTrust;

    QString folder(const QString& name)
    {
        QDir().mkpath(m_dir.filePath(name));
        return m_dir.filePath(name);
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
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        m_config = m_dir.filePath("secured.cfg");
        QVERIFY(QFile::copy(QString(VELMORA_TEST_DATA) + "/worked_example.cfg", m_config));
        QVERIFY(QFile::setPermissions(m_config, QFile::ReadOwner | QFile::WriteOwner));
        m_gatewayPki = folder("gateway-pki");
        m_clientPki = folder("client-pki");
        m_gatewayTrust = folder("gateway-trust");
        m_clientTrust = folder("client-trust");
    }

    void cleanup() { OPCUAWrapper::SetCertificateChooser(nullptr); }

    // The tool is looked for beside the program.
    void certificatesAndUsersFromTheProgram()
    {
        const QString beside = QCoreApplication::applicationDirPath() + "/generate_certificate";
        QFile::remove(beside);
        QVERIFY(QFile::link(QString(VELMORA_BIN_DIR) + "/generate_certificate", beside));
        Session s(m_config);
        for (const QString& pki : {m_gatewayPki, m_clientPki}) {
            s.watcher.answer([pki](QWidget* d) {
                setText(d, "lineEdit_organization_name", "Velmora");
                setText(d, "textEdit_domains", "localhost");
                setText(d, "textEdit_ip_adresses", "127.0.0.1");
                setText(d, "lineEdit_outputCatalogCert", pki);
                setText(d, "lineEdit_outputCatalogKey", pki);
                click(d, "pushButton_ok");
            });
            s.watcher.answer(QMessageBox::Ok);
            s.w.on_create_certiifcates_triggered();
            QCOMPARE(s.watcher.seen().last().text, QString("Сертификаты успешно созданы!"));
        }
        // Each side trusts the other's certificate.
        QVERIFY(QFile::copy(m_clientPki + "/server_cert.der", m_gatewayTrust + "/client.der"));
        QVERIFY(QFile::copy(m_gatewayPki + "/server_cert.der", m_clientTrust + "/gateway.der"));

        s.accept([](QWidget* d) {
            setText(d, "lineEdit_login", "оператор");
            setText(d, "lineEdit_password", "секрет 1");
            click(d, "pushButton_add_user");
        });
        s.w.on_action_addUsers_triggered();
        QCOMPARE(s.watcher.pending(), 0);
    }

    // The client logs in with its certificate; then a user does it as anyone would: the find-server
    // dialog with login and password and the certificate dialog the program installs.
    void passwordAndCertificateSessions()
    {
        GatewayProcess gateway;
        GatewayProcess::Options options(m_config);
        options.anonymous = false;
        options.certificate = m_gatewayPki + "/server_cert.der";
        options.privateKey = m_gatewayPki + "/server_key.pem";
        options.trustFolder = m_gatewayTrust;
        QVERIFY2(QFile::exists(m_clientPki + "/server_cert.der") && gateway.start(options),
                 qPrintable(gateway.output()));
        const CertificatePaths client{m_clientPki + "/server_cert.der", m_clientPki + "/server_key.pem",
                                      m_clientTrust};
        OPCUAWrapper::SetCertificateChooser([client](const CertificatePaths&) { return client; });

        // The certificate as the identity; the refusals are the gateway's and the client's own tests'
        // business.
        OPCUAWrapper wrapper;
        QCOMPARE(connectSecured(wrapper, gateway.url(), 3, "", ""), 0);
        QTRY_VERIFY_WITH_TIMEOUT(
            gateway.output().contains(
                "Сессия открыта: сертификат пользователя, Basic256Sha256 (SignAndEncrypt)"),
            10000);
        QCOMPARE(wrapper.disconnectToServer(), 0);

        DialogChooseCertificate::InstallAsCertificateChooser();
        Session s(m_config);
        const QString url = gateway.url();
        s.watcher.answer([url](QWidget* d) {
            setText(d, "le_device", url);
            click(d, "pb_searchDevice");
            click(d, "pb_getEndPoint");
            auto* endpoints = requireChild<QComboBox>(d, "cb_endpoint");
            endpoints->setCurrentIndex(endpoints->findText(kSecure));
            click(d, "radioButton_userpassword");
            setText(d, "le_user", "оператор");
            setText(d, "le_password", "секрет 1");
            click(d, "pb_connect");
            click(d, "pb_ok");
        });
        QString chooser;
        s.watcher.answer([client, &chooser](QWidget* d) {
            chooser = d->objectName();
            setText(d, "certFileEdit", client.certificate);
            setText(d, "keyFileEdit", client.privateKey);
            setText(d, "clientCertEdit", client.trustDirectory);
            click(d, "pushButton");
        });
        s.w.on_action_triggered();
        QVERIFY(chooser == "DialogChooseCertificate" && MainWindowProbe::connected(s.w));
        QTRY_VERIFY_WITH_TIMEOUT(
            gateway.output().contains(
                "Сессия открыта: пользователь \"оператор\", Basic256Sha256 (SignAndEncrypt)"),
            10000);

        // Method calls work over that session.
        s.select(s.node("Channel_0.Device_0"));
        s.accept(Session::rename("Защищённая"));
        s.w.on_add_group_action_triggered();
        QVERIFY(MainWindowProbe::groups(s.w).count("Channel_0.Device_0.Защищённая"));
        QTRY_VERIFY_WITH_TIMEOUT(gateway.output().contains("Метод addNode: Good"), 10000);
        QCOMPARE(gateway.stop(), 0);
    }
};

QTEST_MAIN(SecuredConnectionTest)
#include "tst_securedconnection.moc"
