#include "gatewayprocess.h"

#include "config/scrambler.h"
#include "server/modbus/livevalue.h"

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>
#include <open62541/plugin/log_stdout.h>

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <memory>
#include <sys/prctl.h>

namespace {

// A child process that dies with the test, whatever ends the test.
std::unique_ptr<QProcess> Child(const QString& program, const QStringList& args)
{
    auto p = std::make_unique<QProcess>();
    p->setProcessChannelMode(QProcess::MergedChannels);
    p->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    p->start(program, args);
    p->waitForStarted(5000);
    return p;
}

struct Sim
{
    std::unique_ptr<QProcess> process;
    QString output;
    QStringList args;

    bool start()
    {
        process = Child("/usr/bin/python3", QStringList{VELMORA_MODBUS_SIM} + args);
        output.clear();
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < 20000 && !read().contains("ready"))
            process->waitForReadyRead(200);
        return output.contains("ready");
    }
    const QString& read()
    {
        output += QString::fromUtf8(process->readAll());
        return output;
    }
    int requests()
    {
        const int at = read().lastIndexOf("requests ");
        return at < 0 ? -1 : output.mid(at + 9).section('\n', 0, 0).toInt();
    }
};

const char kHead[] = "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n";

QString Tcp(const QString& name, quint16 port, int timeout, int retries)
{
    return kHead + QString(";%1;TCP-соединение;MODBUS TCP;%2;%3;0;127.0.0.1;%4;2000\n")
                       .arg(name)
                       .arg(timeout)
                       .arg(retries)
                       .arg(port);
}

QString Serial(const QString& name, int com, const QString& protocol = "MODBUS RTU")
{
    return kHead +
           QString(";%1;COM-порт;%2;300;2;0;%3;19200;8;1;Нет;Нет;Нет;Нет\n").arg(name, protocol).arg(com);
}

QString Device(const QString& name, int unit, const QString& rate, const QString& tags)
{
    return QString("DEVICE;1;2;3;4;5;6;7\n;%1;%2;Нет;125;2000;0;Да\nGROUP;1;2;3\n;Г;%3\n"
                   "TAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n%4")
        .arg(name)
        .arg(unit)
        .arg(rate, tags);
}

