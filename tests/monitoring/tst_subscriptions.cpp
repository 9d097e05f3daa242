#include "examplegateway.h"
#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"

#include <open62541/client_highlevel.h>
#include <open62541/server.h>
#include <open62541/server_config_default.h>

#include <QElapsedTimer>
#include <QMutex>
#include <QtTest>

#include <atomic>

namespace {

const char kNone[] = "http://opcfoundation.org/UA/SecurityPolicy#None (None)";

QMutex g_logMutex;
QStringList g_log;

void captureLog(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    QMutexLocker lock(&g_logMutex);
    g_log << QString(type == QtWarningMsg ? "W " : "I ") + text;
}

QStringList takeLog()
{
    QMutexLocker lock(&g_logMutex);
    return std::exchange(g_log, {});
}

UA_Logger g_quiet = {nullptr, nullptr, nullptr};

// Collects the values on the test's thread, the way the main window receives them.
struct Values : QObject
{
    explicit Values(OPCUAWrapper* wrapper)
    {
        connect(
            wrapper, &OPCUAWrapper::signalDataChange, this, [this](QVariantList v) { lists << v; },
            Qt::QueuedConnection);
    }
    // The last value list that carried this full name.
    QVariantList last(const QString& name) const
    {
        for (auto it = lists.crbegin(); it != lists.crend(); ++it)
            if (it->size() == 5 && it->at(3).toString() == name)
                return *it;
        return {};
    }
    QList<QVariantList> lists;
};

// A server of our own, for value types and statuses the gateway never sends.
class TypedServer
{
public:
    TypedServer()
    {
        m_port = GatewayProcess::freePort();
        UA_ServerConfig config{};
        config.logging = &g_quiet;
        UA_ServerConfig_setMinimal(&config, m_port, nullptr);
        m_server = UA_Server_newWithConfig(&config);
        UA_Server_addNamespace(m_server, "urn:velmora:test");
    }
    ~TypedServer()
    {
        m_running = false;
        if (m_loop.joinable())
            m_loop.join();
        UA_Server_run_shutdown(m_server);
        UA_Server_delete(m_server);
    }
    template <typename T> void add(const char* name, T value, const UA_DataType* type)
    {
        UA_VariableAttributes attr = UA_VariableAttributes_default;
        UA_Variant_setScalarCopy(&attr.value, &value, type);
        UA_Server_addVariableNode(
            m_server, UA_NODEID_STRING(2, const_cast<char*>(name)), UA_NODEID_NUMERIC(0, 85),
            UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES), UA_QUALIFIEDNAME(2, const_cast<char*>(name)),
            UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE), attr, nullptr, nullptr);
        UA_VariableAttributes_clear(&attr);
    }
    // A tag whose value carries `status`, with a value or without one.
    void addStatus(const char* name, UA_StatusCode status, bool withValue)
    {
        add(name, UA_Int16(42), &UA_TYPES[UA_TYPES_INT16]);
        UA_DataValue value;
        UA_DataValue_init(&value);
        const UA_Int16 v = 42;
        if (withValue) {
            UA_Variant_setScalarCopy(&value.value, &v, &UA_TYPES[UA_TYPES_INT16]);
            value.hasValue = true;
        }
        value.hasStatus = true;
        value.status = status;
        UA_Server_writeDataValue(m_server, UA_NODEID_STRING(2, const_cast<char*>(name)), value);
        UA_DataValue_clear(&value);
    }
    void start()
    {
        UA_Server_run_startup(m_server);
        m_loop = std::thread([this] {
            while (m_running)
                UA_Server_run_iterate(m_server, true);
        });
    }
    QString url() const { return QString("opc.tcp://127.0.0.1:%1").arg(m_port); }

private:
    UA_Server* m_server = nullptr;
    quint16 m_port = 0;
    std::atomic<bool> m_running{true};
    std::thread m_loop;
};

} // namespace

// The wrapper's subscriptions: what a value looks like when it reaches the
// program, and calls made while the client loop runs on its own thread.
class SubscriptionsTest : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        qInstallMessageHandler(captureLog);
        m_example = writeEmulatedExample(m_dir.path());
        QVERIFY(!m_example.isEmpty());
    }
    void valuesKeepTheirTypeAndStatus();
    void refusedItemsAndFailedDeletion();
    void callsGetThroughWhileTheLoopRuns();

private:
    QTemporaryDir m_dir;
    QString m_example;
};

