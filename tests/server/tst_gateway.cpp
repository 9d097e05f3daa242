#include "gatewayprocess.h"

#include "config/scrambler.h"

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>
#include <open62541/client_subscriptions.h>
#include <open62541/plugin/create_certificate.h>
#include <open62541/plugin/log_stdout.h>

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <memory>

namespace {

const char kAppUri[] = "urn:tarnopcua.server.application";
const char kBasic256Sha256[] = "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256";

// Emulated device with one tag of each kind, and a device without emulation.
const char kValuesConfig[] =
    "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n"
    ";Линия;COM-порт;MODBUS RTU;500;3;0;1;9600;8;1;Нет;Нет;Нет;Нет\n"
    "DEVICE;1;2;3;4;5;6;7\n"
    ";Эмулятор;1;Да;125;2000;0;Да\n"
    "GROUP;1;2;3\n"
    ";Быстрая;50;мс\n"
    "TAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n"
    ";Const;Входной регистр;1;0;0;Да;;;Вещ32;AB CD;Множитель;2;;;;Константа;1.5\n"
    ";Rand;Входной регистр;3;0;0;Да;;;Вещ64;AB CD EF GH;Нет;;;;;Случайное число\n"
    ";Sine;Входной регистр;7;0;0;Да;;;Цел16(знак);AB;Линейная шкала;-1;1;-100;100;Синусоида;2\n"
    ";Bit;Входное состояние;9;0;0;Да;;;;;;;;;;Константа;1\n"
    "DEVICE;1;2;3;4;5;6;7\n"
    ";Молчит;2;Нет;125;2000;0;Да\n"
    "GROUP;1;2;3\n"
    ";G;1;с\n"
    "TAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n"
    ";T;Входной регистр;1;0;0;Да;;;Цел32;AB CD;Нет;;;;;Константа;7\n"
    "INIFILE\n\n[options]\nport = 4840\nlog = warning\nallowanonimus = true\n"
    "derFile = \npemFile = \ntrustFolder = \n"
    "USERS\n\n[users]\nusers = оператор;секрет;guest;1;";

struct ClientDeleter
{
    void operator()(UA_Client* c) const
    {
        UA_Client_disconnect(c);
        UA_Client_delete(c);
    }
};
using Client = std::unique_ptr<UA_Client, ClientDeleter>;

Client NewClient()
{
    UA_ClientConfig config{};
    config.logging = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
    UA_ClientConfig_setDefault(&config);
    return Client(UA_Client_newWithConfig(&config));
}

Client Connected(const QString& url)
{
    Client c = NewClient();
    if (UA_Client_connect(c.get(), url.toUtf8().constData()) != UA_STATUSCODE_GOOD)
        return nullptr;
    return c;
}

UA_NodeId Id(const QByteArray& utf8)
{
    return UA_NODEID_STRING(2, const_cast<char*>(utf8.constData()));
}

QString Text(const UA_String& s)
{
    return QString::fromUtf8(reinterpret_cast<const char*>(s.data), int(s.length));
}

// Every string node id reachable from `id` by forward references.
void Browse(UA_Client* c, const QString& id, QStringList& found)
{
    const QByteArray utf8 = id.toUtf8();
    UA_BrowseRequest req;
    UA_BrowseRequest_init(&req);
    UA_BrowseDescription desc;
    UA_BrowseDescription_init(&desc);
    desc.nodeId = Id(utf8);
    desc.resultMask = UA_BROWSERESULTMASK_ALL;
    req.nodesToBrowse = &desc;
    req.nodesToBrowseSize = 1;
    UA_BrowseResponse resp = UA_Client_Service_browse(c, req);
    QStringList children;
    for (size_t i = 0; i < resp.resultsSize; ++i)
        for (size_t j = 0; j < resp.results[i].referencesSize; ++j) {
            const UA_NodeId& t = resp.results[i].references[j].nodeId.nodeId;
            if (t.identifierType == UA_NODEIDTYPE_STRING && t.namespaceIndex == 2)
                children << Text(t.identifier.string);
        }
    UA_BrowseResponse_clear(&resp);
    for (const QString& child : children) {
        found << child;
        Browse(c, child, found);
    }
}

QStringList BrowseAll(UA_Client* c)
{
    QStringList found;
    Browse(c, "Каналы", found);
    return found;
}

UA_StatusCode Call(UA_Client* c, const char* method, const QByteArray& argument)
{
    UA_Variant in;
    UA_String s = {size_t(argument.size()),
                   reinterpret_cast<UA_Byte*>(const_cast<char*>(argument.constData()))};
    UA_Variant_setScalar(&in, &s, &UA_TYPES[UA_TYPES_STRING]);
    const QByteArray methodId = QByteArray("Каналы.") + method;
    size_t outSize = 0;
    UA_Variant* out = nullptr;
    const UA_StatusCode rc = UA_Client_call(c, Id("Каналы"), Id(methodId), 1, &in, &outSize, &out);
    UA_Array_delete(out, outSize, &UA_TYPES[UA_TYPES_VARIANT]);
    return rc;
}

// Reads a tag's value; `status` gets the data value's status.
double ReadNumber(UA_Client* c, const QByteArray& id, UA_StatusCode* status = nullptr,
                  const UA_DataType** type = nullptr)
{
    UA_ReadValueId rv;
    UA_ReadValueId_init(&rv);
    rv.nodeId = Id(id);
    rv.attributeId = UA_ATTRIBUTEID_VALUE;
    UA_ReadRequest req;
    UA_ReadRequest_init(&req);
    req.nodesToRead = &rv;
    req.nodesToReadSize = 1;
    UA_ReadResponse resp = UA_Client_Service_read(c, req);
    double v = std::nan("");
    UA_StatusCode st = resp.responseHeader.serviceResult;
    if (st == UA_STATUSCODE_GOOD && resp.resultsSize == 1) {
        const UA_DataValue& dv = resp.results[0];
        st = dv.hasStatus ? dv.status : UA_STATUSCODE_GOOD;
        const UA_Variant& var = dv.value;
        if (type)
            *type = var.type;
        if (var.type == &UA_TYPES[UA_TYPES_FLOAT])
            v = *static_cast<UA_Float*>(var.data);
        else if (var.type == &UA_TYPES[UA_TYPES_DOUBLE])
            v = *static_cast<UA_Double*>(var.data);
        else if (var.type == &UA_TYPES[UA_TYPES_INT16])
            v = *static_cast<UA_Int16*>(var.data);
        else if (var.type == &UA_TYPES[UA_TYPES_INT32])
            v = *static_cast<UA_Int32*>(var.data);
        else if (var.type == &UA_TYPES[UA_TYPES_UINT32])
            v = *static_cast<UA_UInt32*>(var.data);
        else if (var.type == &UA_TYPES[UA_TYPES_BOOLEAN])
            v = *static_cast<UA_Boolean*>(var.data);
    }
    UA_ReadResponse_clear(&resp);
    if (status)
        *status = st;
    return v;
}

const UA_DataType* DataTypeOf(UA_Client* c, const QByteArray& id)
{
    UA_NodeId type;
    if (UA_Client_readDataTypeAttribute(c, Id(id), &type) != UA_STATUSCODE_GOOD)
        return nullptr;
    const UA_DataType* t = UA_findDataType(&type);
    UA_NodeId_clear(&type);
    return t;
}

bool WriteFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// A self-signed certificate and its key, as the tool of the program makes them.
bool MakeCertificate(const QString& uri, const QString& der, const QString& key)
{
    UA_String subject[] = {UA_STRING_STATIC("C=DE"), UA_STRING_STATIC("O=Velmora"),
                           UA_STRING_STATIC("CN=velmora test")};
    const QByteArray alt = ("URI:" + uri).toUtf8();
    UA_String altNames[] = {UA_STRING_STATIC("DNS:localhost"), UA_STRING(const_cast<char*>(alt.constData()))};
    UA_ByteString outKey = UA_BYTESTRING_NULL, outCert = UA_BYTESTRING_NULL;
    UA_Logger* logger = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
    const UA_StatusCode rc = UA_CreateCertificate(logger, subject, 3, altNames, 2, UA_CERTIFICATEFORMAT_DER,
                                                  nullptr, &outKey, &outCert);
    logger->clear(logger);
    const bool ok = rc == UA_STATUSCODE_GOOD &&
                    WriteFile(der, QByteArray(reinterpret_cast<char*>(outCert.data), int(outCert.length))) &&
                    WriteFile(key, QByteArray(reinterpret_cast<char*>(outKey.data), int(outKey.length)));
    UA_ByteString_clear(&outKey);
    UA_ByteString_clear(&outCert);
    return ok;
}

UA_ByteString Load(const QString& path)
{
    QFile f(path);
    f.open(QIODevice::ReadOnly);
    const QByteArray b = f.readAll();
    UA_ByteString out = UA_BYTESTRING_NULL;
    UA_ByteString_allocBuffer(&out, size_t(b.size()));
    memcpy(out.data, b.constData(), size_t(b.size()));
    return out;
}

// An encrypting client the way the configurator sets one up: its own
// certificate, the server's one trusted, a fixed application URI whatever the
// certificate says.
Client EncryptingClient(const QString& der, const QString& key, const QString& serverDer, bool x509Login)
{
    UA_ClientConfig config{};
    config.logging = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
    UA_ByteString cert = Load(der), pk = Load(key), trusted = Load(serverDer);
    UA_ClientConfig_setDefaultEncryption(&config, cert, pk, &trusted, 1, nullptr, 0);
    UA_ByteString_clear(&trusted);
    if (x509Login)
        UA_ClientConfig_setAuthenticationCert(&config, cert, pk);
    UA_String_clear(&config.clientDescription.applicationUri);
    config.clientDescription.applicationUri = UA_STRING_ALLOC("urn:open62541.server.application");
    config.securityMode = UA_MESSAGESECURITYMODE_SIGNANDENCRYPT;
    config.securityPolicyUri = UA_STRING_ALLOC(kBasic256Sha256);
    UA_ByteString_clear(&cert);
    UA_ByteString_clear(&pk);
    return Client(UA_Client_newWithConfig(&config));
}

} // namespace

