#include "config/scrambler.h"
#include "opcua/opcuawrapper.h"
#include "tests/opcua/testopcuaserver.h"
#include "tests/server/gatewayprocess.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

// The client against the reference gateway program: what the wrapper offers,
// sends and logs must fit what the gateway expects.
namespace {

const char kConfig[] = "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n"
                       ";Линия;COM-порт;MODBUS RTU;500;3;0;1;9600;8;1;Нет;Нет;Нет;Нет\n"
                       "DEVICE;1;2;3;4;5;6;7\n"
                       ";Прибор;1;Да;125;2000;0;Да\n"
                       "GROUP;1;2;3\n"
                       ";Группа;1;с\n"
                       "TAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n"
                       ";Тег;Входной регистр;1;0;0;Да;;;Цел32;AB CD;Нет;;;;;Константа;7\n"
                       "INIFILE\n\n[options]\nport = 4840\nlog = info\nallowanonimus = true\n"
                       "derFile = \npemFile = \ntrustFolder = \n"
                       "USERS\n\n[users]\nusers = оператор;секрет;";

const char kNoneEndpoint[] = "http://opcfoundation.org/UA/SecurityPolicy#None (None)";
const char kSecureEndpoint[] = "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256 (Sign and Encrypt)";

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QStringList messages(const QSignalSpy& spy)
{
    QStringList texts;
    for (const QList<QVariant>& args : spy)
        texts << args.at(0).toString();
    return texts;
}

} // namespace

class TstOpcuaGateway : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanup() { OPCUAWrapper::SetCertificateChooser(nullptr); }

    void discoverBrowseAndSendEdits();
    void loginWithUserAndPassword();
    void encryptedAnonymousAndCertificate();

private:
    QTemporaryDir m_dir;
    QString m_config;
};

void TstOpcuaGateway::initTestCase()
{
    if (!QFile::exists(GatewayProcess::program()))
        QSKIP("the gateway program is not built");
    QVERIFY(m_dir.isValid());
    m_config = m_dir.filePath("gateway.cfg");
    QVERIFY(CScrambler::WriteFile(m_config, QString::fromUtf8(kConfig)));
}

void TstOpcuaGateway::discoverBrowseAndSendEdits()
{
    GatewayProcess gateway;
    QVERIFY2(gateway.start({m_config}), qPrintable(gateway.output()));
    OPCUAWrapper wrapper;
    QSignalSpy servers(&wrapper, &OPCUAWrapper::signalSetServerDlgSearchDevice);
    QSignalSpy endpoints(&wrapper, &OPCUAWrapper::signalSetEndpointDlgSearchDevice);
    QSignalSpy log(&wrapper, &OPCUAWrapper::signalSetLogDlgSearchDevice);

    QCOMPARE(wrapper.findServers(gateway.url()), 0);
    QCOMPARE(servers.first().first().toStringList().first(), gateway.url());
    QCOMPARE(wrapper.getEndpoints(gateway.url()), 0);
    QCOMPARE(endpoints.first().first().toStringList(), QStringList{kNoneEndpoint});

    QCOMPARE(wrapper.connectToServer(gateway.url(), kNoneEndpoint, true, 0, "", ""), 0);
    const QStringList nodes = wrapper.getVecNodes();
    for (const char* node : {"ns=2;s=Линия", "ns=2;s=Линия.Прибор", "ns=2;s=Линия.Прибор.Группа",
                             "ns=2;s=Линия.Прибор.Группа.Тег", "ns=2;s=Каналы.addNode"})
        QVERIFY2(nodes.contains(node), node);
    QCOMPARE(nodes.filter(QRegularExpression("^ns=2;s=.+$")).size(), nodes.size());
    QVERIFY(messages(log).contains("Найдена нода: Линия.Прибор - ns=2;s=Линия.Прибор"));

    // Exactly these texts arrive; the gateway prints control characters as \xNN.
    wrapper.exchangeRunning = true;
    QVERIFY(wrapper.callMethodStartStopExchange());
    QVERIFY(wrapper.callAddNode({"Линия.Прибор", "3", "Новая", "1", "0"}));
    QVERIFY(wrapper.callMethodStartStopExchange());
    QVERIFY(wrapper.callAddNode({"Линия", "2", "Второй", QString(QChar(7)), "1", "0", QString(QChar(125)),
                                 QString(QChar(2000)), "\x03"}));
    QVERIFY(wrapper.callEditNode({"Линия.Прибор.Группа.Тег", "4", "Тег", "3", "40", "1", QString(QChar(0)),
                                  "1", "1", "0", "2", "0", "0", "0", "0", "0"}));
    QVERIFY(wrapper.callDeleteNode({"Линия.Прибор.Новая"}));
    // A refusal of the gateway is a failed call.
    QVERIFY(!wrapper.callAddNode({"Линия.Прибор", "3", "Группа", "1", "0"}));

    const QStringList expected = {"Вызов метода stopExchange: emul",
                                  "Вызов метода addNode: Линия.Прибор;3;Новая;1;0",
                                  "Вызов метода startExchange: emul",
                                  "Вызов метода addNode: Линия;2;Второй;\\x07;1;0;};\u07D0;\\x03",
                                  "Вызов метода editNode: Линия.Прибор.Группа.Тег;4;Тег;3;40;1;\n",
                                  "Вызов метода deleteNode: Линия.Прибор.Новая"};
    for (const QString& line : expected)
        QTRY_VERIFY2(gateway.output().contains(line), qPrintable(line + "\n---\n" + gateway.output()));
    QVERIFY(wrapper.exchangeRunning);

    QCOMPARE(wrapper.disconnectToServer(), 0);
    QTRY_VERIFY(gateway.output().contains("Сессия закрыта"));
}