void SubscriptionsTest::valuesKeepTheirTypeAndStatus()
{
    TypedServer server;
    server.add("C.D.G.b", UA_Boolean(true), &UA_TYPES[UA_TYPES_BOOLEAN]);
    server.add("C.D.G.sb", UA_SByte(-5), &UA_TYPES[UA_TYPES_SBYTE]);
    server.add("C.D.G.by", UA_Byte(200), &UA_TYPES[UA_TYPES_BYTE]);
    server.add("C.D.G.i16", UA_Int16(-300), &UA_TYPES[UA_TYPES_INT16]);
    server.add("C.D.G.u16", UA_UInt16(60000), &UA_TYPES[UA_TYPES_UINT16]);
    server.add("C.D.G.i32", UA_Int32(-70000), &UA_TYPES[UA_TYPES_INT32]);
    server.add("C.D.G.u32", UA_UInt32(4000000000u), &UA_TYPES[UA_TYPES_UINT32]);
    server.add("C.D.G.i64", UA_Int64(-5000000000000), &UA_TYPES[UA_TYPES_INT64]);
    server.add("C.D.G.u64", UA_UInt64(10000000000000000000u), &UA_TYPES[UA_TYPES_UINT64]);
    server.add("C.D.G.f", UA_Float(1.5f), &UA_TYPES[UA_TYPES_FLOAT]);
    server.add("C.D.G.d", UA_Double(2.25), &UA_TYPES[UA_TYPES_DOUBLE]);
    UA_String text = UA_STRING_STATIC("текст");
    server.add("C.D.G.s", text, &UA_TYPES[UA_TYPES_STRING]);
    server.addStatus("C.D.H.bad", UA_STATUSCODE_BADNOCOMMUNICATION, false);
    server.addStatus("C.D.H.uncertain", UA_STATUSCODE_UNCERTAINLASTUSABLEVALUE, true);
    server.start();

    OPCUAWrapper* wrapper = OPCUAWrapper::GetInstance();
    QCOMPARE(wrapper->findServers(server.url()), 0);
    QCOMPARE(wrapper->connectToServer(server.url(), kNone, false, 0, "", ""), 0);
    Values values(wrapper);

    const QList<QString> typed = {"C.D.G.b",   "C.D.G.sb",  "C.D.G.by",  "C.D.G.i16",
                                  "C.D.G.u16", "C.D.G.i32", "C.D.G.u32", "C.D.G.i64",
                                  "C.D.G.u64", "C.D.G.f",   "C.D.G.d",   "C.D.G.s"};
    const QList<QString> statuses = {"C.D.H.bad", "C.D.H.uncertain"};
    QMap<int, QList<QString>> nodes;
    takeLog();
    // The empty group makes no subscription.
    const int rc = wrapper->subscriptionTag({typed, {}, statuses}, 50, nodes);
    QVERIFY2(rc == 0, qPrintable(takeLog().join("\n")));
    QCOMPARE(nodes.size(), 2);
    QCOMPARE(nodes.values(), (QList<QList<QString>>{typed, statuses}));
    QCOMPARE(nodes, wrapper->mapNodes);
    QCOMPARE(int(wrapper->subscriptionId), nodes.lastKey());

    wrapper->setStatusIterate(true);
    std::thread loop = wrapper->runIterate();
    QTRY_VERIFY(!values.last("C.D.H.uncertain").isEmpty());
    QTRY_VERIFY(!values.last("C.D.G.d").isEmpty());

    struct Expected
    {
        const char* name;
        QVariant value;
    };
    const Expected expected[] = {
        {"C.D.G.b", QVariant(true)},
        {"C.D.G.sb", QVariant(-5)},
        {"C.D.G.by", QVariant(200)},
        {"C.D.G.i16", QVariant(-300)},
        {"C.D.G.u16", QVariant(60000)},
        {"C.D.G.i32", QVariant(-70000)},
        {"C.D.G.u32", QVariant(4000000000u)},
        {"C.D.G.i64", QVariant::fromValue(long(-5000000000000))},
        {"C.D.G.u64", QVariant::fromValue(10000000000000000000ul)},
        {"C.D.G.f", QVariant(1.5f)},
        {"C.D.G.d", QVariant(2.25)},
    };
    const int typedId = nodes.firstKey();
    for (const Expected& e : expected) {
        const QVariantList v = values.last(e.name);
        QVERIFY2(v.size() == 5, e.name);
        QCOMPARE(v.at(1).metaType(), e.value.metaType());
        QCOMPARE(v.at(1), e.value);
        QCOMPARE(v.at(0).metaType(), QMetaType::fromType<uint>());
        QCOMPARE(v.at(0).toInt(), typed.indexOf(e.name) + 1);
        QCOMPARE(v.at(2), QVariant(QString("Good")));
        QCOMPARE(v.at(4), QVariant(uint(typedId)));
    }
    // A text tag never reaches the table; it is only logged.
    QVERIFY(values.last("C.D.G.s").isEmpty());
    QVERIFY(takeLog().contains("W Поступил неизвестный тип ноды"));
    // A status with a value passes unchanged; one without gives the short form.
    QCOMPARE(values.last("C.D.H.uncertain").at(2).toString(), QString("UncertainLastUsableValue"));
    QCOMPARE(values.last("C.D.H.uncertain").at(1), QVariant(42));
    bool shortForm = false;
    for (const QVariantList& v : values.lists)
        shortForm = shortForm || v == QVariantList{QString("BadNoCommunication")};
    QVERIFY(shortForm);

    wrapper->setStatusIterate(false);
    loop.join();
    // Only the subscription created last goes; the map goes with it, so the
    // other one's values find no names any more.
    QCOMPARE(wrapper->deleteSubscriptionTag(), 0);
    QVERIFY(wrapper->mapNodes.isEmpty());
    values.lists.clear();
    wrapper->setStatusIterate(true);
    loop = wrapper->runIterate();
    QTest::qWait(300);
    wrapper->setStatusIterate(false);
    loop.join();
    QCOMPARE(values.lists.size(), 0);
    QCOMPARE(wrapper->disconnectToServer(), 0);
}

