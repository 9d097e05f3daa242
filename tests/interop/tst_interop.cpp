#include "gatewayprocess.h"

#include "config/scrambler.h"
#include "opcua/opcuawrapper.h"

#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>
#include <open62541/plugin/create_certificate.h>
#include <open62541/plugin/log_stdout.h>

#include <QDir>
#include <QFile>
#include <QProcessEnvironment>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <thread>

namespace {

// An emulated device whose values move, and two users.
const char kConfig[] = "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n"
                       ";Линия;COM-порт;MODBUS RTU;500;3;0;1;9600;8;1;Нет;Нет;Нет;Нет\n"
                       "DEVICE;1;2;3;4;5;6;7\n;Эмулятор;1;Да;125;2000;0;Да\nGROUP;1;2;3\n;Быстрая;50;мс\n"
                       "TAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n"
                       ";Const;Входной регистр;1;0;0;Да;;;Вещ32;AB CD;Множитель;2;;;;Константа;1.5\n"
                       ";Rand;Входной регистр;3;0;0;Да;;;Вещ64;AB CD EF GH;Нет;;;;;Случайное число\n"
                       "USERS\n\n[users]\nusers = оператор;Пароль-на-проводе;guest;1;";
const QByteArray kPassword = QString("Пароль-на-проводе").toUtf8();
const QString kNone = "http://opcfoundation.org/UA/SecurityPolicy#None (None)";

// Passes bytes between clients and the gateway and keeps all that went by.
class Relay : public QTcpServer
{
public:
    explicit Relay(quint16 target) : m_target(target) { listen(QHostAddress::LocalHost); }
    QString url() const { return QStringLiteral("opc.tcp://127.0.0.1:%1").arg(serverPort()); }
    QByteArray seen;

protected:
    void incomingConnection(qintptr descriptor) override
    {
        auto* client = new QTcpSocket(this);
        auto* gateway = new QTcpSocket(this);
        client->setSocketDescriptor(descriptor);
        gateway->connectToHost(QHostAddress::LocalHost, m_target);
        for (auto [from, to] : {std::pair(client, gateway), std::pair(gateway, client)}) {
            connect(from, &QTcpSocket::readyRead, to, [this, from = from, to = to] {
                const QByteArray bytes = from->readAll();
                seen += bytes;
                to->write(bytes);
            });
            connect(from, &QTcpSocket::disconnected, to, &QTcpSocket::disconnectFromHost);
        }
    }

private:
    quint16 m_target;
};

bool MakeCertificate(const QString& der, const QString& key)
{
    UA_String subject[] = {UA_STRING_STATIC("CN=velmora interop")};
    UA_String altNames[] = {UA_STRING_STATIC("URI:urn:open62541.server.application")};
    UA_ByteString outKey = UA_BYTESTRING_NULL, outCert = UA_BYTESTRING_NULL;
    UA_Logger* logger = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
    bool ok = UA_CreateCertificate(logger, subject, 1, altNames, 1, UA_CERTIFICATEFORMAT_DER, nullptr, &outKey,
                                   &outCert) == UA_STATUSCODE_GOOD;
    logger->clear(logger);
    QFile d(der), k(key);
    ok = ok && d.open(QIODevice::WriteOnly) && k.open(QIODevice::WriteOnly) &&
         d.write(reinterpret_cast<char*>(outCert.data), qint64(outCert.length)) == qint64(outCert.length) &&
         k.write(reinterpret_cast<char*>(outKey.data), qint64(outKey.length)) == qint64(outKey.length);
    UA_ByteString_clear(&outKey);
    UA_ByteString_clear(&outCert);
    return ok;
}

} // namespace

