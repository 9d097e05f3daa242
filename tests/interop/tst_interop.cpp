#include "gatewayprocess.h"

#include "config/scrambler.h"
#include "opcua/opcuawrapper.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QtEndian>
#include <QtTest>

#include <atomic>
#include <functional>
#include <memory>
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
const QString kSecure = "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256 (SignAndEncrypt)";

// Passes bytes between clients and the gateway and keeps all that went by. Set
// to, it puts another certificate in the place of the gateway's in the plain
// messages of the None endpoint, as a man in the middle would.
class Relay : public QTcpServer
{
public:
    explicit Relay(quint16 target) : m_target(target) { listen(QHostAddress::LocalHost); }
    QString url() const { return QStringLiteral("opc.tcp://127.0.0.1:%1").arg(serverPort()); }
    void swap(const QByteArray& from, const QByteArray& to)
    {
        m_from = length(from) + from;
        m_to = length(to) + to;
    }
    QByteArray seen, toGateway;
    int swapped = 0;

protected:
    void incomingConnection(qintptr descriptor) override
    {
        auto* client = new QTcpSocket(this);
        auto* gateway = new QTcpSocket(this);
        client->setSocketDescriptor(descriptor);
        gateway->connectToHost(QHostAddress::LocalHost, m_target);
        connect(client, &QTcpSocket::readyRead, gateway, [this, client, gateway] {
            const QByteArray bytes = client->readAll();
            seen += bytes;
            toGateway += bytes;
            gateway->write(bytes);
        });
        auto pending = std::make_shared<QByteArray>();
        connect(gateway, &QTcpSocket::readyRead, client, [this, client, gateway, pending] {
            const QByteArray bytes = gateway->readAll();
            seen += bytes;
            if (m_from.isEmpty())
                return void(client->write(bytes));
            // Whole chunks only: a chunk's size is in bytes 4 to 7 of its header.
            *pending += bytes;
            while (pending->size() >= 8) {
                const qsizetype size = qFromLittleEndian<quint32>(pending->constData() + 4);
                if (pending->size() < size)
                    break;
                QByteArray chunk = pending->left(size);
                pending->remove(0, size);
                if (chunk.contains(m_from)) {
                    chunk.replace(m_from, m_to);
                    qToLittleEndian<quint32>(quint32(chunk.size()), chunk.data() + 4);
                    ++swapped;
                }
                client->write(chunk);
            }
        });
        connect(client, &QTcpSocket::disconnected, gateway, &QTcpSocket::disconnectFromHost);
        connect(gateway, &QTcpSocket::disconnected, client, &QTcpSocket::disconnectFromHost);
    }

private:
    static QByteArray length(const QByteArray& bytes)
    {
        QByteArray prefix(4, '\0');
        qToLittleEndian<quint32>(quint32(bytes.size()), prefix.data());
        return prefix;
    }

    quint16 m_target;
    QByteArray m_from, m_to;
};

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
        QStringList said;
        for (const QString& line : out.split('\n'))
            if (line.startsWith("= "))
                said << line.mid(2);
        return said;
    }

    // A blocking call on a worker, while this thread's event loop runs the relay.
    static int offThread(const std::function<int()>& call)
    {
        std::atomic<int> result{-1};
        std::thread worker([&] { result = call(); });
        (void)QTest::qWaitFor([&] { return result != -1; }, 60000);
        worker.join();
        return result;
    }

