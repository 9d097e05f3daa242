#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"

#include <open62541/server.h>
#include <open62541/server_config_default.h>

#include <QMutex>
#include <QtTest>

#include <atomic>

namespace {

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

// A server of the test's own, for value types and statuses the gateway never sends.
struct TypedServer
{
    TypedServer() : port(GatewayProcess::freePort())
    {
        UA_ServerConfig config{};
        config.logging = &g_quiet;
        UA_ServerConfig_setMinimal(&config, port, nullptr);
        server = UA_Server_newWithConfig(&config);
        UA_Server_addNamespace(server, "urn:velmora:test");
    }
    ~TypedServer()
    {
        running = false;
        loop.join();
        UA_Server_run_shutdown(server);
        UA_Server_delete(server);
    }
    // A variable of ns=2 whose value is `v` of `type`, with `status`; a bad status comes without the value.
    template <typename T> void add(const char* name, T v, const UA_DataType* type, UA_StatusCode status = 0)
    {
        UA_VariableAttributes attr = UA_VariableAttributes_default;
        UA_Variant_setScalarCopy(&attr.value, &v, type);
        const UA_NodeId id = UA_NODEID_STRING(2, const_cast<char*>(name));
        UA_Server_addVariableNode(
            server, id, UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER),
            UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES), UA_QUALIFIEDNAME(2, const_cast<char*>(name)),
            UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE), attr, nullptr, nullptr);
        UA_DataValue value{};
        value.hasValue = !UA_StatusCode_isBad(status);
        if (value.hasValue)
            value.value = attr.value;
        value.hasStatus = true;
        value.status = status;
        UA_Server_writeDataValue(server, id, value);
        UA_VariableAttributes_clear(&attr);
    }
    void start()
    {
        // Small limits, so that browsing has to split its requests and follow continuation points.
        UA_Server_getConfig(server)->maxNodesPerBrowse = 3;
        UA_Server_getConfig(server)->maxReferencesPerNode = 4;
        UA_Server_run_startup(server);
        loop = std::thread([this] {
            while (running)
                UA_Server_run_iterate(server, true);
        });
    }
    QString url() const { return QString("opc.tcp://127.0.0.1:%1").arg(port); }

    quint16 port;
    UA_Server* server;
    std::atomic<bool> running{true};
    std::thread loop;
};

} // namespace

// The wrapper's subscriptions against a server of the test's own (another
// application, whose endpoints are not offered): what a value looks like when
// it reaches the program, refused items, and the deletion of the last subscription.
class SubscriptionsTest : public QObject
{
    Q_OBJECT
private slots:
    void valuesRefusalsAndDeletion();
};