// One value of each type and byte order, and the write targets. The
// simulator encodes the values itself, by the letters of the byte order.
struct Typed
{
    const char* name;
    const char* row; // after the name: register type to byte order, or to the transformation
    const char* set;
    double value;
};
const Typed kTyped[] = {
    {"f32_abcd", "Входной регистр;1;0;0;Да;;;Вещ32;AB CD", "1:ir:1=f32:ABCD:1.5", 1.5},
    {"f32_cdab", "Входной регистр;3;0;0;Да;;;Вещ32;CD AB", "1:ir:3=f32:CDAB:-2.25", -2.25},
    {"f32_badc", "Входной регистр;5;0;0;Да;;;Вещ32;BA DC", "1:ir:5=f32:BADC:100.5", 100.5},
    {"f32_dcba", "Входной регистр;7;0;0;Да;;;Вещ32;DC BA", "1:ir:7=f32:DCBA:0.125", 0.125},
    {"f64_1", "Входной регистр;9;0;0;Да;;;Вещ64;AB CD EF GH", "1:ir:9=f64:ABCDEFGH:10000000000.5",
     1e10 + 0.5},
    {"f64_2", "Входной регистр;13;0;0;Да;;;Вещ64;GH EF CD AB", "1:ir:13=f64:GHEFCDAB:-3.75", -3.75},
    {"f64_3", "Входной регистр;17;0;0;Да;;;Вещ64;BA DC FE HG", "1:ir:17=f64:BADCFEHG:12345.678", 12345.678},
    {"f64_4", "Входной регистр;21;0;0;Да;;;Вещ64;HG FE DC BA", "1:ir:21=f64:HGFEDCBA:0.0025", 0.0025},
    {"u16_ab", "Входной регистр;25;0;0;Да;;;Цел16;AB", "1:ir:25=u16:AB:54321", 54321},
    {"u16_ba", "Входной регистр;26;0;0;Да;;;Цел16;BA", "1:ir:26=u16:BA:4660", 4660},
    {"u32_abcd", "Входной регистр;27;0;0;Да;;;Цел32;AB CD", "1:ir:27=u32:ABCD:305419896", 305419896},
    {"u32_cdab", "Входной регистр;29;0;0;Да;;;Цел32;CD AB", "1:ir:29=u32:CDAB:4000000000", 4e9},
    {"u32_badc", "Входной регистр;31;0;0;Да;;;Цел32;BA DC", "1:ir:31=u32:BADC:65538", 65538},
    {"u32_dcba", "Входной регистр;33;0;0;Да;;;Цел32;DC BA", "1:ir:33=u32:DCBA:7", 7},
    {"i16_ab", "Входной регистр;35;0;0;Да;;;Цел16(знак);AB", "1:ir:35=i16:AB:-300", -300},
    {"i16_ba", "Входной регистр;36;0;0;Да;;;Цел16(знак);BA", "1:ir:36=i16:BA:-2", -2},
    {"i32_abcd", "Входной регистр;37;0;0;Да;;;Цел32(знак);AB CD", "1:ir:37=i32:ABCD:-100000", -100000},
    {"i32_cdab", "Входной регистр;39;0;0;Да;;;Цел32(знак);CD AB", "1:ir:39=i32:CDAB:-2", -2},
    {"i32_badc", "Входной регистр;41;0;0;Да;;;Цел32(знак);BA DC", "1:ir:41=i32:BADC:123456", 123456},
    {"i32_dcba", "Входной регистр;43;0;0;Да;;;Цел32(знак);DC BA", "1:ir:43=i32:DCBA:-7", -7},
    {"low", "Входной регистр;45;0;0;Да;;;Младший байт;", "1:ir:45=u16:AB:43794", 0x12},
    {"high", "Входной регистр;45;0;0;Да;;;Старший байт;", "", 0xAB},
    {"bit0", "Входной регистр;46;0;0;Да;;;Бит0;", "1:ir:46=u16:AB:32768", 0},
    {"bit15", "Входной регистр;46;0;0;Да;;;Бит15;", "", 1},
    {"scaled", "Входной регистр;47;0;0;Да;;;Цел16;AB;Линейная шкала;0;1000;0;10", "1:ir:47=u16:AB:500", 5},
    {"factor", "Входной регистр;48;0;0;Да;;;Цел16(знак);AB;Множитель;0.1", "1:ir:48=i16:AB:-210", -21},
    {"segment", "Выходной регистр;10;5;2;Да;Нет;Одиночная;Цел16;AB", "1:hr:12=u16:AB:777", 777},
    {"i16_w", "Выходной регистр;1;0;0;Да;Да;Одиночная;Цел16(знак);AB", "", 0},
    {"f32_w", "Выходной регистр;2;0;0;Да;Да;Групповая;Вещ32;AB CD", "", 0},
    {"bit3_w", "Выходной регистр;4;0;0;Да;Да;Одиночная;Бит3;", "1:hr:4=u16:AB:256", 0},
    {"coil_1", "Выходное состояние;1;0;0;Да;Да;Одиночная;;", "", 0},
    {"coil_2", "Выходное состояние;2;0;0;Да;Да;Групповая;;", "", 0},
    {"input", "Входное состояние;1;0;0;Да;;;;", "1:di:1=bit:1", 1},
    {"unread", "Входной регистр;100;0;0;Нет;;;Цел16;AB", "", 0},
};
// 0xAB12 is read as two bytes, 0x8000 as two bits; bit 8 must survive a write of bit 3.
const char* const kMoreSets[] = {"2:di:1=bit:1", "1:ir:200=u16:AB:4242"};

QString TypedTags()
{
    QString rows;
    for (const Typed& t : kTyped) {
        QString row = QString(";%1;%2").arg(t.name, t.row);
        if (row.count(';') == 10)
            row += ";Нет";
        while (row.count(';') < 15)
            row += ';';
        rows += row + ";Константа;0\n";
    }
    return rows;
}

using Client = std::unique_ptr<UA_Client, void (*)(UA_Client*)>;

UA_NodeId Id(const QByteArray& utf8)
{
    return UA_NODEID_STRING(2, const_cast<char*>(utf8.constData()));
}

} // namespace

