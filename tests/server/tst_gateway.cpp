#include "gatewayprocess.h"

#include "config/scrambler.h"
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
    ";Sine32;Входной регистр;11;0;0;Да;;;Вещ32;AB CD;Нет;;;;;Синусоида;1\n"
    ";SineX10;Входной регистр;13;0;0;Да;;;Цел16;AB;Множитель;10;;;;Синусоида;1\n"
    ";Hidden;Выходной регистр;14;0;0;Нет;Да;Одиночная;Цел16;AB;Нет;;;;;Константа;7\n"
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

using Value = GatewayProcess::Reading;

GatewayProcess::Reading Read(UA_Client* c, const QByteArray& id)
{
    return GatewayProcess::read(c, id);
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

        // A file that does not load is refused with its row (counted from 1), the field, what it
        // holds and why; so are values past the end of their table, and a start that nobody could
        // log in to. None of these is started again by the service.
        const auto file = [this](const char* name, const QByteArray& bytes) {
            return writeFile(m_dir.filePath(name), bytes);
        };
        const auto changed = [&file](const char* name, const char* from, const char* to) {
            return file(name, CScrambler::Encode(QString::fromUtf8(kValuesConfig).replace(from, to)));
        };
        const QByteArray good = CScrambler::Encode(QString::fromUtf8(kValuesConfig));
        const std::pair<QString, const char*> bad[] = {
            {m_dir.filePath("absent.cfg"), "не удалось прочитать"},
            {file("empty.cfg", ""), "не загружается: файл пуст"},
            {file("binary.cfg", QByteArray("\x00\x01\xfe\xff;;\n", 7).repeated(50)),
             "Строка 1: неизвестная строка"},
            {file("cut.cfg", good.left(good.indexOf(CScrambler::Encode("Rand")) + 20)),
             "Строка 9: несоответствие"},
            {file("plain.cfg", kValuesConfig), "Строка 1: неизвестная строка"},
            {file("wide.cfg", CScrambler::Encode(QString(";").repeated(100000))),
             "Строка 1: полей больше 18"},
            {changed("r64.cfg", ";Rand;Входной регистр;3;", ";Rand;Входной регистр;65535;"),
             "Строка 9: тег Линия.Эмулятор.Быстрая.Rand: регистры 65535–65538 выходят за адрес 65535"},
            {changed("segment.cfg", ";Sine;Входной регистр;7;0;", ";Sine;Входной регистр;65530;10;"),
             "Строка 10: тег Линия.Эмулятор.Быстрая.Sine: регистры 65530–65539 выходят за адрес 65535"},
            {changed("address.cfg", ";Bit;Входное состояние;9;", ";Bit;Входное состояние;70000;"),
             "Строка 11: поле 3 «Адрес» = «70000»: от 1 до 65535"},
            {changed("rate.cfg", ";Быстрая;50;мс", ";Быстрая;25;ч"),
             "Строка 6: поле 2 «Период опроса» = «25»: в «мс» до 86400000, в «с» до 86400"},
            {changed("twice.cfg", ";Bit;", ";Const;"),
             "Строка 11: поле 1 «Имя» = «Const»: такое имя уже есть"}};
        for (const auto& [path, reason] : bad) {
            QCOMPARE(run({path, "4840", "info", "true", "", "", ""}), 2);
            const QString told = QString::fromUtf8(p.readAllStandardError());
            QVERIFY2(told.contains(QString::fromUtf8(reason)), qPrintable(told));
        }
        // Certificate files that can't serve are refused at once, with the
        // configuration-error status that the service unit doesn't restart on.
        const QString der = m_dir.filePath("pair.der"), key = m_dir.filePath("pair.key");
        const QString otherKey = m_dir.filePath("other.key");
        QVERIFY(GatewayProcess::makeCertificate("urn:tarnopcua.server.application", der, key) &&
                GatewayProcess::makeCertificate("urn:tarnopcua.server.application",
                                                m_dir.filePath("other.der"), otherKey));
        const std::tuple<QString, QString, QString> certificates[] = {
            {m_dir.path(), key, "сертификат " + m_dir.path() + ": это каталог"},
            {"/dev/zero", key, "это не обычный файл"},
            {file("huge.der", QByteArray(100000, 'x')), key, "больше 64 КиБ"},
            {file("garbage.der", QByteArray(1000, 'x')), key, "не в формате X.509"},
            {der, m_dir.path(), "закрытый ключ " + m_dir.path() + ": это каталог"},
            {der, der, "не читается как ключ без пароля"},
            {der, otherKey, "закрытый ключ не подходит к сертификату"}};
        for (const auto& [certificate, privateKey, reason] : certificates) {
            QCOMPARE(run({m_values, "4840", "info", "true", certificate, privateKey, ""}), 2);
            QVERIFY2(QString::fromUtf8(p.readAllStandardError()).contains(reason), qPrintable(reason));
        }
        QCOMPARE(run({QStringLiteral(VELMORA_TEST_DATA "/worked_example.cfg"), "4840", "info", "false", "",
                      "", ""}),
                 2);
        QVERIFY(QString::fromUtf8(p.readAllStandardError())
                    .contains("анонимный доступ запрещён, а войти некому"));

        GatewayProcess gw;
        QVERIFY2(gw.start({m_values}), qPrintable(gw.output()));
        // A taken port is an error, not a server that silently never listens.
        QCOMPARE(run(args(QString::number(gw.port()), "info")), 1);
        QVERIFY(QString::fromUtf8(p.readAllStandardError()).contains("занят"));
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
              "Новый.Прибор.Группа;4", "Новый.Прибор.Группа.Копия;4"})
            QVERIFY2(GatewayProcess::call(cl, "addNode", arg) == UA_STATUSCODE_GOOD, arg);
        found = BrowseAll(cl);
        QVERIFY(found.contains("Новый.Прибор.Группа.Т1") && found.contains("Новый.Прибор.Группа.Tag_0") &&
                found.contains("Новый.Прибор.Группа.Копия"));
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
            {"deleteNode", "Каналы", UA_STATUSCODE_BADINVALIDARGUMENT},
            // Registers past 65535, or more than one request holds: neither the new tag nor the edit.
            {"addNode", "Новый.Прибор.Группа;4;Т2;3;65535;1;0;1;1;0;0;0;0;0;0;0",
             UA_STATUSCODE_BADOUTOFRANGE},
            {"editNode", "Новый.Прибор.Группа.Т1;4;Т1;2;65530;5;0;1;1;0;10;0;0;0;0;0",
             UA_STATUSCODE_BADOUTOFRANGE},
            {"editNode", "Новый.Прибор.Группа.Т1;4;Т1;2;1;1;0;1;1;0;123;123;0;0;0;0",
             UA_STATUSCODE_BADOUTOFRANGE},
            {"addNode", "Новый.Прибор.Группа.Т1;4", UA_STATUSCODE_BADNODEIDEXISTS}};
        for (const auto& [method, argument, expected] : refused)
            QVERIFY2(GatewayProcess::call(cl, method, argument) == expected, argument);
        QCOMPARE(BrowseAll(cl), found);
        QCOMPARE(Read(cl, "Новый.Прибор.Группа.Т1").type, &UA_TYPES[UA_TYPES_INT32]);
        QTRY_VERIFY(gw.output().contains(
            "Тег Новый.Прибор.Группа.Т2 не принят: регистры 65535–65538 выходят за адрес 65535"));
        QVERIFY(gw.output().contains("Тег Новый.Прибор.Группа.Т1 не принят: регистры 1–127 (127) не читаются "
                                     "одним запросом: протокол позволяет 125"));

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

        // A transformation publishes a Double; without one a value keeps its type.
        QCOMPARE(Read(cl, g + "Const").number, 3.0); // 1.5 times the factor 2
        QCOMPARE(Read(cl, g + "Const").type, &UA_TYPES[UA_TYPES_DOUBLE]);
        QCOMPARE(Read(cl, g + "Bit").type, &UA_TYPES[UA_TYPES_BOOLEAN]);

        // Each emulation spans what the tag dialog promises, through the transformation: the
        // random number 0 to 1, the sine -1 to 1, a line scale's raw range onto its scaled one,
        // a factor times the sine. Sampled until both halves of the range were seen.
        const std::tuple<const char*, const UA_DataType*, double, double> spans[] = {
            {"Rand", &UA_TYPES[UA_TYPES_DOUBLE], 0, 1},
            {"Sine", &UA_TYPES[UA_TYPES_DOUBLE], -100, 100},
            {"Sine32", &UA_TYPES[UA_TYPES_FLOAT], -1, 1},
            {"SineX10", &UA_TYPES[UA_TYPES_DOUBLE], -10, 10}};
        for (const auto& [name, type, lo, hi] : spans) {
            QCOMPARE(Read(cl, g + name).type, type);
            double low = hi, high = lo;
            bool inside = true;
            const double middle = (lo + hi) / 2, quarter = (hi - lo) / 4;
            QTRY_VERIFY_WITH_TIMEOUT((
                                         [&] {
                                             const double v = Read(cl, g + name).number;
                                             inside = inside && v >= lo && v <= hi;
                                             low = std::min(low, v), high = std::max(high, v);
                                         }(),
                                         !inside || (low < middle - quarter && high > middle + quarter)),
                                     10000);
            QVERIFY2(inside, name);
        }

        // "Чтение" "Нет": the access level has no read, and a read says so.
        UA_Byte access = 0xFF;
        QCOMPARE(UA_Client_readAccessLevelAttribute(cl, GatewayProcess::nodeId(g + "Hidden"), &access),
                 UA_STATUSCODE_GOOD);
        QCOMPARE(access & UA_ACCESSLEVELMASK_READ, 0);
        QCOMPARE(Read(cl, g + "Hidden").status, UA_STATUSCODE_BADNOTREADABLE);

        // A stopped exchange holds every value with its source time as the last usable one;
        // starting it lets them move again, good.
        QCOMPARE(GatewayProcess::call(cl, "stopExchange", "emul"), UA_STATUSCODE_GOOD);
        const Value frozen = Read(cl, g + "Rand");
        QCOMPARE(frozen.status, UA_STATUSCODE_UNCERTAINLASTUSABLEVALUE);
        for (int i = 0; i < 3; ++i, QTest::qWait(60)) {
            const Value now = Read(cl, g + "Rand");
            QVERIFY(now.number == frozen.number && now.source == frozen.source &&
                    now.status == frozen.status);
        }
        QCOMPARE(GatewayProcess::call(cl, "startExchange", "emul"), UA_STATUSCODE_GOOD);
        QCOMPARE(Read(cl, g + "Rand").status, UA_STATUSCODE_GOOD);
        QTRY_VERIFY_WITH_TIMEOUT(Read(cl, g + "Rand").number != frozen.number, 10000);
    }
};

QTEST_GUILESS_MAIN(TestGateway)
#include "tst_gateway.moc"