class TestGateway : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void startArgumentsAndStop();
    void discoveryAndBrowsing();
    void emulatedValuesAndExchange();
    void monitoredItemsAreNumberedPerSubscription();
    void methodsChangeTheAddressSpace();
    void loginsAndAnonymousAccess();
    void encryptedSessionsTrustOnlyTheFolder();

private:
    QString writeConfig(const QByteArray& clear);
    QTemporaryDir m_dir;
    QString m_values;
};

QString TestGateway::writeConfig(const QByteArray& clear)
{
    static int n = 0;
    const QString path = m_dir.filePath(QStringLiteral("config%1.cfg").arg(++n));
    if (!CScrambler::WriteFile(path, QString::fromUtf8(clear)))
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

void TestGateway::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY2(QFile::exists(GatewayProcess::program()), qPrintable(GatewayProcess::program()));
    m_values = writeConfig(kValuesConfig);
}

void TestGateway::startArgumentsAndStop()
{
    QProcess p;
    p.start(GatewayProcess::program(), {"--help"});
    QVERIFY(p.waitForFinished(5000));
    QCOMPARE(p.exitCode(), 0);
    QVERIFY(p.readAllStandardOutput().contains("TRUSTFOLDER"));

    const QStringList bad[] = {{m_values, "4840", "info"},
                               {m_values, "0", "info", "true", "", "", ""},
                               {m_values, "48a0", "info", "true", "", "", ""},
                               {m_values, "4840", "loud", "true", "", "", ""},
                               {m_values, "4840", "info", "yes", "", "", ""},
                               {m_values, "4840", "info", "true", "cert.der", "", ""}};
    for (const QStringList& args : bad) {
        p.start(GatewayProcess::program(), args);
        QVERIFY(p.waitForFinished(5000));
        QCOMPARE(p.exitCode(), 2);
        QVERIFY2(!p.readAllStandardError().isEmpty(), qPrintable(args.join(' ')));
    }

    GatewayProcess missing;
    QVERIFY(!missing.start({m_dir.filePath("absent.cfg")}, 3000));

    GatewayProcess gw;
    QVERIFY2(gw.start({m_values}), qPrintable(gw.output()));
    // A taken port is an error, not a server that silently never listens.
    p.start(GatewayProcess::program(), {m_values, QString::number(gw.port()), "info", "true", "", "", ""});
    QVERIFY(p.waitForFinished(5000));
    QCOMPARE(p.exitCode(), 1);
    QVERIFY(p.readAllStandardError().contains("in use"));
    QCOMPARE(gw.stop(), 0); // SIGTERM ends it cleanly
    QVERIFY(gw.output().contains("Конечная точка"));
    QVERIFY2(!gw.output().contains("[warning]"), qPrintable(gw.output()));
}

