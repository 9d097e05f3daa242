#include "gatewayprocess.h"

#include "config/scrambler.h"
#include "server/modbus/livevalue.h"
#include "tests/common/testfiles.h"

#include <open62541/client_highlevel.h>

#include <QtTest>

#include <cmath>
#include <memory>

namespace {

// An emulated device with one tag of each kind.
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
    "USERS\n\n[users]\nusers = оператор;секрет;guest;1;";

QString Text(const UA_String& s)
{
    return QString::fromUtf8(reinterpret_cast<const char*>(s.data), int(s.length));
}

// Every string node id reachable from `id` by forward references.
QStringList BrowseAll(UA_Client* c, const QString& id = "Каналы")
{
    QStringList children, found;
    const auto collect = [](UA_NodeId child, UA_Boolean inverse, UA_NodeId, void* list) -> UA_StatusCode {
        if (!inverse && child.identifierType == UA_NODEIDTYPE_STRING && child.namespaceIndex == 2)
            *static_cast<QStringList*>(list) << Text(child.identifier.string);
        return UA_STATUSCODE_GOOD;
    };
    UA_Client_forEachChildNodeCall(c, GatewayProcess::nodeId(id.toUtf8()), collect, &children);
    for (const QString& child : children)
        found << child << BrowseAll(c, child);
    return found;
}

struct Value
{
    UA_StatusCode status;
    const UA_DataType* type;
    double number;
};

Value Read(UA_Client* c, const QByteArray& id)
{
    UA_Variant var;
    UA_Variant_init(&var);
    Value v{UA_Client_readValueAttribute(c, GatewayProcess::nodeId(id), &var), var.type, std::nan("")};
    CLiveValue::FromVariant(var, v.number);
    UA_Variant_clear(&var);
    return v;
}

} // namespace