void SubscriptionsTest::valuesRefusalsAndDeletion()
{
    qInstallMessageHandler(captureLog);
    TypedServer s;
    s.add("G.b", UA_Boolean(true), &UA_TYPES[UA_TYPES_BOOLEAN]);
    s.add("G.u16", UA_UInt16(60000), &UA_TYPES[UA_TYPES_UINT16]);
    s.add("G.u32", UA_UInt32(4000000000u), &UA_TYPES[UA_TYPES_UINT32]);
    s.add("G.i64", UA_Int64(-5000000000000), &UA_TYPES[UA_TYPES_INT64]);
    s.add("G.u64", UA_UInt64(10000000000000000000u), &UA_TYPES[UA_TYPES_UINT64]);
    s.add("G.f", UA_Float(1.5f), &UA_TYPES[UA_TYPES_FLOAT]);
    s.add("G.d", UA_Double(2.25), &UA_TYPES[UA_TYPES_DOUBLE]);
    s.add("G.s", UA_String(UA_STRING_STATIC("текст")), &UA_TYPES[UA_TYPES_STRING]);
    s.add("H.bad", UA_Int16(1), &UA_TYPES[UA_TYPES_INT16], UA_STATUSCODE_BADNOCOMMUNICATION);
    s.add("H.uncertain", UA_Int16(42), &UA_TYPES[UA_TYPES_INT16], UA_STATUSCODE_UNCERTAINLASTUSABLEVALUE);
    s.start();

    OPCUAWrapper* wrapper = OPCUAWrapper::GetInstance();
    QCOMPARE(wrapper->findServers(s.url()), 0);
    takeLog();
    QCOMPARE(wrapper->getEndpoints(s.url()), 1);
    QCOMPARE(takeLog().last(), QString("W Не удалось найти конечные точки на сервере."));
    QCOMPARE(wrapper->connectToServer(s.url(), "http://opcfoundation.org/UA/SecurityPolicy#None (None)",
                                      false, 0, "", ""),
             0);
    // Browsing within the server's limits still finds every node once.
    wrapper->browseNodes(wrapper->client, "i=85");
    QStringList found = wrapper->getVecNodes();
    found.sort();
    QCOMPARE(found.join(' '), QString("ns=2;s=G.b ns=2;s=G.d ns=2;s=G.f ns=2;s=G.i64 ns=2;s=G.s ns=2;s=G.u16 "
                                      "ns=2;s=G.u32 ns=2;s=G.u64 ns=2;s=H.bad ns=2;s=H.uncertain"));

    QMap<QString, QVariantList> latest; // by tag name
    QList<QVariantList> bare;
    QObject receiver;
    connect(
        wrapper, &OPCUAWrapper::signalDataChange, &receiver,
        [&](QVariantList v) { v.size() == 5 ? void(latest[v[3].toString()] = v) : bare.append(v); },
        Qt::QueuedConnection);

    const QList<QString> typed = {"G.b", "G.u16", "G.u32", "G.i64", "G.u64", "G.f", "G.d", "G.s"};
    QMap<int, QList<QString>> nodes;
    takeLog();
    // The empty group makes no subscription.
    QCOMPARE(wrapper->subscriptionTag({typed, {}, {"H.bad", "H.uncertain"}}, 50, nodes), 0);
    QCOMPARE(nodes.size(), 2);

    wrapper->setStatusIterate(true);
    std::thread loop = wrapper->runIterate();
    QTRY_VERIFY_WITH_TIMEOUT(latest.contains("H.uncertain") && latest.contains("G.d"), 10000);
    wrapper->setStatusIterate(false);
    loop.join();

    // Items are numbered in request order; wide and unsigned values keep their sign and digits.
    QStringList shown;
    for (const QString& name : typed.first(7)) {
        const QVariantList v = latest.value(name);
        shown << (v.size() == 5 && v[4].toInt() == nodes.firstKey()
                      ? QString("%1 %2 %3").arg(v[0].toString(), v[1].toString(), v[2].toString())
                      : name);
    }
    QCOMPARE(shown, QStringList({"1 true Good", "2 60000 Good", "3 4000000000 Good", "4 -5000000000000 Good",
                                 "5 10000000000000000000 Good", "6 1.5 Good", "7 2.25 Good"}));
    // A text tag never reaches the table; it is only logged.
    QVERIFY(!latest.contains("G.s"));
    QVERIFY(takeLog().contains("W Поступил неизвестный тип ноды"));
    // A status with a value passes unchanged; one without gives the one-element form.
    QCOMPARE(latest["H.uncertain"].mid(1, 2), (QVariantList{42, QString("UncertainLastUsableValue")}));
    QCOMPARE(bare, QList<QVariantList>{{QString("BadNoCommunication")}});

    // A deletion ends the subscription made last and drops every name; a refused one keeps them.
    const UA_UInt32 lastId = wrapper->subscriptionId;
    wrapper->subscriptionId = lastId + 1000;
    QCOMPARE(wrapper->deleteSubscriptionTag(), 1);
    QVERIFY(takeLog().last().startsWith("W Не удалось создать запрос на отмену подписки. Код ошибки Bad"));
    QCOMPARE(wrapper->mapNodes.size(), 2);
    wrapper->subscriptionId = lastId;
    QCOMPARE(wrapper->deleteSubscriptionTag(), 0);
    QVERIFY(wrapper->mapNodes.isEmpty());

    // An unknown node: every bad item is logged, the names stay, nothing is handed over.
    QMap<int, QList<QString>> none;
    QCOMPARE(wrapper->subscriptionTag({{"G.b"}, {"G.nope", "G.d", "G.gone"}}, 100, none), 2);
    QVERIFY(none.isEmpty());
    const QStringList log = takeLog();
    QCOMPARE(log.filter("W Ошибка мониторинга ноды G.").size(), 2);
    QVERIFY(log.contains("W Ошибка мониторинга ноды G.nope: BadNodeIdUnknown"));
    QCOMPARE(log.last(), QString("W Операция создания подписки прервана, возникли ошибки мониторинга"));
    QCOMPARE(wrapper->mapNodes.size(), 2);
    // The server numbers only the items it made, so G.d is its item 1: the value must still be G.d's.
    latest.clear();
    wrapper->setStatusIterate(true);
    loop = wrapper->runIterate();
    QTRY_VERIFY_WITH_TIMEOUT(latest.contains("G.d"), 10000);
    wrapper->setStatusIterate(false);
    loop.join();
    QVERIFY(latest["G.d"][0] == 1u && !latest.contains("G.nope"));

    // Without a session the first subscription is refused.
    QCOMPARE(wrapper->disconnectToServer(), 0);
    QCOMPARE(wrapper->subscriptionTag({{"G.b"}}, 100, none), 1);
    QVERIFY(takeLog().last().startsWith("W Не удалось создать запрос на подписку. Код ошибки Bad"));
}

QTEST_GUILESS_MAIN(SubscriptionsTest)
#include "tst_subscriptions.moc"