void TestGateway::discoveryAndBrowsing()
{
    GatewayProcess gw;
    QVERIFY2(gw.start({QStringLiteral(VELMORA_TEST_DATA "/worked_example.cfg")}), qPrintable(gw.output()));
    const QByteArray url = gw.url().toUtf8();

    Client c = NewClient();
    size_t count = 0;
    UA_ApplicationDescription* servers = nullptr;
    QCOMPARE(UA_Client_findServers(c.get(), url.constData(), 0, nullptr, 0, nullptr, &count, &servers),
             UA_STATUSCODE_GOOD);
    QCOMPARE(count, size_t(1));
    QCOMPARE(Text(servers[0].applicationUri), QString(kAppUri));
    UA_Array_delete(servers, count, &UA_TYPES[UA_TYPES_APPLICATIONDESCRIPTION]);

    UA_EndpointDescription* eps = nullptr;
    QCOMPARE(UA_Client_getEndpoints(c.get(), url.constData(), &count, &eps), UA_STATUSCODE_GOOD);
    QCOMPARE(count, size_t(1)); // no certificate: None only
    QCOMPARE(Text(eps[0].server.applicationUri), QString(kAppUri));
    QCOMPARE(eps[0].securityMode, UA_MESSAGESECURITYMODE_NONE);
    UA_Array_delete(eps, count, &UA_TYPES[UA_TYPES_ENDPOINTDESCRIPTION]);

    c = Connected(gw.url());
    QVERIFY(c);
    const QStringList found = BrowseAll(c.get());
    for (const char* id : {"Channel_0", "Channel_0.Device_0", "Channel_0.Device_0.Group_0",
                           "Channel_0.Device_0.Group_0.Tag_0", "Channel_0.Device_0.Group_0.Tag_1",
                           "Channel_0.Device_0.Group_0.Tag_2", "Channel_1", "Каналы.addNode"})
        QVERIFY2(found.contains(QString::fromUtf8(id)), id);
    QCOMPARE(found.filter("Channel_").size(), 7);

    QCOMPARE(DataTypeOf(c.get(), "Channel_0.Device_0.Group_0.Tag_0"), &UA_TYPES[UA_TYPES_FLOAT]);
    QCOMPARE(DataTypeOf(c.get(), "Channel_0.Device_0.Group_0.Tag_1"), &UA_TYPES[UA_TYPES_UINT16]);
    QCOMPARE(DataTypeOf(c.get(), "Channel_0.Device_0.Group_0.Tag_2"), &UA_TYPES[UA_TYPES_BOOLEAN]);
    // Emulation is off in the example, so nothing is known of the devices.
    UA_StatusCode st = UA_STATUSCODE_GOOD;
    ReadNumber(c.get(), "Channel_0.Device_0.Group_0.Tag_0", &st);
    QCOMPARE(st, UA_STATUSCODE_BADNOCOMMUNICATION);
}

