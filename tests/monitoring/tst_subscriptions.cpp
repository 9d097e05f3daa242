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
    // A variable of ns=2 whose value is `v` of `type`; a bad `status` can go with it, or
    // stand alone when `withValue` is false.
    template <typename T>
    void add(const char* name, T v, const UA_DataType* type, UA_StatusCode status = 0, bool withValue = true)
    {
        UA_VariableAttributes attr = UA_VariableAttributes_default;
        UA_Variant_setScalarCopy(&attr.value, &v, type);
        const UA_NodeId id = UA_NODEID_STRING(2, const_cast<char*>(name));
        UA_Server_addVariableNode(
            server, id, UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER),
            UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES), UA_QUALIFIEDNAME(2, const_cast<char*>(name)),
            UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE), attr, nullptr, nullptr);
        UA_DataValue value{};
        if (withValue)
            UA_Variant_setScalar(&value.value, attr.value.data, type);
        value.hasValue = withValue;
        value.hasStatus = true;
        value.status = status;
        UA_Server_writeDataValue(server, id, value);
        UA_VariableAttributes_clear(&attr);
    }
    void start()
    {
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

// The wrapper's subscriptions: what a value looks like when it reaches the
// program, refused items, and the deletion of the last subscription.
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
    s.add("G.sb", UA_SByte(-5), &UA_TYPES[UA_TYPES_SBYTE]);
    s.add("G.by", UA_Byte(200), &UA_TYPES[UA_TYPES_BYTE]);
    s.add("G.i16", UA_Int16(-300), &UA_TYPES[UA_TYPES_INT16]);
    s.add("G.u16", UA_UInt16(60000), &UA_TYPES[UA_TYPES_UINT16]);
    s.add("G.i32", UA_Int32(-70000), &UA_TYPES[UA_TYPES_INT32]);
    s.add("G.u32", UA_UInt32(4000000000u), &UA_TYPES[UA_TYPES_UINT32]);
    s.add("G.i64", UA_Int64(-5000000000000), &UA_TYPES[UA_TYPES_INT64]);
    s.add("G.u64", UA_UInt64(10000000000000000000u), &UA_TYPES[UA_TYPES_UINT64]);
    s.add("G.f", UA_Float(1.5f), &UA_TYPES[UA_TYPES_FLOAT]);
    s.add("G.d", UA_Double(2.25), &UA_TYPES[UA_TYPES_DOUBLE]);
    s.add("G.s", UA_String(UA_STRING_STATIC("текст")), &UA_TYPES[UA_TYPES_STRING]);
    s.add("H.bad", UA_Int16(1), &UA_TYPES[UA_TYPES_INT16], UA_STATUSCODE_BADNOCOMMUNICATION, false);
    s.add("H.uncertain", UA_Int16(42), &UA_TYPES[UA_TYPES_INT16], UA_STATUSCODE_UNCERTAINLASTUSABLEVALUE);
    s.start();

    OPCUAWrapper* wrapper = OPCUAWrapper::GetInstance();
    QCOMPARE(wrapper->findServers(s.url()), 0);
    QCOMPARE(wrapper->connectToServer(s.url(), "http://opcfoundation.org/UA/SecurityPolicy#None (None)",
                                      false, 0, "", ""),
             0);
    QList<QVariantList> values;
    QObject receiver;
    connect(
        wrapper, &OPCUAWrapper::signalDataChange, &receiver, [&values](QVariantList v) { values << v; },
        Qt::QueuedConnection);
    auto last = [&values](const QString& name) {
        for (auto it = values.crbegin(); it != values.crend(); ++it)
            if (it->size() == 5 && it->at(3).toString() == name)
                return *it;
        return QVariantList();
    };

    const QList<QString> typed = {"G.b",   "G.sb",  "G.by",  "G.i16", "G.u16", "G.i32",
                                  "G.u32", "G.i64", "G.u64", "G.f",   "G.d",   "G.s"};
    const QList<QString> statuses = {"H.bad", "H.uncertain"};
    QMap<int, QList<QString>> nodes;
    takeLog();
    // The empty group makes no subscription.
    QCOMPARE(wrapper->subscriptionTag({typed, {}, statuses}, 50, nodes), 0);
    QCOMPARE(nodes.values(), (QList<QList<QString>>{typed, statuses}));
    QCOMPARE(nodes, wrapper->mapNodes);
    QCOMPARE(int(wrapper->subscriptionId), nodes.lastKey());

    wrapper->setStatusIterate(true);
    std::thread loop = wrapper->runIterate();
    QTRY_VERIFY(!last("H.uncertain").isEmpty() && !last("G.d").isEmpty());
    wrapper->setStatusIterate(false);
    loop.join();

    const QVariant expected[] = {true,
                                 -5,
                                 200,
                                 -300,
                                 60000,
                                 -70000,
                                 4000000000u,
                                 QVariant::fromValue(-5000000000000l),
                                 QVariant::fromValue(10000000000000000000ul),
                                 1.5f,
                                 2.25};
    for (int i = 0; i < 11; ++i) {
        const QVariantList v = last(typed[i]);
        QVERIFY2(v.size() == 5, qPrintable(typed[i]));
        QCOMPARE(v.at(1).metaType(), expected[i].metaType());
        QCOMPARE(v.at(1), expected[i]);
        QCOMPARE(v.at(0), QVariant(uint(i + 1)));
        QCOMPARE(v.at(2), QVariant(QString("Good")));
        QCOMPARE(v.at(4), QVariant(uint(nodes.firstKey())));
    }
    // A text tag never reaches the table; it is only logged.
    QVERIFY(last("G.s").isEmpty());
    QVERIFY(takeLog().contains("W Поступил неизвестный тип ноды"));
    // A status with a value passes unchanged; one without gives the one-element form.
    QCOMPARE(last("H.uncertain").mid(1, 2), (QVariantList{42, QString("UncertainLastUsableValue")}));
    QVERIFY(values.contains(QVariantList{QString("BadNoCommunication")}));

    // Only the subscription made last is deleted, and the names go with it, so the
    // other one's values find none any more. A refused deletion keeps the names.
    const UA_UInt32 lastId = wrapper->subscriptionId;
    wrapper->subscriptionId = lastId + 1000;
    QCOMPARE(wrapper->deleteSubscriptionTag(), 1);
    QVERIFY(takeLog().last().startsWith("W Не удалось создать запрос на отмену подписки. Код ошибки Bad"));
    QCOMPARE(wrapper->mapNodes.size(), 2);
    wrapper->subscriptionId = lastId;
    QCOMPARE(wrapper->deleteSubscriptionTag(), 0);
    QVERIFY(wrapper->mapNodes.isEmpty());
    values.clear();
    wrapper->setStatusIterate(true);
    loop = wrapper->runIterate();
    QTest::qWait(300);
    wrapper->setStatusIterate(false);
    loop.join();
    QVERIFY(values.isEmpty());

    // An unknown node: every bad item is logged, the names stay, nothing is handed over.
    QMap<int, QList<QString>> none;
    QCOMPARE(wrapper->subscriptionTag({{"G.b"}, {"G.nope", "G.d", "G.gone"}}, 100, none), 2);
    QVERIFY(none.isEmpty());
    const QStringList log = takeLog();
    QCOMPARE(log.filter("W Ошибка мониторинга ноды G.").size(), 2);
    QVERIFY(log.contains("W Ошибка мониторинга ноды G.nope: BadNodeIdUnknown"));
    QCOMPARE(log.last(), QString("W Операция создания подписки прервана, возникли ошибки мониторинга"));
    QCOMPARE(wrapper->mapNodes.size(), 2);

    // Without a session the first subscription is refused.
    QCOMPARE(wrapper->disconnectToServer(), 0);
    QCOMPARE(wrapper->subscriptionTag({{"G.b"}}, 100, none), 1);
    QVERIFY(takeLog().last().startsWith("W Не удалось создать запрос на подписку. Код ошибки Bad"));
}

QTEST_GUILESS_MAIN(SubscriptionsTest)
#include "tst_subscriptions.moc"