void SubscriptionsTest::refusedItemsAndFailedDeletion()
{
    GatewayProcess gateway;
    QVERIFY2(gateway.start(GatewayProcess::Options(m_example)), qPrintable(gateway.output()));
    OPCUAWrapper* wrapper = OPCUAWrapper::GetInstance();
    QCOMPARE(wrapper->findServers(gateway.url()), 0);
    QCOMPARE(wrapper->connectToServer(gateway.url(), kNone, false, 0, "", ""), 0);

    const QList<QString> good = {"Channel_0.Device_0.Group_0.Tag_0"};
    const QList<QString> bad = {"Channel_0.Device_0.Group_0.Tag_1", "Channel_0.Device_0.Group_0.Нет"};
    QMap<int, QList<QString>> nodes;
    takeLog();
    QCOMPARE(wrapper->subscriptionTag({good, bad}, 100, nodes), 2);
    QVERIFY(nodes.isEmpty()); // nothing handed over on failure
    const QStringList log = takeLog();
    QVERIFY(log.contains("W Ошибка мониторинга ноды Channel_0.Device_0.Group_0.Нет: BadNodeIdUnknown"));
    QCOMPARE(log.last(), QString("W Операция создания подписки прервана, возникли ошибки мониторинга"));
    QCOMPARE(wrapper->mapNodes.size(), 2); // both stay, the refused item's group too

    // A deletion the server refuses keeps the names, so values still find them.
    const UA_UInt32 last = wrapper->subscriptionId;
    wrapper->subscriptionId = last + 1000;
    QCOMPARE(wrapper->deleteSubscriptionTag(), 1);
    QVERIFY(takeLog().last().startsWith("W Не удалось создать запрос на отмену подписки. Код ошибки Bad"));
    QCOMPARE(wrapper->mapNodes.size(), 2);
    wrapper->subscriptionId = last;
    QCOMPARE(wrapper->deleteSubscriptionTag(), 0);
    QCOMPARE(wrapper->disconnectToServer(), 0);

    // A client that has no session refuses at once.
    QCOMPARE(wrapper->subscriptionTag({good}, 100, nodes), 1);
    QVERIFY(takeLog().last().startsWith("W Не удалось создать запрос на подписку. Код ошибки Bad"));
}

void SubscriptionsTest::callsGetThroughWhileTheLoopRuns()
{
    GatewayProcess gateway;
    QVERIFY2(gateway.start(GatewayProcess::Options(m_example)), qPrintable(gateway.output()));
    OPCUAWrapper* wrapper = OPCUAWrapper::GetInstance();
    QCOMPARE(wrapper->findServers(gateway.url()), 0);
    QCOMPARE(wrapper->connectToServer(gateway.url(), kNone, false, 0, "", ""), 0);
    Values values(wrapper);
    const QList<QString> tags = {"Channel_0.Device_0.Group_0.Tag_0", "Channel_0.Device_0.Group_0.Tag_1",
                                 "Channel_0.Device_0.Group_0.Tag_2"};
    QMap<int, QList<QString>> nodes;
    QCOMPARE(wrapper->subscriptionTag({tags}, 10, nodes), 0);
    wrapper->setStatusIterate(true);
    std::thread loop = wrapper->runIterate();
    QTRY_VERIFY(values.lists.size() > 5);

    // Each call waits at most for one pass of the loop, never for many.
    qint64 slowest = 0;
    for (int i = 0; i < 20; ++i) {
        QElapsedTimer timer;
        timer.start();
        wrapper->exchangeRunning = true;
        QVERIFY(wrapper->callMethodStartStopExchange());
        QVERIFY(wrapper->callMethodStartStopExchange());
        slowest = std::max(slowest, timer.elapsed());
    }
    QVERIFY2(slowest < 500, qPrintable(QString::number(slowest)));
    QVERIFY(wrapper->callDeleteNode({"Channel_1"}));
    QTRY_VERIFY(gateway.output().contains("Вызов метода deleteNode: Channel_1"));
    // Values go on arriving after the calls.
    const qsizetype before = values.lists.size();
    QTRY_VERIFY(values.lists.size() > before + 5);

    // The gateway goes away under the running loop: calls fail, nothing hangs.
    gateway.stop();
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!wrapper->callDeleteNode({"Channel_0"}));
    wrapper->setStatusIterate(false);
    loop.join();
    QCOMPARE(wrapper->deleteSubscriptionTag(), 1);
    QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(wrapper->mapNodes.size(), 1);
}

QTEST_GUILESS_MAIN(SubscriptionsTest)
#include "tst_subscriptions.moc"