void TestGateway::emulatedValuesAndExchange()
{
    GatewayProcess gw;
    QVERIFY2(gw.start({m_values}), qPrintable(gw.output()));
    Client c = Connected(gw.url());
    QVERIFY(c);
    UA_Client* cl = c.get();
    const QByteArray g = "Линия.Эмулятор.Быстрая.";

    const UA_DataType* type = nullptr;
    QCOMPARE(ReadNumber(cl, g + "Const", nullptr, &type), 3.0); // 1.5 times the factor 2
    QCOMPARE(type, &UA_TYPES[UA_TYPES_FLOAT]);
    QCOMPARE(ReadNumber(cl, g + "Bit", nullptr, &type), 1.0);
    QCOMPARE(type, &UA_TYPES[UA_TYPES_BOOLEAN]);

    // Random values within 0..1 that move with the 50 ms update rate.
    QSet<double> randoms;
    for (int i = 0; i < 5; ++i) {
        const double r = ReadNumber(cl, g + "Rand", nullptr, &type);
        QVERIFY(r >= 0.0 && r < 1.0);
        randoms << r;
        QTest::qWait(60);
    }
    QCOMPARE(type, &UA_TYPES[UA_TYPES_DOUBLE]);
    QVERIFY(randoms.size() >= 4);

    // A 2 s sine scaled from -1..1 to -100..100.
    QSet<double> sines;
    for (int i = 0; i < 8; ++i) {
        const double s = ReadNumber(cl, g + "Sine", nullptr, &type);
        QVERIFY(s >= -100 && s <= 100);
        sines << s;
        QTest::qWait(120);
    }
    QCOMPARE(type, &UA_TYPES[UA_TYPES_INT16]);
    QVERIFY(sines.size() >= 4);

    UA_StatusCode st = UA_STATUSCODE_GOOD;
    ReadNumber(cl, "Линия.Молчит.G.T", &st);
    QCOMPARE(st, UA_STATUSCODE_BADNOCOMMUNICATION);

    // Stopped exchange freezes every value; starting lets them move again.
    QCOMPARE(Call(cl, "stopExchange", "emul"), UA_STATUSCODE_GOOD);
    const double frozen = ReadNumber(cl, g + "Rand");
    for (int i = 0; i < 3; ++i) {
        QTest::qWait(60);
        QCOMPARE(ReadNumber(cl, g + "Rand"), frozen);
    }
    QCOMPARE(Call(cl, "startExchange", "emul"), UA_STATUSCODE_GOOD);
    QTRY_VERIFY_WITH_TIMEOUT(ReadNumber(cl, g + "Rand") != frozen, 2000);
}