void TstOpcuaGateway::loginWithUserAndPassword()
{
    GatewayProcess::Options options(m_config);
    options.anonymous = false;
    GatewayProcess gateway;
    QVERIFY2(gateway.start(options), qPrintable(gateway.output()));

    // No certificates in the trust folder: no encryption, the login goes out anyway.
    const QString trust = m_dir.filePath("no-trust");
    QVERIFY(QDir().mkpath(trust));
    const QString cert = m_dir.filePath("dummy.der"), key = m_dir.filePath("dummy.pem");
    QVERIFY(writeFile(cert, "x") && writeFile(key, "y"));
    OPCUAWrapper::SetCertificateChooser([&](const CertificatePaths&) {
        return CertificatePaths{cert, key, trust};
    });

    OPCUAWrapper wrapper;
    QSignalSpy log(&wrapper, &OPCUAWrapper::signalSetLogDlgSearchDevice);
    QCOMPARE(wrapper.findServers(gateway.url()), 0);
    QCOMPARE(wrapper.connectToServer(gateway.url(), kNoneEndpoint, false, 0, "", ""), 1);
    QCOMPARE(messages(log).last(),
             QString("Не удалось подключиться к конечной точке. Возможно, неверная политика "
                     "безопасности. Код ошибки BadIdentityTokenRejected"));

    QCOMPARE(wrapper.findServers(gateway.url()), 0);
    QCOMPARE(wrapper.connectToServer(gateway.url(), kNoneEndpoint, false, 2, "оператор", "неверно"), 1);
    QCOMPARE(messages(log).last(),
             QString("Не удалось подключиться к конечной точке. Код ошибки BadUserAccessDenied"));
    QVERIFY(!wrapper.connected);
    QCOMPARE(wrapper.findServers(gateway.url()), 0);
    QCOMPARE(wrapper.connectToServer(gateway.url(), kNoneEndpoint, true, 2, "оператор", "секрет"), 0);
    QVERIFY(wrapper.getVecNodes().contains("ns=2;s=Линия.Прибор.Группа.Тег"));
    QTRY_VERIFY(gateway.output().contains("Сессия открыта"));
    QCOMPARE(wrapper.disconnectToServer(), 0);
}

void TstOpcuaGateway::encryptedAnonymousAndCertificate()
{
    QByteArray serverCert, serverKey, clientCert, clientKey;
    QVERIFY(TestOpcUaServer::createCertificate("urn:tarnopcua.server.application", serverCert, serverKey));
    QVERIFY(TestOpcUaServer::createCertificate("urn:open62541.server.application", clientCert, clientKey));
    const QString serverTrust = m_dir.filePath("gateway-trust");
    const QString clientTrust = m_dir.filePath("client-trust");
    QVERIFY(QDir().mkpath(serverTrust) && QDir().mkpath(clientTrust));
    const QString serverDer = m_dir.filePath("gateway.der"), serverPem = m_dir.filePath("gateway.pem");
    const QString clientDer = m_dir.filePath("client.der"), clientPem = m_dir.filePath("client.pem");
    QVERIFY(writeFile(serverDer, serverCert) && writeFile(serverPem, serverKey));
    QVERIFY(writeFile(clientDer, clientCert) && writeFile(clientPem, clientKey));
    QVERIFY(writeFile(serverTrust + "/client.der", clientCert));
    QVERIFY(writeFile(clientTrust + "/gateway.der", serverCert));

    GatewayProcess::Options options(m_config);
    options.certificate = serverDer;
    options.privateKey = serverPem;
    options.trustFolder = serverTrust;
    GatewayProcess gateway;
    QVERIFY2(gateway.start(options), qPrintable(gateway.output()));
    OPCUAWrapper::SetCertificateChooser([&](const CertificatePaths&) {
        return CertificatePaths{clientDer, clientPem, clientTrust};
    });

    OPCUAWrapper wrapper;
    QSignalSpy endpoints(&wrapper, &OPCUAWrapper::signalSetEndpointDlgSearchDevice);
    QCOMPARE(wrapper.findServers(gateway.url()), 0);
    QCOMPARE(wrapper.getEndpoints(gateway.url()), 0);
    QStringList offered = endpoints.first().first().toStringList();
    offered.sort();
    QCOMPARE(
        offered,
        QStringList({"http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256 (Sign and Encrypt)",
                     "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256 (Sign)", kNoneEndpoint}));

    for (int kind : {1, 3}) {
        QCOMPARE(wrapper.findServers(gateway.url()), 0);
        QCOMPARE(wrapper.connectToServer(gateway.url(), kSecureEndpoint, false, kind, "", ""), 0);
        QVERIFY(wrapper.callMethodStartStopExchange());
        QCOMPARE(wrapper.disconnectToServer(), 0);
    }
    QTRY_VERIFY(gateway.output().contains("Вызов метода startExchange: emul"));
    QTRY_VERIFY(gateway.output().contains("Вызов метода stopExchange: emul"));

    // The mode Sign is connected as Sign and Encrypt, which the gateway offers as well.
    QCOMPARE(wrapper.findServers(gateway.url()), 0);
    QCOMPARE(wrapper.connectToServer(gateway.url(),
                                     "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256 (Sign)",
                                     false, 1, "", ""),
             0);
    QCOMPARE(UA_Client_getConfig(wrapper.client)->securityMode, UA_MESSAGESECURITYMODE_SIGNANDENCRYPT);
    QCOMPARE(wrapper.disconnectToServer(), 0);
}

QTEST_GUILESS_MAIN(TstOpcuaGateway)
#include "tst_opcuagateway.moc"