private slots:
    void initTestCase()
    {
        m_config = m_dir.filePath("interop.cfg");
        QVERIFY(CScrambler::WriteFile(m_config, QString::fromUtf8(kConfig)));
        GatewayProcess first; // makes the gateway's own certificate in this HOME, if not there yet
        QVERIFY2(first.start({m_config}) && QFile::exists(m_pki + "/gateway_cert.der"),
                 qPrintable(first.output()));
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
            // The pair the gateway made for itself serves as given files.
            options.certificate = m_pki + "/gateway_cert.der";
            options.privateKey = m_pki + "/gateway_key.der";
            options.trustFolder = m_dir.filePath("trust");
            QVERIFY(QDir().mkpath(options.trustFolder));
        }
        GatewayProcess gateway;
        QVERIFY2(gateway.start(options), qPrintable(gateway.output()));
        Relay relay(gateway.port());
        QProcess process;
        const QStringList out = node(process, {relay.url(), "оператор", QString::fromUtf8(kPassword)});
        const QString g = "Линия.Эмулятор.Быстрая.";
        // The second addNode names a channel like the methods' object.
        const QStringList expected =
            QString(
                "servers urn:tarnopcua.server.application|endpoints None/1,Basic256Sha256/2,Basic256Sha256/3|"
                "tags %1Const,%1Rand|read %1Const Good 3|manage BadUserAccessDenied BadUserAccessDenied "
                "BadUserAccessDenied BadUserAccessDenied|call editNode Good|read %1Const Good 3|unchanged "
                "true|"
                "changes true|call stopExchange Good|"
                "call addNode Good|call editNode Good|call addNode BadNodeIdExists|call deleteNode Good|"
                "call startExchange Good|tags 2|done")
                .arg(g)
                .split('|');
        QStringList got = out;
        got.removeIf([&](const QString& line) { return line.startsWith("read " + g + "Rand Good "); });
        QVERIFY2(got == expected, qPrintable(got.join("\n")));
        QTRY_VERIFY_WITH_TIMEOUT(
            gateway.output().contains("Сессия открыта: пользователь \"оператор\", None (None)"), 10000);
        QVERIFY(!relay.seen.isEmpty() && !relay.seen.contains(kPassword));
    }

    // The program's own login and password over the None endpoint.
    void programPasswordNeverReadable()
    {
        GatewayProcess gateway;
        QVERIFY2(gateway.start({m_config}), qPrintable(gateway.output()));
        // The client shows the gateway's own pair: trusted by the client, unknown to the gateway's folder.
        const QString trust = m_dir.filePath("client-trust");
        QVERIFY(QDir().mkpath(trust) && QFile::copy(m_pki + "/gateway_cert.der", trust + "/gateway.der"));
        OPCUAWrapper::SetCertificateChooser([this, trust](const CertificatePaths&) {
            return CertificatePaths{m_pki + "/gateway_cert.der", m_pki + "/gateway_key.der", trust};
        });
        Relay relay(gateway.port());
        OPCUAWrapper wrapper;
        QCOMPARE(offThread([&] { return wrapper.findServers(relay.url()); }), 0);
        QCOMPARE(offThread([&] {
                     return wrapper.connectToServer(relay.url(), kNone, true, 2, "оператор",
                                                    QString::fromUtf8(kPassword));
                 }),
                 0);
        QVERIFY(wrapper.vecNodes.contains("ns=2;s=Линия.Эмулятор.Быстрая.Rand"));
        QCOMPARE(offThread([&] { return wrapper.disconnectToServer(); }), 0);
        QVERIFY(!relay.seen.contains(kPassword));

        // A relay that shows a certificate of its own in the gateway's place gets
        // no login: the client refuses the certificate its trust folder lacks
        // before a session is asked for, on either endpoint.
        const QString fake = m_dir.filePath("fake.der");
        QVERIFY(GatewayProcess::makeCertificate("urn:tarnopcua.server.application", fake,
                                                m_dir.filePath("fake.key")));
        Relay thief(gateway.port());
        QFile real(m_pki + "/gateway_cert.der"), forged(fake);
        QVERIFY(real.open(QIODevice::ReadOnly) && forged.open(QIODevice::ReadOnly));
        thief.swap(real.readAll(), forged.readAll());
        for (const QString& endpoint : {kNone, kSecure}) {
            QSignalSpy said(&wrapper, &OPCUAWrapper::signalSetLogDlgSearchDevice);
            QCOMPARE(offThread([&] { return wrapper.findServers(thief.url()); }), 0);
            QCOMPARE(offThread([&] {
                         return wrapper.connectToServer(thief.url(), endpoint, true, 2, "оператор",
                                                        QString::fromUtf8(kPassword));
                     }),
                     1);
            QVERIFY2(
                said.last().first().toString().startsWith("Сертификат сервера не найден среди доверенных"),
                qPrintable(said.last().first().toString()));
        }
        // Swapped in every answer that carried it, and not one session asked for
        // (an ActivateSession request is typed 01 00 D3 01 on the wire).
        QVERIFY(thief.swapped >= 2);
        QVERIFY(!thief.toGateway.contains(QByteArray::fromHex("0100d301")));
        QVERIFY(!gateway.output().contains("Сессия отклонена"));

        // Any client may open an encrypted channel, but a certificate login needs the trust folder.
        QCOMPARE(wrapper.findServers(gateway.url()), 0);
        QCOMPARE(wrapper.connectToServer(gateway.url(), kNone, false, 3, "", ""), 1);
        QCOMPARE(wrapper.findServers(gateway.url()), 0);
        QCOMPARE(wrapper.connectToServer(gateway.url(), kSecure, false, 3, "", ""), 1);
        QCOMPARE(wrapper.findServers(gateway.url()), 0);
        QTRY_VERIFY_WITH_TIMEOUT(
            gateway.output().contains("Сессия отклонена: сертификат пользователя, Basic256Sha256"), 10000);
        QCOMPARE(wrapper.connectToServer(gateway.url(), kSecure, false, 1, "", ""), 0);
        QCOMPARE(wrapper.disconnectToServer(), 0);
        OPCUAWrapper::SetCertificateChooser(nullptr);
    }

    // Monitoring started and stopped ten times leaves no subscription behind
    // on the gateway, as the gateway itself counts them.
    void monitoringCyclesLeaveNoSubscriptions()
    {
        GatewayProcess gateway;
        QVERIFY2(gateway.start({m_config}), qPrintable(gateway.output()));
        OPCUAWrapper wrapper;
        QCOMPARE(wrapper.findServers(gateway.url()), 0);
        QCOMPARE(wrapper.connectToServer(gateway.url(), kNone, true, 0, "", ""), 0);
        const auto subscriptions = [this, &gateway] {
            QProcess count;
            return node(count, {gateway.url(), "count"}, "subscriptions").filter("subscriptions ");
        };
        // Three groups, as the program subscribes every group of its tree.
        const QList<QString> group = {"Линия.Эмулятор.Быстрая.Const", "Линия.Эмулятор.Быстрая.Rand"};
        for (int cycle = 0; cycle < 10; ++cycle) {
            QMap<int, QList<QString>> rows;
            QCOMPARE(wrapper.subscriptionTag({group, group, group}, 100, rows), 0);
            if (cycle == 0)
                QCOMPARE(subscriptions(), QStringList{"subscriptions 3"});
            QCOMPARE(wrapper.deleteSubscriptionTag(), 0);
        }
        QCOMPARE(subscriptions(), QStringList{"subscriptions 0"});
        QCOMPARE(wrapper.disconnectToServer(), 0);
    }

    // node-opcua reads the statistics of a polled device: the gateway counted as
    // many requests as the simulator answered. They follow a rename and a
    // deletion of the device, and nobody can write them.
    void diagnosticsCountWhatTheDeviceAnswered()
    {
        const quint16 port = GatewayProcess::freePort();
        QProcess sim;
        sim.setProcessChannelMode(QProcess::MergedChannels);
        sim.start("/usr/bin/python3", {VELMORA_MODBUS_SIM, "--tcp", QString::number(port)});
        QString said;
        const auto simRequests = [&] {
            said += QString::fromUtf8(sim.readAll());
            const int at = said.lastIndexOf("requests ");
            return at < 0 ? -1 : said.mid(at + 9).section('\n', 0, 0).toInt();
        };
        QVERIFY(QTest::qWaitFor([&] { return simRequests() >= 0 && said.contains("ready"); }, 20000));
        const QString device = "DEVICE;1;2;3;4;5;6;7\n;%1;%2;%3;125;2000;0;Да\nGROUP;1;2;3\n;Г;100;мс\n"
                               "TAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n"
                               ";t;Входной регистр;1;0;0;Да;;;Цел16;AB;Нет;;;;;Константа;0\n";
        const QString config = QString("CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n"
                                       ";Стенд;TCP-соединение;MODBUS TCP;500;3;0;127.0.0.1;%1;2000\n")
                                   .arg(port) +
                               device.arg("Котёл").arg(1).arg("Нет") +
                               device.arg("Имитатор").arg(2).arg("Да");
        const QString path = m_dir.filePath("diagnostics.cfg");
        QVERIFY(CScrambler::WriteFile(path, config));
        GatewayProcess gateway;
        QVERIFY2(gateway.start({path}), qPrintable(gateway.output()));
        QTRY_VERIFY_WITH_TIMEOUT(simRequests() >= 5, 10000);

        QProcess process;
        QStringList out = node(process, {gateway.url(), "diagnostics", "Стенд.Котёл", "Стенд.Имитатор"});
        const QString requests = out.filter("device Requests UInt64 ").value(0).section(' ', 3);
        QVERIFY2(requests.toInt() >= 5, qPrintable(out.join('\n')));
        // The exchange stays stopped: the simulator's count is final.
        QTRY_COMPARE(QString::number(simRequests()), requests);
        const QString mean = out.filter("device MeanResponseMs Double ").value(0);
        QVERIFY2(mean.section(' ', 3).toDouble() > 0, qPrintable(mean));
        out.removeAll(mean);
        const QStringList expected =
            QString("diagnostics Стенд,Стенд/Имитатор,Стенд/Котёл|"
                    "state String polled String emulated String connected|call stopExchange Good|"
                    "device State String stopped|device Requests UInt64 %1|device Answers UInt64 %1|"
                    "device Timeouts UInt64 0|device Exceptions UInt64 0|device LastError String |"
                    "device LastErrorTime DateTime 1601|channel Requests UInt64 %1|write BadNotWritable|"
                    "call editNode Good|diagnostics Стенд,Стенд/Имитатор,Стенд/Котёл2|call deleteNode Good|"
                    "diagnostics Стенд,Стенд/Имитатор|done")
                .arg(requests)
                .split('|');
        QVERIFY2(out == expected, qPrintable(out.join('\n')));
        QCOMPARE(gateway.stop(), 0);
        sim.kill();
        sim.waitForFinished();
    }

    void killedClientLeavesOthersServed()
    {
        GatewayProcess gateway;
        QVERIFY2(gateway.start({m_config}), qPrintable(gateway.output()));
        QProcess held;
        const QStringList out = node(held, {gateway.url(), "hold"}, "holding"); // then killed -9
        QVERIFY2(!out.filter("holding").isEmpty(), qPrintable(out.join("\n")));
        QVERIFY(!gateway.output().contains("Сессия закрыта"));

        QProcess other; // served meanwhile
        QVERIFY(node(other, {gateway.url()}).contains("done"));
        // The session of the killed client ends with its timeout, its subscription with it.
        QTRY_VERIFY_WITH_TIMEOUT(gateway.output().count("Сессия закрыта") == 2, 20000);
        QVERIFY(gateway.running());

        // Sessions made and never activated fill the gateway's table, but each is
        // closed after five seconds: a new client is kept out for no longer.
        QProcess flood, newcomer;
        const QStringList flooded = node(flood, {gateway.url(), "flood"}, "flooded");
        QVERIFY2(flooded.filter("flooded").value(0).section(' ', 1).toInt() >= 90,
                 qPrintable(flooded.join('\n')));
        const QStringList in = node(newcomer, {gateway.url(), "probe"}, "in ").filter("in ");
        QVERIFY2(!in.isEmpty() && in.first().section(' ', 1).toInt() < 15000, qPrintable(in.join('\n')));
        std::fprintf(stderr, "a new client got in %s ms after the flood\n",
                     qPrintable(in.value(0).section(' ', 1)));
        QVERIFY(gateway.output().contains("Сессия закрыта: вход не выполнен за 5 с"));
    }
};

QTEST_GUILESS_MAIN(TestInterop)
#include "tst_interop.moc"