void TestGateway::monitoredItemsAreNumberedPerSubscription()
{
    GatewayProcess gw;
    QVERIFY2(gw.start({m_values}), qPrintable(gw.output()));
    Client c = Connected(gw.url());
    QVERIFY(c);
    static int notifications = 0;
    notifications = 0;
    const QByteArray g = "Линия.Эмулятор.Быстрая.";
    const QList<QByteArray> ids = {g + "Const", g + "Rand", g + "Sine", g + "Bit", "Линия.Молчит.G.T"};
    for (int sub = 0; sub < 2; ++sub) {
        UA_CreateSubscriptionRequest sreq = UA_CreateSubscriptionRequest_default();
        sreq.requestedPublishingInterval = 100;
        const UA_CreateSubscriptionResponse sresp =
            UA_Client_Subscriptions_create(c.get(), sreq, nullptr, nullptr, nullptr);
        QCOMPARE(sresp.responseHeader.serviceResult, UA_STATUSCODE_GOOD);

        std::vector<UA_MonitoredItemCreateRequest> items;
        for (const QByteArray& id : ids) {
            UA_MonitoredItemCreateRequest r = UA_MonitoredItemCreateRequest_default(Id(id));
            r.requestedParameters.samplingInterval = 100;
            items.push_back(r);
        }
        std::vector<UA_Client_DataChangeNotificationCallback> callbacks(
            items.size(),
            [](UA_Client*, UA_UInt32, void*, UA_UInt32, void*, UA_DataValue*) { ++notifications; });
        std::vector<void*> contexts(items.size(), nullptr);
        UA_CreateMonitoredItemsRequest mreq;
        UA_CreateMonitoredItemsRequest_init(&mreq);
        mreq.subscriptionId = sresp.subscriptionId;
        mreq.timestampsToReturn = UA_TIMESTAMPSTORETURN_BOTH;
        mreq.itemsToCreate = items.data();
        mreq.itemsToCreateSize = items.size();
        UA_CreateMonitoredItemsResponse mresp = UA_Client_MonitoredItems_createDataChanges(
            c.get(), mreq, contexts.data(), callbacks.data(), nullptr);
        QCOMPARE(mresp.resultsSize, items.size());
        for (size_t i = 0; i < mresp.resultsSize; ++i) {
            QCOMPARE(mresp.results[i].statusCode, UA_STATUSCODE_GOOD);
            QCOMPARE(mresp.results[i].monitoredItemId, UA_UInt32(i + 1));
        }
        UA_CreateMonitoredItemsResponse_clear(&mresp);
    }
    QTRY_VERIFY_WITH_TIMEOUT((UA_Client_run_iterate(c.get(), 20), notifications > 20), 5000);
}