class TestInterop : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_config;
    const QString m_pki = QDir::homePath() + "/Documents/TARN/OPC UA/pki";

    // Runs the script until it ends or prints `until`, then kills it; its lines.
    QStringList node(QProcess& process, const QStringList& args, const QString& until = "done")
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("NODE_PATH", VELMORA_NODE_PATH);
        process.setProcessEnvironment(env);
        process.start(VELMORA_NODE_PROGRAM, QStringList{VELMORA_INTEROP_SCRIPT} + args);
        QString out;
        QElapsedTimer timer;
        timer.start();
        // Polled, not waited for: the relay runs in this thread's event loop.
        while (process.state() != QProcess::NotRunning && !out.contains(until) && timer.elapsed() < 90000) {
            QTest::qWait(20);
            out += QString::fromUtf8(process.readAllStandardOutput());
        }
        process.kill();
        process.waitForFinished();
        out += QString::fromUtf8(process.readAllStandardOutput());
        return out.split('\n', Qt::SkipEmptyParts);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_config = m_dir.filePath("interop.cfg");
        QVERIFY(CScrambler::WriteFile(m_config, QString::fromUtf8(kConfig)));
    }

    void nodeOpcuaRoundWithPasswordNeverReadable_data()
    {
        QTest::addColumn<bool>("ownCertificate");
        QTest::newRow("gateway without certificates") << false;
        QTest::newRow("gateway with certificates") << true;
    }
    void nodeOpcuaRoundWithPasswordNeverReadable()
    {
        QFETCH(bool, ownCertificate);
        GatewayProcess::Options options(m_config);
        if (ownCertificate) {
            // The pair the gateway made for itself on an earlier start serves as given files.
            options.certificate = m_pki + "/gateway_cert.der";
            options.privateKey = m_pki + "/gateway_key.der";
            options.trustFolder = m_dir.filePath("trust");
            QVERIFY(QDir().mkpath(options.trustFolder) && QFile::exists(options.certificate));
        }
        GatewayProcess gateway;
        QVERIFY2(gateway.start(options), qPrintable(gateway.output()));
        Relay relay(gateway.port());
        QProcess process;
        const QStringList out = node(process, {relay.url(), "оператор", QString::fromUtf8(kPassword)});
        const QString g = "Линия.Эмулятор.Быстрая.";
        const QStringList expected = {
            "servers urn:tarnopcua.server.application",
            "endpoints None/1,Basic256Sha256/2,Basic256Sha256/3",
            "session open",
            "tags " + g + "Const," + g + "Rand",
            "read " + g + "Const Good 3",
            "changes true",
            "call stopExchange Good",
            "call addNode Good",
            "call editNode Good",
            "call addNode BadNodeIdExists", // a channel named like the methods' object
            "call deleteNode Good",
            "call startExchange Good",
            "tags 2",
            "done"};
        QStringList got = out;
        got.removeIf([&](const QString& line) { return line.startsWith("read " + g + "Rand Good "); });
        QCOMPARE(got, expected);
        QVERIFY(gateway.output().contains("Сессия открыта: пользователь \"оператор\", None (None)"));
        QVERIFY(!relay.seen.isEmpty() && !relay.seen.contains(kPassword));
        QVERIFY(gateway.running());
    }

    // The program's own login and password over the None endpoint.
    void programPasswordNeverReadable()
    {
        GatewayProcess gateway;
        QVERIFY2(gateway.start({m_config}), qPrintable(gateway.output()));
        const QString trust = m_dir.filePath("client-trust");
        QVERIFY(QDir().mkpath(trust) && QFile::copy(m_pki + "/gateway_cert.der", trust + "/gateway.der"));
        QVERIFY(MakeCertificate(m_dir.filePath("client.der"), m_dir.filePath("client.key")));
        OPCUAWrapper::SetCertificateChooser([this, trust](const CertificatePaths&) {
            return CertificatePaths{m_dir.filePath("client.der"), m_dir.filePath("client.key"), trust};
        });
        Relay relay(gateway.port());
        OPCUAWrapper wrapper;
        int found = -1, connected = -1, disconnected = -1;
        // Blocking calls, while this thread's event loop runs the relay.
        const auto offThread = [](const std::function<void()>& call, const int& done) {
            std::thread worker(call);
            (void)QTest::qWaitFor([&] { return done != -1; }, 30000);
            worker.join();
        };
        offThread([&] { found = wrapper.findServers(relay.url()); }, found);
        offThread([&] { connected = wrapper.connectToServer(relay.url(), kNone, true, 2, "оператор", QString::fromUtf8(kPassword)); }, connected);
        OPCUAWrapper::SetCertificateChooser(nullptr);
        QCOMPARE(found, 0);
        QCOMPARE(connected, 0);
        QVERIFY2(wrapper.vecNodes.contains("ns=2;s=Линия.Эмулятор.Быстрая.Rand"), qPrintable(wrapper.vecNodes.join(' ')));
        offThread([&] { disconnected = wrapper.disconnectToServer(); }, disconnected);
        QCOMPARE(disconnected, 0);
        QVERIFY(!relay.seen.contains(kPassword));
    }

    void killedClientLeavesOthersServed()
    {
        GatewayProcess gateway;
        QVERIFY2(gateway.start({m_config}), qPrintable(gateway.output()));
        QProcess held;
        const QStringList out = node(held, {gateway.url(), "hold"}, "holding");
        QVERIFY2(!out.filter("holding").isEmpty(), qPrintable(out.join("\n")));
        QVERIFY(gateway.output().contains("Сессия открыта: анонимно"));
        QVERIFY(!gateway.output().contains("Сессия закрыта"));

        UA_ClientConfig config{};
        config.logging = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
        UA_ClientConfig_setDefault(&config);
        UA_Client* other = UA_Client_newWithConfig(&config);
        QCOMPARE(UA_Client_connect(other, gateway.url().toUtf8().constData()), UA_STATUSCODE_GOOD);
        UA_Variant value;
        UA_Variant_init(&value);
        const QByteArray id = QString("Линия.Эмулятор.Быстрая.Const").toUtf8();
        QCOMPARE(UA_Client_readValueAttribute(other, UA_NODEID_STRING(2, const_cast<char*>(id.constData())), &value),
                 UA_STATUSCODE_GOOD);
        QCOMPARE(*static_cast<UA_Float*>(value.data), 3.0f);
        UA_Variant_clear(&value);
        UA_Client_delete(other);
        // The session of the killed client ends with its timeout, its subscription with it.
        QTRY_VERIFY_WITH_TIMEOUT(gateway.output().count("Сессия закрыта") == 2, 20000);
        QVERIFY(gateway.running());
    }
};

QTEST_GUILESS_MAIN(TestInterop)
#include "tst_interop.moc"