// The gateway polling simulated devices: Modbus TCP and RTU, every value type
// and byte order, writes, re-planning, outages and devices that misbehave.
class TestModbusGateway : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    Sim m_typed, m_outage, m_rtu, m_exceptions, m_garbage;
    std::unique_ptr<QProcess> m_socat;
    GatewayProcess m_gateway;
    Client m_client{nullptr, nullptr};

    // A tag's status and value as one read returns them: a bad status may
    // come with the last value.
    std::pair<UA_StatusCode, double> Get(const QString& tag)
    {
        const QByteArray id = tag.toUtf8();
        UA_ReadValueId rvi;
        UA_ReadValueId_init(&rvi);
        rvi.nodeId = Id(id);
        rvi.attributeId = UA_ATTRIBUTEID_VALUE;
        UA_ReadRequest request;
        UA_ReadRequest_init(&request);
        request.nodesToRead = &rvi;
        request.nodesToReadSize = 1;
        UA_ReadResponse response = UA_Client_Service_read(m_client.get(), request);
        std::pair<UA_StatusCode, double> out{UA_STATUSCODE_BAD, std::nan("")};
        if (response.resultsSize == 1) {
            const UA_DataValue& dv = response.results[0];
            out.first = dv.hasStatus ? dv.status : UA_STATUSCODE_GOOD;
            if (dv.hasValue)
                CLiveValue::FromVariant(dv.value, out.second);
        }
        UA_ReadResponse_clear(&response);
        return out;
    }
    UA_StatusCode Status(const QString& tag) { return Get(tag).first; }
    double Value(const QString& tag) { return Get(tag).second; }
    template <typename T> UA_StatusCode Write(const QString& tag, T value, int type)
    {
        const QByteArray id = tag.toUtf8();
        return UA_Client_writeValueAttribute_scalar(m_client.get(), Id(id), &value, &UA_TYPES[type]);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        const quint16 typedPort = GatewayProcess::freePort();
        const quint16 outagePort = GatewayProcess::freePort() + 1;
        const quint16 exceptionsPort = GatewayProcess::freePort() + 2;
        const quint16 garbagePort = GatewayProcess::freePort() + 3;
        m_typed.args = QStringList{"--tcp", QString::number(typedPort), "--units", "1,2"};
        for (const Typed& t : kTyped)
            if (*t.set)
                m_typed.args << "--set" << t.set;
        for (const char* set : kMoreSets)
            m_typed.args << "--set" << set;
        m_outage.args = QStringList{"--tcp", QString::number(outagePort), "--set", "1:hr:1=u16:AB:11"};
        m_exceptions.args = QStringList{"--tcp", QString::number(exceptionsPort), "--size", "100"};
        m_garbage.args = QStringList{"--tcp", QString::number(garbagePort), "--garbage"};

        // A pty pair stands in for the serial line.
        const QString a = m_dir.filePath("ttyA"), b = m_dir.filePath("ttyB");
        m_socat = Child("socat",
                        {QString("pty,raw,echo=0,link=%1").arg(a), QString("pty,raw,echo=0,link=%1").arg(b)});
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(a) && QFileInfo::exists(b), 10000);
        m_rtu.args = QStringList{
            "--serial",    b, "--baud", "19200", "--units", "3", "--set", "3:ir:7=f32:CDAB:-1.25", "--set",
            "3:co:2=bit:1"};
        for (Sim* sim : {&m_typed, &m_outage, &m_exceptions, &m_garbage, &m_rtu})
            QVERIFY2(sim->start(), qPrintable(sim->output));

        const QString one =
            Device("Д", 1, "200;мс", ";t;Входной регистр;1;0;0;Да;;;Цел16;AB;Нет;;;;;Константа;0\n");
        const QString config =
            Tcp("Типы", typedPort, 500, 3) + Device("Первый", 1, "1;ч", TypedTags()) +
            Device("Второй", 2, "1;ч", ";di;Входное состояние;1;0;0;Да;;;;;;;;;;Константа;0\n") +
            Tcp("Обрыв", outagePort, 300, 2) +
            Device("Д", 1, "200;мс",
                   ";t;Выходной регистр;1;0;0;Да;Да;Одиночная;Цел16;AB;Нет;;;;;Константа;0\n") +
            Serial("Линия", 1) +
            Device("Д", 3, "100;мс",
                   ";f;Входной регистр;7;0;0;Да;;;Вещ32;CD AB;Нет;;;;;Константа;0\n"
                   ";c;Выходное состояние;2;0;0;Да;Да;Одиночная;;;;;;;;Константа;0\n") +
            Tcp("Исключения", exceptionsPort, 300, 1) + QString(one).replace(";1;0;0;Да;", ";500;0;0;Да;") +
            Tcp("Мусор", garbagePort, 300, 1) + one + Serial("Нет_порта", 7) + one +
            Serial("Аскии", 8, "MODBUS ASCII") + one;
        const QString path = m_dir.filePath("modbus.cfg");
        QVERIFY(CScrambler::WriteFile(path, config));
        qputenv("VELMORA_COM_PORTS", QString("1=%1,7=/nonexistent/ttyX").arg(a).toUtf8());
        GatewayProcess::Options options(path);
        QVERIFY2(m_gateway.start(options), qPrintable(m_gateway.output()));

        UA_ClientConfig cc{};
        cc.logging = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
        UA_ClientConfig_setDefault(&cc);
        m_client = Client(UA_Client_newWithConfig(&cc), [](UA_Client* c) {
            UA_Client_disconnect(c);
            UA_Client_delete(c);
        });
        QCOMPARE(UA_Client_connect(m_client.get(), m_gateway.url().toUtf8().constData()), UA_STATUSCODE_GOOD);
    }

    void valuesArriveInOneCycleOfPlannedRequests()
    {
        for (const Typed& t : kTyped) {
            const QString tag = QString("Типы.Первый.Г.") + t.name;
            if (QByteArray(t.name) == "unread") {
                QCOMPARE(Status(tag), UA_STATUSCODE_BADNOCOMMUNICATION);
                continue;
            }
            QTRY_COMPARE_WITH_TIMEOUT(Status(tag), UA_STATUSCODE_GOOD, 15000);
            const double v = Value(tag);
            QVERIFY2(std::fabs(v - t.value) <= 1e-6 * std::max(1.0, std::fabs(t.value)),
                     qPrintable(QString("%1: %2, expected %3").arg(t.name).arg(v, 0, 'g', 17).arg(t.value)));
        }
        // The period is an hour: what the simulator saw is one cycle. Input
        // registers 1-48 in one request, holding registers 1-4 and the segment
        // 10-14 in two, coils, inputs, and the second device's input.
        QTRY_VERIFY(m_gateway.output().contains("устройство Первый: запросов за цикл 5"));
        QVERIFY(m_gateway.output().contains("устройство Второй: запросов за цикл 1"));
        QTRY_COMPARE_WITH_TIMEOUT(m_typed.requests(), 6, 5000);

        // A new tag re-plans its own device only.
        const QByteArray arg = "Типы.Первый.Г;4;added;2;200;2;0;1;0;0;0;0;0;0;0;0";
        UA_Variant in;
        UA_String s = UA_STRING(const_cast<char*>(arg.constData()));
        UA_Variant_setScalar(&in, &s, &UA_TYPES[UA_TYPES_STRING]);
        size_t outSize = 0;
        UA_Variant* out = nullptr;
        QCOMPARE(UA_Client_call(m_client.get(), Id("Каналы"), Id("Каналы.addNode"), 1, &in, &outSize, &out),
                 UA_STATUSCODE_GOOD);
        UA_Array_delete(out, outSize, &UA_TYPES[UA_TYPES_VARIANT]);
        QTRY_COMPARE_WITH_TIMEOUT(Value("Типы.Первый.Г.added"), 4242.0, 10000);
        QTRY_COMPARE(m_typed.requests(), 12);
        QVERIFY(m_gateway.output().contains("устройство Первый: запросов за цикл 6"));
        QCOMPARE(m_gateway.output().count("устройство Второй:"), 1);
    }

    void writesReachTheDevice()
    {
        const QString g = "Типы.Первый.Г.";
        QCOMPARE(Write<UA_Int16>(g + "i16_w", -123, UA_TYPES_INT16), UA_STATUSCODE_GOOD);
        QCOMPARE(Write<UA_Float>(g + "f32_w", 1.5f, UA_TYPES_FLOAT), UA_STATUSCODE_GOOD);
        QCOMPARE(Write<UA_Boolean>(g + "bit3_w", true, UA_TYPES_BOOLEAN), UA_STATUSCODE_GOOD);
        QCOMPARE(Write<UA_Boolean>(g + "coil_1", true, UA_TYPES_BOOLEAN), UA_STATUSCODE_GOOD);
        QCOMPARE(Write<UA_Boolean>(g + "coil_2", true, UA_TYPES_BOOLEAN), UA_STATUSCODE_GOOD);
        QCOMPARE(Value(g + "i16_w"), -123.0);
        QTRY_VERIFY(m_typed.read().contains("write 1 co 2 1\n"));
        const QString& sim = m_typed.output;
        QVERIFY2(sim.contains("write 1 hr 1 65413\n"), qPrintable(sim)); // function 6
        QVERIFY(sim.contains("write 1 hr 2 16320 0\n"));                 // function 16, both registers
        QVERIFY(sim.contains("write 1 hr 4 264\n"));                     // bit 3 set, bit 8 kept
        QVERIFY(sim.contains("write 1 co 1 1\n"));
        // Inputs, and outputs with writing off, stay read-only.
        QVERIFY(Write<UA_Boolean>(g + "input", true, UA_TYPES_BOOLEAN) != UA_STATUSCODE_GOOD);
        QVERIFY(Write<UA_UInt16>(g + "segment", 1, UA_TYPES_UINT16) != UA_STATUSCODE_GOOD);

        // The same over RTU.
        QTRY_COMPARE_WITH_TIMEOUT(Value("Линия.Д.Г.f"), -1.25, 15000);
        QCOMPARE(Value("Линия.Д.Г.c"), 1.0);
        QCOMPARE(Write<UA_Boolean>("Линия.Д.Г.c", false, UA_TYPES_BOOLEAN), UA_STATUSCODE_GOOD);
        QTRY_VERIFY(m_rtu.read().contains("write 3 co 2 0\n"));
    }

    void outageTurnsTagsBadAndBack()
    {
        const QString tag = "Обрыв.Д.Г.t";
        QTRY_COMPARE_WITH_TIMEOUT(Value(tag), 11.0, 15000);
        // A device that stops answering: timeout 300 ms × 2 attempts + a 200 ms period.
        QElapsedTimer t;
        t.start();
        ::kill(pid_t(m_outage.process->processId()), SIGSTOP);
        QTRY_COMPARE_WITH_TIMEOUT(Status(tag), UA_STATUSCODE_BADTIMEOUT, 10000);
        qInfo("Bad after %lld ms of silence (bar 800 ms)", t.elapsed());
        QVERIFY(t.elapsed() < 800 + 1500); // loaded machine slack
        QCOMPARE(Value(tag), 11.0);        // the last value stays
        ::kill(pid_t(m_outage.process->processId()), SIGCONT);
        QTRY_COMPARE_WITH_TIMEOUT(Status(tag), UA_STATUSCODE_GOOD, 10000);

        // A device that is gone, then back on its port.
        m_outage.process->kill();
        m_outage.process->waitForFinished(5000);
        QTRY_COMPARE_WITH_TIMEOUT(Status(tag), UA_STATUSCODE_BADNOCOMMUNICATION, 10000);
        QVERIFY(m_outage.start());
        QTRY_COMPARE_WITH_TIMEOUT(Status(tag), UA_STATUSCODE_GOOD, 15000);
    }

    void misbehavingDevicesAreToldAndBad()
    {
        QTRY_COMPARE_WITH_TIMEOUT(Status("Исключения.Д.Г.t"), UA_STATUSCODE_BADCOMMUNICATIONERROR, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(Status("Мусор.Д.Г.t"), UA_STATUSCODE_BADCOMMUNICATIONERROR, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(Status("Нет_порта.Д.Г.t"), UA_STATUSCODE_BADNOCOMMUNICATION, 10000);
        QCOMPARE(Status("Аскии.Д.Г.t"), UA_STATUSCODE_BADNOCOMMUNICATION);
        const QString out = m_gateway.output();
        QVERIFY2(out.contains("Канал Исключения, устройство Д, входные регистры 499+1: Illegal data address"),
                 qPrintable(out));
        QVERIFY(out.contains("Канал Мусор, устройство Д, входные регистры 0+1: "));
        QVERIFY(out.contains("Канал Нет_порта: нет связи с /nonexistent/ttyX: No such file or directory"));
        QVERIFY(out.contains("Канал Аскии не опрашивается: протокол MODBUS ASCII не поддерживается"));
        QVERIFY(m_gateway.running());
        // Shutdown ends every channel thread and exits cleanly.
        QCOMPARE(m_gateway.stop(10000), 0);
    }

    void cleanupTestCase()
    {
        m_gateway.stop();
        for (QProcess* p : {m_typed.process.get(), m_outage.process.get(), m_rtu.process.get(),
                            m_exceptions.process.get(), m_garbage.process.get(), m_socat.get()}) {
            if (p) {
                p->kill();
                p->waitForFinished(5000);
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestModbusGateway)
#include "tst_modbusgateway.moc"