void TestGateway::methodsChangeTheAddressSpace()
{
    GatewayProcess gw;
    QVERIFY2(gw.start({QStringLiteral(VELMORA_TEST_DATA "/worked_example.cfg")}), qPrintable(gw.output()));
    Client c = Connected(gw.url());
    QVERIFY(c);
    UA_Client* cl = c.get();

    // Add a channel, an emulated device (numbers as characters), a group, tags.
    QCOMPARE(Call(cl, "addNode", "Каналы;1;Новый;1;500;3;0;2;167815360;502;5000"), UA_STATUSCODE_GOOD);
    QCOMPARE(Call(cl, "addNode", "Новый;2;Прибор;\x07;1;1;};\xdf\x90;\x03"), UA_STATUSCODE_GOOD);
    QCOMPARE(Call(cl, "addNode", "Новый.Прибор;3;Группа;1;1"), UA_STATUSCODE_GOOD);
    QCOMPARE(Call(cl, "addNode", "Новый.Прибор.Группа;4;Т1;3;40;5;0;1;1;0;2;0;0;0;0;0"), UA_STATUSCODE_GOOD);
    QCOMPARE(Call(cl, "addNode", "Новый.Прибор.Группа;4"), UA_STATUSCODE_GOOD); // a paste
    QStringList found = BrowseAll(cl);
    for (const char* id : {"Новый", "Новый.Прибор", "Новый.Прибор.Группа", "Новый.Прибор.Группа.Т1",
                           "Новый.Прибор.Группа.Tag_0"})
        QVERIFY2(found.contains(QString::fromUtf8(id)), id);
    QCOMPARE(ReadNumber(cl, "Новый.Прибор.Группа.Т1"), 0.0); // emulated constant 0
    QCOMPARE(DataTypeOf(cl, "Новый.Прибор.Группа.Т1"), &UA_TYPES[UA_TYPES_INT32]);

    // Refusals change nothing.
    QCOMPARE(Call(cl, "addNode", "Новый.Прибор;3;Группа;1;1"), UA_STATUSCODE_BADNODEIDEXISTS);
    QCOMPARE(Call(cl, "addNode", "Нет.Такого;3;Группа;1;1"), UA_STATUSCODE_BADNODEIDUNKNOWN);
    QCOMPARE(Call(cl, "addNode", "Новый.Прибор;3;Группа2;25;3"), UA_STATUSCODE_BADINVALIDARGUMENT);
    QCOMPARE(Call(cl, "addNode", "Новый.Прибор;4;Т;3;40;5;0;1;1;0;2;0;0;0;0;0"),
             UA_STATUSCODE_BADINVALIDARGUMENT); // a tag needs a group
    QCOMPARE(Call(cl, "editNode", "Новый.Прибор.Группа;3;Group_0;1;1"), UA_STATUSCODE_GOOD);
    QCOMPARE(Call(cl, "editNode", "Новый.Прибор.Group_0;3;Group_0;1;1"), UA_STATUSCODE_GOOD);
    QCOMPARE(Call(cl, "editNode", "Channel_0;1;Новый;0;500;3;0;0;1;9600;8;1;0;0;0;0"),
             UA_STATUSCODE_BADNODEIDEXISTS);
    QCOMPARE(Call(cl, "editNode", "Channel_0;2;Dev"), UA_STATUSCODE_BADINVALIDARGUMENT);
    QCOMPARE(Call(cl, "deleteNode", "Channel_0.Нет"), UA_STATUSCODE_BADNODEIDUNKNOWN);
    QCOMPARE(Call(cl, "deleteNode", "Каналы"), UA_STATUSCODE_BADINVALIDARGUMENT);
    QCOMPARE(Call(cl, "addNode", "Каналы;1;Х;0;500;3;0;0;1;9600;8;1;0;0;0;0;9"),
             UA_STATUSCODE_BADINVALIDARGUMENT);
    QCOMPARE(BrowseAll(cl).size(), found.size()); // renamed group, same count

    // A rename moves the whole subtree to new ids.
    found = BrowseAll(cl);
    QVERIFY(found.contains("Новый.Прибор.Group_0.Т1"));
    QVERIFY(!found.filter("Новый.Прибор.Группа").size());

    // The edit dialog's byte order 0 cuts the text behind the value type: the
    // value type still applies.
    QCOMPARE(Call(cl, "editNode",
                  QByteArray("Новый.Прибор.Group_0.Т1;4;Т1;3;40;1;") + '\0' + ";1;1;0;2;0;0;0;0;0"),
             UA_STATUSCODE_GOOD);
    QCOMPARE(DataTypeOf(cl, "Новый.Прибор.Group_0.Т1"), &UA_TYPES[UA_TYPES_DOUBLE]);

    // Emulation off for the device: its tags lose their values.
    QCOMPARE(Call(cl, "editNode", "Новый.Прибор;2;Прибор;\x07;1;0;};\xdf\x90;\x03"), UA_STATUSCODE_GOOD);
    UA_StatusCode st = UA_STATUSCODE_GOOD;
    ReadNumber(cl, "Новый.Прибор.Group_0.Т1", &st);
    QCOMPARE(st, UA_STATUSCODE_BADNOCOMMUNICATION);

    QCOMPARE(Call(cl, "deleteNode", "Новый.Прибор"), UA_STATUSCODE_GOOD);
    found = BrowseAll(cl);
    QVERIFY(found.contains("Новый"));
    QVERIFY(found.filter("Новый.").isEmpty());
    QCOMPARE(Call(cl, "deleteNode", "Channel_0.Device_0.Group_0.Tag_1"), UA_STATUSCODE_GOOD);
    QVERIFY(!BrowseAll(cl).contains("Channel_0.Device_0.Group_0.Tag_1"));
    QVERIFY(gw.output().contains("Вызов метода deleteNode: Channel_0.Device_0.Group_0.Tag_1"));
    c.reset();
    QCOMPARE(gw.stop(), 0);
    QVERIFY2(!gw.output().contains("Sanitizer"), qPrintable(gw.output())); // in sanitizer builds
}