class TestGateway : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_values;

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QVERIFY2(QFile::exists(GatewayProcess::program()), qPrintable(GatewayProcess::program()));
        m_values = m_dir.filePath("values.cfg");
        QVERIFY(CScrambler::WriteFile(m_values, QString::fromUtf8(kValuesConfig)));
    }

    void startArgumentsAndStop()
    {
        QProcess p;
        const auto run = [&p](const QStringList& args) {
            p.start(GatewayProcess::program(), args);
            return p.waitForFinished(5000) ? p.exitCode() : -1;
        };
        const auto args = [this](const QString& port, const char* level, const char* der = "") {
            return QStringList{m_values, port, level, "true", der, "", ""};
        };
        QCOMPARE(run({"--help"}), 0);
        QVERIFY(p.readAllStandardOutput().contains("TRUSTFOLDER"));
        for (const QStringList& bad : {QStringList{m_values, "4840", "info"}, args("48a0", "info"),
                                       args("4840", "loud"), args("4840", "info", "cert.der")}) {
            QCOMPARE(run(bad), 2);
            QVERIFY2(!p.readAllStandardError().isEmpty(), qPrintable(bad.join(' ')));
        }

        // A file that does not load is refused with its row and reason; so is
        // a start that nobody could log in to.
        const auto file = [this](const char* name, const QByteArray& bytes) {
            return writeFile(m_dir.filePath(name), bytes);
        };
        const QByteArray good = CScrambler::Encode(QString::fromUtf8(kValuesConfig));
        const std::pair<QString, const char*> bad[] = {
            {m_dir.filePath("absent.cfg"), "cannot read"},
            {file("empty.cfg", ""), "does not load: файл пуст"},
            {file("binary.cfg", QByteArray("\x00\x01\xfe\xff;;\n", 7).repeated(50)),
             "Строка 0: неизвестная строка"},
            {file("cut.cfg", good.left(good.indexOf(CScrambler::Encode("Rand")) + 20)),
             "Строка 8: несоответствие"},
            {file("plain.cfg", kValuesConfig), "Строка 0: неизвестная строка"},
            {file("wide.cfg", CScrambler::Encode(QString(";").repeated(100000))),
             "Строка 0: полей больше 18"}};
        for (const auto& [path, reason] : bad) {
            QCOMPARE(run({path, "4840", "info", "true", "", "", ""}), 1);
            QVERIFY2(QString::fromUtf8(p.readAllStandardError()).contains(reason), reason);
        }
        // Certificate files that can't serve are refused at once, with the
        // configuration-error status that the service unit doesn't restart on.
        const QString der = m_dir.filePath("pair.der"), key = m_dir.filePath("pair.key");
        const QString otherKey = m_dir.filePath("other.key");
        QVERIFY(GatewayProcess::makeCertificate("urn:tarnopcua.server.application", der, key) &&
                GatewayProcess::makeCertificate("urn:tarnopcua.server.application",
                                                m_dir.filePath("other.der"), otherKey));
        const std::tuple<QString, QString, QString> certificates[] = {
            {m_dir.path(), key, "the certificate " + m_dir.path() + " is a folder"},
            {"/dev/zero", key, "is not a regular file"},
            {file("huge.der", QByteArray(100000, 'x')), key, "is larger than 64 KiB"},
            {file("garbage.der", QByteArray(1000, 'x')), key, "is not an X.509 certificate"},
            {der, m_dir.path(), "the private key " + m_dir.path() + " is a folder"},
            {der, der, "is not a private key"},
            {der, otherKey, "the private key does not belong to the certificate"}};
        for (const auto& [certificate, privateKey, reason] : certificates) {
            QCOMPARE(run({m_values, "4840", "info", "true", certificate, privateKey, ""}), 2);
            QVERIFY2(QString::fromUtf8(p.readAllStandardError()).contains(reason), qPrintable(reason));
        }
        QCOMPARE(run({QStringLiteral(VELMORA_TEST_DATA "/worked_example.cfg"), "4840", "info", "false", "",
                      "", ""}),
                 1);
        QVERIFY(p.readAllStandardError().contains("anonymous access is off and nobody can log in"));

        GatewayProcess gw;
        QVERIFY2(gw.start({m_values}), qPrintable(gw.output()));
        // A taken port is an error, not a server that silently never listens.
        QCOMPARE(run(args(QString::number(gw.port()), "info")), 1);
        QVERIFY(p.readAllStandardError().contains("in use"));
        QCOMPARE(gw.stop(), 0); // SIGTERM ends it cleanly
        QTRY_VERIFY_WITH_TIMEOUT(gw.output().contains("Конечная точка"), 10000);
        QVERIFY2(!gw.output().contains("[warning]"), qPrintable(gw.output()));
    }

    void discoveryBrowsingAndMethods()
    {
        GatewayProcess gw;
        QVERIFY2(gw.start({QStringLiteral(VELMORA_TEST_DATA "/worked_example.cfg")}),
                 qPrintable(gw.output()));
        // Discovery and endpoints are checked against another stack in the interoperability test.
        auto c = GatewayProcess::connect(gw.url());
        QVERIFY(c);
        UA_Client* cl = c.get();
        QStringList found = BrowseAll(cl);
        for (const char* id : {"Channel_0.Device_0.Group_0.Tag_2", "Channel_1", "Каналы.addNode"})
            QVERIFY2(found.contains(QString::fromUtf8(id)), id);
        QCOMPARE(found.filter("Channel_").size(), 7);
        // Emulation is off in the example, so nothing is known of the devices.
        QCOMPARE(Read(cl, "Channel_0.Device_0.Group_0.Tag_0").status, UA_STATUSCODE_BADNOCOMMUNICATION);

        // Add a channel, an emulated device (numbers as characters), a group, tags
        // (the last one a paste).
        for (const char* arg :
             {"Каналы;1;Новый;1;500;3;0;2;167815360;502;5000", "Новый;2;Прибор;\x07;1;1;};\xdf\x90;\x03",
              "Новый.Прибор;3;Группа;1;1", "Новый.Прибор.Группа;4;Т1;3;40;5;0;1;1;0;2;0;0;0;0;0",
              "Новый.Прибор.Группа;4"})
            QVERIFY2(GatewayProcess::call(cl, "addNode", arg) == UA_STATUSCODE_GOOD, arg);
        found = BrowseAll(cl);
        QVERIFY(found.contains("Новый.Прибор.Группа.Т1") && found.contains("Новый.Прибор.Группа.Tag_0"));
        QCOMPARE(Read(cl, "Новый.Прибор.Группа.Т1").number, 0.0); // emulated constant 0
        QCOMPARE(Read(cl, "Новый.Прибор.Группа.Т1").type, &UA_TYPES[UA_TYPES_INT32]);

        // Refusals change nothing.
        const std::tuple<const char*, const char*, UA_StatusCode> refused[] = {
            {"addNode", "Новый.Прибор;3;Группа;1;1", UA_STATUSCODE_BADNODEIDEXISTS},
            {"addNode", "Нет.Такого;3;Группа;1;1", UA_STATUSCODE_BADNODEIDUNKNOWN},
            {"addNode", "Новый.Прибор;4;Т;3;40;5;0;1;1;0;2;0;0;0;0;0", UA_STATUSCODE_BADINVALIDARGUMENT},
            {"addNode", "Каналы;1;Каналы;1;500;3;0;2;16777343;502;5000", UA_STATUSCODE_BADNODEIDEXISTS},
            {"editNode", "Channel_0;1;Новый;0;500;3;0;0;1;9600;8;1;0;0;0;0", UA_STATUSCODE_BADNODEIDEXISTS},
            {"editNode", "Channel_0;1;Каналы;0;500;3;0;0;1;9600;8;1;0;0;0;0", UA_STATUSCODE_BADNODEIDEXISTS},
            // Found under its old name: the refused rename left the gateway's tree alone.
            {"editNode", "Channel_0;2;Dev", UA_STATUSCODE_BADINVALIDARGUMENT},
            {"deleteNode", "Channel_0.Нет", UA_STATUSCODE_BADNODEIDUNKNOWN},
            {"deleteNode", "Каналы", UA_STATUSCODE_BADINVALIDARGUMENT}};
        for (const auto& [method, argument, expected] : refused)
            QVERIFY2(GatewayProcess::call(cl, method, argument) == expected, argument);
        QCOMPARE(BrowseAll(cl), found);

        // A rename moves the whole subtree to new ids; renaming to itself is fine.
        QCOMPARE(GatewayProcess::call(cl, "editNode", "Новый.Прибор.Группа;3;Group_0;1;1"),
                 UA_STATUSCODE_GOOD);
        QCOMPARE(GatewayProcess::call(cl, "editNode", "Новый.Прибор.Group_0;3;Group_0;1;1"),
                 UA_STATUSCODE_GOOD);
        found = BrowseAll(cl);
        QVERIFY(found.contains("Новый.Прибор.Group_0.Т1") && found.filter("Новый.Прибор.Группа").isEmpty());

        // The edit dialog's byte order 0 cuts the text behind the value type: the
        // value type still applies.
        QCOMPARE(GatewayProcess::call(cl, "editNode",
                                      QByteArray("Новый.Прибор.Group_0.Т1;4;Т1;3;40;1;") + '\0' +
                                          ";1;1;0;2;0;0;0;0;0"),
                 UA_STATUSCODE_GOOD);
        QCOMPARE(Read(cl, "Новый.Прибор.Group_0.Т1").type, &UA_TYPES[UA_TYPES_DOUBLE]);

        // Emulation off for the device: its tags lose their values.
        QCOMPARE(GatewayProcess::call(cl, "editNode", "Новый.Прибор;2;Прибор;\x07;1;0;};\xdf\x90;\x03"),
                 UA_STATUSCODE_GOOD);
        QCOMPARE(Read(cl, "Новый.Прибор.Group_0.Т1").status, UA_STATUSCODE_BADNOCOMMUNICATION);

        QCOMPARE(GatewayProcess::call(cl, "deleteNode", "Новый.Прибор"), UA_STATUSCODE_GOOD);
        found = BrowseAll(cl);
        QVERIFY(found.contains("Новый") && found.filter("Новый.").isEmpty());
        c.reset();
        QCOMPARE(gw.stop(), 0);
        QVERIFY2(!gw.output().contains("Sanitizer"), qPrintable(gw.output())); // in sanitizer builds
    }

    void emulatedValuesAndExchange()
    {
        GatewayProcess gw;
        QVERIFY2(gw.start({m_values}), qPrintable(gw.output()));
        auto c = GatewayProcess::connect(gw.url());
        QVERIFY(c);
        UA_Client* cl = c.get();
        const QByteArray g = "Линия.Эмулятор.Быстрая.";

        QCOMPARE(Read(cl, g + "Const").number, 3.0); // 1.5 times the factor 2
        QCOMPARE(Read(cl, g + "Bit").type, &UA_TYPES[UA_TYPES_BOOLEAN]);

        // A random double (its moves show below) and a sine scaled from -1..1 to -100..100.
        QCOMPARE(Read(cl, g + "Rand").type, &UA_TYPES[UA_TYPES_DOUBLE]);
        QCOMPARE(Read(cl, g + "Sine").type, &UA_TYPES[UA_TYPES_INT16]);
        // Sampled until four distinct values: a loaded machine may read twice within one step,
        // or at two points mirrored about a peak.
        QSet<double> sines;
        QTRY_VERIFY_WITH_TIMEOUT((sines << Read(cl, g + "Sine").number, sines.size() >= 4), 10000);
        QVERIFY(*std::min_element(sines.begin(), sines.end()) >= -100 &&
                *std::max_element(sines.begin(), sines.end()) <= 100);

        // Stopped exchange freezes every value; starting lets them move again.
        QCOMPARE(GatewayProcess::call(cl, "stopExchange", "emul"), UA_STATUSCODE_GOOD);
        const double frozen = Read(cl, g + "Rand").number;
        for (int i = 0; i < 3; ++i, QTest::qWait(60))
            QCOMPARE(Read(cl, g + "Rand").number, frozen);
        QCOMPARE(GatewayProcess::call(cl, "startExchange", "emul"), UA_STATUSCODE_GOOD);
        QTRY_VERIFY_WITH_TIMEOUT(Read(cl, g + "Rand").number != frozen, 10000);
    }
};

QTEST_GUILESS_MAIN(TestGateway)
#include "tst_gateway.moc"