void TestGateway::loginsAndAnonymousAccess()
{
    GatewayProcess closed;
    GatewayProcess::Options o{m_values};
    o.anonymous = false;
    QVERIFY2(closed.start(o), qPrintable(closed.output()));
    const QByteArray url = closed.url().toUtf8();

    QVERIFY(!Connected(closed.url()));
    Client c = NewClient();
    QCOMPARE(UA_Client_connectUsername(c.get(), url.constData(), "оператор", "секрет"), UA_STATUSCODE_GOOD);
    c = NewClient();
    QCOMPARE(UA_Client_connectUsername(c.get(), url.constData(), "guest", "1"), UA_STATUSCODE_GOOD);
    c = NewClient();
    QVERIFY(UA_Client_connectUsername(c.get(), url.constData(), "оператор", "неверно") != UA_STATUSCODE_GOOD);
    c = NewClient();
    QVERIFY(UA_Client_connectUsername(c.get(), url.constData(), "никто", "секрет") != UA_STATUSCODE_GOOD);
    QVERIFY(closed.output().contains("Сессия отклонена"));

    GatewayProcess open;
    QVERIFY2(open.start({m_values}), qPrintable(open.output()));
    QVERIFY(Connected(open.url()));
}

void TestGateway::encryptedSessionsTrustOnlyTheFolder()
{
    const QString trust = m_dir.filePath("trust");
    QVERIFY(QDir().mkpath(trust));
    const QString serverDer = m_dir.filePath("server.der"), serverKey = m_dir.filePath("server.pem");
    const QString goodDer = trust + "/client.der", goodKey = m_dir.filePath("client.key");
    const QString badDer = m_dir.filePath("stranger.der"), badKey = m_dir.filePath("stranger.key");
    QVERIFY(MakeCertificate(kAppUri, serverDer, serverKey));
    // The client certificate names another application than the one it announces.
    QVERIFY(MakeCertificate("urn:velmora.test.client", goodDer, goodKey));
    QVERIFY(MakeCertificate("urn:velmora.test.stranger", badDer, badKey));

    GatewayProcess gw;
    GatewayProcess::Options o{m_values};
    o.anonymous = false;
    o.certificate = serverDer;
    o.privateKey = serverKey;
    o.trustFolder = trust;
    QVERIFY2(gw.start(o), qPrintable(gw.output()));
    const QByteArray url = gw.url().toUtf8();

    Client plain = NewClient();
    size_t count = 0;
    UA_EndpointDescription* eps = nullptr;
    QCOMPARE(UA_Client_getEndpoints(plain.get(), url.constData(), &count, &eps), UA_STATUSCODE_GOOD);
    QStringList offered;
    for (size_t i = 0; i < count; ++i) {
        offered << Text(eps[i].securityPolicyUri).section('#', 1) + "/" +
                       QString::number(eps[i].securityMode);
        QCOMPARE(Text(eps[i].server.applicationUri), QString(kAppUri));
    }
    UA_Array_delete(eps, count, &UA_TYPES[UA_TYPES_ENDPOINTDESCRIPTION]);
    offered.sort();
    QCOMPARE(offered, QStringList({"Basic256Sha256/2", "Basic256Sha256/3", "None/1"}));
    QVERIFY(!Connected(gw.url())); // None is there for discovery, not for anonymous sessions

    Client good = EncryptingClient(goodDer, goodKey, serverDer, false);
    QCOMPARE(UA_Client_connectUsername(good.get(), url.constData(), "оператор", "секрет"),
             UA_STATUSCODE_GOOD);
    QVERIFY(BrowseAll(good.get()).contains("Линия.Эмулятор.Быстрая.Const"));

    QVERIFY(gw.output().contains("differs from the client certificate; accepted"));

    Client byCertificate = EncryptingClient(goodDer, goodKey, serverDer, true);
    QCOMPARE(UA_Client_connect(byCertificate.get(), url.constData()), UA_STATUSCODE_GOOD);

    Client stranger = EncryptingClient(badDer, badKey, serverDer, false);
    QVERIFY(UA_Client_connectUsername(stranger.get(), url.constData(), "оператор", "секрет") !=
            UA_STATUSCODE_GOOD);
    Client strangerCert = EncryptingClient(goodDer, goodKey, serverDer, false);
    UA_ClientConfig* cfg = UA_Client_getConfig(strangerCert.get());
    UA_ByteString badCert = Load(badDer), badPk = Load(badKey);
    UA_ClientConfig_setAuthenticationCert(cfg, badCert, badPk);
    UA_ByteString_clear(&badCert);
    UA_ByteString_clear(&badPk);
    QVERIFY(UA_Client_connect(strangerCert.get(), url.constData()) != UA_STATUSCODE_GOOD);
    good.reset();
    byCertificate.reset();
    QCOMPARE(gw.stop(), 0);
    QVERIFY2(!gw.output().contains("Sanitizer"), qPrintable(gw.output()));
}

QTEST_GUILESS_MAIN(TestGateway)
#include "tst_gateway.moc"
