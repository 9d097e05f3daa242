#include "gatewayprocess.h"

#include "config/scrambler.h"
#include "server/modbus/livevalue.h"
#include "tests/common/capturedlog.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/session.h"
#include "tests/common/testfiles.h"
#include "views/diagnosticsview.h"
#include "views/trendview.h"

#include <open62541/client_highlevel.h>

#include <QtTest>
#include <QtWidgets>

#include <csignal>
#include <memory>
#include <sys/prctl.h>

namespace {

using Process = std::shared_ptr<QProcess>;

// A child process that dies with the test, whatever ends the test.
Process Child(const QString& program, const QStringList& args)
{
    Process p(new QProcess, [](QProcess* q) { q->kill(), q->waitForFinished(5000), delete q; });
    p->setProcessChannelMode(QProcess::MergedChannels);
    p->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    p->start(program, args);
    p->waitForStarted(5000);
    return p;
}

struct Sim
{
    Process process;
    QString output;
    QStringList args;

    bool start()
    {
        process = Child("/usr/bin/python3", QStringList{VELMORA_MODBUS_SIM} + args);
        output.clear();
        return QTest::qWaitFor([this] { return read().contains("ready"); }, 20000);
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

QString Tcp(const char* name, int port, int timeout, int retries)
{
    return QString::asprintf("%s;%s;TCP-соединение;MODBUS TCP;%d;%d;0;127.0.0.1;%d;2000\n", kHead, name,
                             timeout, retries, port);
}

QString Serial(const char* name, int com, const char* protocol = "MODBUS RTU")
{
    return QString::asprintf("%s;%s;COM-порт;%s;300;2;0;%d;19200;8;1;Нет;Нет;Нет;Нет\n", kHead, name,
                             protocol, com);
}

QString Device(const char* name, int unit, const char* rate, const QString& tags)
{
    return QString::asprintf("DEVICE;1;2;3;4;5;6;7\n;%s;%d;Нет;125;2000;0;Да\nGROUP;1;2;3\n;Г;%s\n", name,
                             unit, rate) +
           "TAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n" + tags;
}

// Whole values of every type and byte order at consecutive input registers
// from 1: type, order, the simulator's type, value. The simulator encodes
// them itself, by the letters of the order.
const char kWhole[] = "Вещ32,AB CD,f32,1.5|Вещ32,CD AB,f32,-2.25|Вещ32,BA DC,f32,100.5|Вещ32,DC BA,f32,0.125|"
                      "Вещ64,AB CD EF GH,f64,10000000000.5|Вещ64,GH EF CD AB,f64,-3.75|"
                      "Вещ64,BA DC FE HG,f64,12345.678|Вещ64,HG FE DC BA,f64,0.0025|Цел16,AB,u16,54321|"
                      "Цел16,BA,u16,4660|Цел32,AB CD,u32,305419896|Цел32,CD AB,u32,4000000000|"
                      "Цел32,BA DC,u32,65538|Цел32,DC BA,u32,7|Цел16(знак),AB,i16,-300|Цел16(знак),BA,i16,-2|"
                      "Цел32(знак),AB CD,i32,-100000|Цел32(знак),CD AB,i32,-2|Цел32(знак),BA DC,i32,123456|"
                      "Цел32(знак),DC BA,i32,-7";

// Behind them: parts of registers, scales, a segment, the write targets and a
// tag that is not read.
const char kParts[] =
    ";low;Входной регистр;45;0;0;Да;;;Младший байт;;Нет;;;;;Константа;0\n"
    ";high;Входной регистр;45;0;0;Да;;;Старший байт;;Нет;;;;;Константа;0\n"
    ";bit0;Входной регистр;46;0;0;Да;;;Бит0;;Нет;;;;;Константа;0\n"
    ";bit15;Входной регистр;46;0;0;Да;;;Бит15;;Нет;;;;;Константа;0\n"
    ";scaled;Входной регистр;47;0;0;Да;;;Цел16;AB;Линейная шкала;0;1000;0;10;Константа;0\n"
    ";factor;Входной регистр;48;0;0;Да;;;Цел16(знак);AB;Множитель;0.1;;;;Константа;0\n"
    ";to_pm50;Входной регистр;49;0;0;Да;;;Цел16;AB;Линейная шкала;0;27648;-50;50;Константа;0\n"
    ";to_150;Входной регистр;50;0;0;Да;;;Цел16;AB;Линейная шкала;0;27648;0;150;Константа;0\n"
    ";tenth;Входной регистр;51;0;0;Да;;;Цел32(знак);AB CD;Множитель;0.1;;;;Константа;0\n"
    ";x10;Входной регистр;53;0;0;Да;;;Цел16;AB;Множитель;10;;;;Константа;0\n"
    ";scaled_w;Выходной регистр;5;0;0;Да;Да;Одиночная;Цел16;AB;Линейная шкала;0;27648;-50;50;"
    "Константа;0\n"
    ";half_w;Выходной регистр;6;0;0;Да;Да;Групповая;Цел16(знак);AB;Множитель;0.5;;;;Константа;0\n"
    ";segment;Выходной регистр;10;5;2;Да;Нет;Одиночная;Цел16;AB;Нет;;;;;Константа;0\n"
    ";i16_w;Выходной регистр;1;0;0;Да;Да;Одиночная;Цел16(знак);AB;Нет;;;;;Константа;0\n"
    ";f32_w;Выходной регистр;2;0;0;Да;Да;Групповая;Вещ32;AB CD;Нет;;;;;Константа;0\n"
    ";bit3_w;Выходной регистр;4;0;0;Да;Да;Одиночная;Бит3;;Нет;;;;;Константа;0\n"
    ";coil_1;Выходное состояние;1;0;0;Да;Да;Одиночная;;;;;;;;Константа;0\n"
    ";coil_2;Выходное состояние;2;0;0;Да;Да;Групповая;;;;;;;;Константа;0\n"
    ";input;Входное состояние;1;0;0;Да;;;;;;;;;;Константа;0\n"
    ";unread;Входной регистр;100;0;0;Нет;;;Цел16;AB;Нет;;;;;Константа;0\n";
// Scaled values are Doubles, whole or not, negative ranges too.
const std::pair<const char*, double> kPartValues[] = {{"low", 0x12},
                                                      {"high", 0xAB},
                                                      {"bit0", 0},
                                                      {"bit15", 1},
                                                      {"scaled", 5},
                                                      {"factor", -21},
                                                      {"segment", 777},
                                                      {"input", 1},
                                                      {"to_pm50", -50 + 5000 * 100 / 27648.0},
                                                      {"to_150", 10000 * 150 / 27648.0},
                                                      {"tenth", -12345 * double(0.1f)},
                                                      {"x10", 100000}};
// 0xAB12 for the bytes, 0x8000 for the bits, bit 8 that a write of bit 3 must keep.
const char* const kPartSets[] = {"1:ir:45=u16:AB:43794", "1:ir:46=u16:AB:32768", "1:ir:47=u16:AB:500",
                                 "1:ir:48=i16:AB:-210",  "1:hr:12=u16:AB:777",   "1:hr:4=u16:AB:256",
                                 "1:di:1=bit:1",         "2:di:1=bit:1",         "1:ir:200=u16:AB:4242",
                                 "1:ir:49=u16:AB:5000",  "1:ir:50=u16:AB:10000", "1:ir:51=i32:ABCD:-12345",
                                 "1:ir:53=u16:AB:10000"};

// Config rows, simulator arguments and expected values of the typed device.
QString WholeTags(QStringList& sets, QList<std::pair<QString, double>>& expected)
{
    QString rows;
    int addr = 1;
    for (const QString& entry : QString(kWhole).split('|')) {
        const QStringList f = entry.split(',');
        rows +=
            QString(";w%1;Входной регистр;%1;0;0;Да;;;%2;%3;Нет;;;;;Константа;0\n").arg(addr).arg(f[0], f[1]);
        sets << "--set" << QString("1:ir:%1=%2:%3:%4").arg(addr).arg(f[2], QString(f[1]).remove(' '), f[3]);
        expected.append({QString("w%1").arg(addr), f[3].toDouble()});
        addr += f[2] == "f64" ? 4 : f[2].endsWith("32") ? 2 : 1;
    }
    for (const auto& p : kPartValues)
        expected.append({p.first, p.second});
    for (const char* set : kPartSets)
        sets << "--set" << set;
    return rows;
}

} // namespace

// The gateway polling simulated devices: Modbus TCP and RTU, every value type
// and byte order, writes, re-planning, outages and devices that misbehave; and
// the program watching and writing them.
class TestModbusGateway : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    Sim m_typed, m_outage, m_rtu, m_exceptions, m_garbage, m_panel;
    QString m_config;
    Process m_socat;
    GatewayProcess m_gateway;
    GatewayProcess::Client m_client{nullptr, nullptr};
    QList<std::pair<QString, double>> m_expected;

    using Reading = GatewayProcess::Reading;
    Reading Get(const QString& tag) { return GatewayProcess::read(m_client.get(), tag.toUtf8()); }
    UA_StatusCode Status(const QString& tag) { return Get(tag).status; }
    double Value(const QString& tag) { return Get(tag).number; }
    template <typename T> UA_StatusCode Write(const QString& tag, T value, int type)
    {
        const QByteArray id = tag.toUtf8();
        return UA_Client_writeValueAttribute_scalar(m_client.get(), GatewayProcess::nodeId(id), &value,
                                                    &UA_TYPES[type]);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        const int port = GatewayProcess::freePort(); // and the four above it
        m_typed.args = QStringList{"--tcp", QString::number(port), "--units", "1,2", "--silent-others"};
        const QString wholeTags = WholeTags(m_typed.args, m_expected);
        m_outage.args = QStringList{"--tcp", QString::number(port + 1), "--set", "1:hr:1=u16:AB:11"};
        m_exceptions.args = QStringList{"--tcp", QString::number(port + 2), "--size", "100"};
        m_garbage.args = QStringList{"--tcp", QString::number(port + 3), "--garbage"};
        m_panel.args =
            QStringList{"--tcp", QString::number(port + 4), "--clock", "1:1", "--set", "1:ir:3=u16:AB:7"};

        // A pty pair stands in for the serial line.
        const QString a = m_dir.filePath("ttyA"), b = m_dir.filePath("ttyB");
        m_socat = Child("socat", {"pty,raw,echo=0,link=" + a, "pty,raw,echo=0,link=" + b});
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(a) && QFileInfo::exists(b), 10000);
        m_rtu.args =
            QString("--serial %1 --baud 19200 --units 3 --set 3:ir:7=f32:CDAB:-1.25 --set 3:co:2=bit:1")
                .arg(b)
                .split(' ');
        for (Sim* sim : {&m_typed, &m_outage, &m_exceptions, &m_garbage, &m_rtu, &m_panel})
            QVERIFY2(sim->start(), qPrintable(sim->output));

        const QString one =
            Device("Д", 1, "200;мс", ";t;Входной регистр;1;0;0;Да;;;Цел16;AB;Нет;;;;;Константа;0\n");
        // A unit nobody answers for, beside live ones on a TCP channel and on a serial line.
        const QString dead = ";t;Входной регистр;1;0;0;Да;;;Цел16;AB;Нет;;;;;Константа;0\n"
                             ";w;Выходной регистр;1;0;0;Да;Да;Одиночная;Цел16;AB;Нет;;;;;Константа;0\n";
        const QString config =
            Tcp("Типы", port, 500, 3) + Device("Первый", 1, "1;ч", wholeTags + kParts) +
            Device("Второй", 2, "1;ч", ";di;Входное состояние;1;0;0;Да;;;;;;;;;;Константа;0\n") +
            Device("Мёртвый", 9, "200;мс", dead) + Tcp("Обрыв", port + 1, 300, 2) +
            Device("Д", 1, "200;мс",
                   ";t;Выходной регистр;1;0;0;Да;Да;Одиночная;Цел16;AB;Нет;;;;;Константа;0\n") +
            Serial("Линия", 1) +
            Device("Д", 3, "100;мс",
                   ";f;Входной регистр;7;0;0;Да;;;Вещ32;CD AB;Нет;;;;;Константа;0\n"
                   ";c;Выходное состояние;2;0;0;Да;Да;Одиночная;;;;;;;;Константа;0\n") +
            Device("Мёртвый", 4, "100;мс", dead) + Tcp("Исключения", port + 2, 300, 1) +
            QString(one).replace(";1;0;0;Да;", ";500;0;0;Да;") + Tcp("Мусор", port + 3, 300, 1) + one +
            Serial("Нет_порта", 7) + one + Serial("Аскии", 8, "MODBUS ASCII") + one +
            Tcp("Пульт", port + 4, 500, 2) +
            Device("Д", 1, "100;мс",
                   ";clock;Входной регистр;1;0;0;Да;;;Цел32;AB CD;Нет;;;;;Константа;0\n"
                   ";level;Входной регистр;3;0;0;Да;;;Цел16;AB;Нет;;;;;Константа;0\n"
                   ";ratio;Выходной регистр;2;0;0;Да;Да;Групповая;Вещ32;AB CD;Нет;;;;;Константа;0\n"
                   ";setpoint;Выходной регистр;1;0;0;Да;Да;Одиночная;Цел16(знак);AB;Нет;;;;;Константа;0\n");
        const QString path = m_config = m_dir.filePath("modbus.cfg");
        QVERIFY(CScrambler::WriteFile(path, config));
        qputenv("VELMORA_COM_PORTS", QString("1=%1,7=/nonexistent/ttyX").arg(a).toUtf8());
        QVERIFY2(m_gateway.start(GatewayProcess::Options(path)), qPrintable(m_gateway.output()));

        m_client = GatewayProcess::connect(m_gateway.url());
        QVERIFY(m_client);
    }

    void valuesArriveInOneCycleOfPlannedRequests()
    {
        for (const auto& [name, value] : m_expected) {
            const QString tag = "Типы.Первый.Г." + name;
            QTRY_COMPARE_WITH_TIMEOUT(Status(tag), UA_STATUSCODE_GOOD, 15000);
            const double v = Value(tag);
            QVERIFY2(std::fabs(v - value) <= 1e-6 * std::max(1.0, std::fabs(value)),
                     qPrintable(QString("%1: %2, expected %3").arg(name).arg(v, 0, 'g', 17).arg(value)));
        }
        // A transformation publishes a Double, whatever the register holds; the rest keep their types.
        for (const char* scaled : {"scaled", "factor", "to_pm50", "to_150", "tenth", "x10"})
            QCOMPARE(Get(QString("Типы.Первый.Г.") + scaled).type, &UA_TYPES[UA_TYPES_DOUBLE]);
        QCOMPARE(Get("Типы.Первый.Г.w1").type, &UA_TYPES[UA_TYPES_FLOAT]);
        QCOMPARE(Get("Типы.Первый.Г.w25").type, &UA_TYPES[UA_TYPES_UINT16]);
        // "Чтение" "Нет": nothing to read, and a read says so.
        QCOMPARE(Status("Типы.Первый.Г.unread"), UA_STATUSCODE_BADNOTREADABLE);
        // The period is an hour: what the simulator saw is one cycle. Input
        // registers 1-48 in one request, holding registers 1-4 and the segment
        // 10-14 in two, coils, inputs, and the second device's input.
        QTRY_VERIFY(m_gateway.output().contains("устройство Первый: запросов за цикл 5"));
        QTRY_VERIFY_WITH_TIMEOUT(m_gateway.output().contains("устройство Второй: запросов за цикл 1"), 10000);
        QTRY_COMPARE_WITH_TIMEOUT(m_typed.requests(), 6, 5000);

        // A new tag re-plans its own device only.
        QCOMPARE(GatewayProcess::call(m_client.get(), "addNode",
                                      "Типы.Первый.Г;4;added;2;200;2;0;1;0;0;0;0;0;0;0;0"),
                 UA_STATUSCODE_GOOD);
        // One that would run past register 65535 is refused and changes nothing.
        QCOMPARE(GatewayProcess::call(m_client.get(), "addNode",
                                      "Типы.Первый.Г;4;edge;2;65535;1;0;1;0;0;0;0;0;0;0;0"),
                 UA_STATUSCODE_BADOUTOFRANGE);
        QTRY_COMPARE_WITH_TIMEOUT(Value("Типы.Первый.Г.added"), 4242.0, 10000);
        QTRY_COMPARE(m_typed.requests(), 12);
        QTRY_VERIFY_WITH_TIMEOUT(m_gateway.output().contains("устройство Первый: запросов за цикл 6"), 10000);
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
        // Any number may be written: back through the scale, rounded to the register's type;
        // the tag then shows what the register holds. A result the type cannot hold is refused.
        QCOMPARE(Write<UA_Double>(g + "scaled_w", 12.34, UA_TYPES_DOUBLE), UA_STATUSCODE_GOOD);
        QCOMPARE(Value(g + "scaled_w"), -50 + 17236 * 100 / 27648.0);
        QCOMPARE(Write<UA_Float>(g + "half_w", 3.7f, UA_TYPES_FLOAT), UA_STATUSCODE_GOOD);
        QCOMPARE(Write<UA_Int32>(g + "i16_w", -5, UA_TYPES_INT32), UA_STATUSCODE_GOOD);
        QCOMPARE(Write<UA_Double>(g + "i16_w", 2.6, UA_TYPES_DOUBLE), UA_STATUSCODE_GOOD);
        QCOMPARE(Write<UA_Double>(g + "scaled_w", 200, UA_TYPES_DOUBLE), UA_STATUSCODE_BADOUTOFRANGE);
        QTRY_VERIFY(m_typed.read().contains("write 1 hr 1 3\n"));
        for (const char* line : {"write 1 hr 5 17236\n", "write 1 hr 6 7\n", "write 1 hr 1 65531\n"})
            QVERIFY2(sim.contains(line), line);
        QVERIFY(
            m_gateway.output().contains("Канал Типы, устройство Первый, тег Типы.Первый.Г.scaled_w: запись "
                                        "отклонена: 69120 вне диапазона типа «Цел16» (0…65535)"));
        // Inputs, and outputs with writing off, stay read-only.
        QVERIFY(Write<UA_Boolean>(g + "input", true, UA_TYPES_BOOLEAN) != UA_STATUSCODE_GOOD);
        QVERIFY(Write<UA_UInt16>(g + "segment", 1, UA_TYPES_UINT16) != UA_STATUSCODE_GOOD);

        // The same over RTU.
        QTRY_COMPARE_WITH_TIMEOUT(Value("Линия.Д.Г.f"), -1.25, 15000);
        QCOMPARE(Value("Линия.Д.Г.c"), 1.0);
        QCOMPARE(Write<UA_Boolean>("Линия.Д.Г.c", false, UA_TYPES_BOOLEAN), UA_STATUSCODE_GOOD);
        QTRY_VERIFY(m_rtu.read().contains("write 3 co 2 0\n"));
    }

    // A unit that never answers is asked once per demotion period: its tags stay bad, a write to
    // it fails at once, and the live units on its line go on (at their rates: bench_modbus).
    void deadUnitsHarmNoOther()
    {
        for (const auto& [channel, unit] : {std::pair<QString, int>{"Типы", 9}, {"Линия", 4}}) {
            QTRY_COMPARE_WITH_TIMEOUT(Status(channel + ".Мёртвый.Г.t"), UA_STATUSCODE_BADTIMEOUT, 15000);
            QTRY_VERIFY_WITH_TIMEOUT(
                m_gateway.output().contains(
                    QString("Канал %1, устройство Мёртвый (адрес %2) не отвечает: спрашивается "
                            "раз в 1 с, затем всё реже, до раза в 30 с")
                        .arg(channel)
                        .arg(unit)),
                10000);
            QCOMPARE(Write<UA_UInt16>(channel + ".Мёртвый.Г.w", 1, UA_TYPES_UINT16),
                     UA_STATUSCODE_BADTIMEOUT);
        }
        const Reading live = Get("Линия.Д.Г.f");
        QCOMPARE(live.status, UA_STATUSCODE_GOOD);
        QTRY_VERIFY_WITH_TIMEOUT(Get("Линия.Д.Г.f").source > live.source, 5000);
    }

    // The program on the same gateway: two tags on the trend, their points
    // arriving and saved as CSV, values written from the monitoring table, and
    // the device's diagnostics while it goes silent and comes back.
    void commissioningFromTheProgram()
    {
        // The program's log is read here, and printed again once the window is gone.
        CapturedLog::install();
        const std::shared_ptr<void> printAgain(nullptr, [](void*) { qInstallMessageHandler(nullptr); });
        Session s(m_config);
        auto* view = requireChild<DiagnosticsView>(&s.w, "diagnosticsView");
        s.select(s.node("Пульт.Д"));
        QTRY_VERIFY(!view->isHidden() && requireChild<QLabel>(view, "diagnosticsMessage")
                                             ->text()
                                             .startsWith("Нет подключения к серверу OPC UA"));
        s.watcher.answerConnect(m_gateway.url());
        s.w.findChild<QAction*>("action")->trigger();
        s.select(s.node("Пульт.Д.Г"));
        s.w.findChild<QAction*>("monitoring_action")->trigger();
        QVERIFY(MainWindowProbe::monitoring(s.w));
        auto* table = requireChild<QTableView>(&s.w, "tableView_2");
        QTRY_COMPARE_WITH_TIMEOUT(table->model()->index(1, 1).data().toString(), QString("7"), 10000);
        QMenu menu;
        // The command of that text in the table's menu for a row; null when not offered.
        const auto command = [&](int row, const QString& text) -> QAction* {
            menu.clear();
            s.w.fillMonitoringMenu(menu, row);
            for (QAction* action : menu.actions())
                if (action->text() == text)
                    return action;
            return nullptr;
        };

        // Rows clock, level, ratio, setpoint: the first two onto the plot.
        for (int row : {0, 1})
            table->selectionModel()->select(table->model()->index(row, 0),
                                            QItemSelectionModel::Select | QItemSelectionModel::Rows);
        command(1, "Показать на графике")->trigger();
        auto* trend = requireChild<TrendView>(&s.w, "trendView");
        const QString clock = "Пульт.Д.Г.clock", level = "Пульт.Д.Г.level";
        QCOMPARE(trend->names(), (QStringList{clock, level}));
        QVERIFY(trend->isVisible() && command(0, "Убрать с графика"));
        // The clock changes all the time, the level holds the value it showed.
        QTRY_VERIFY_WITH_TIMEOUT(trend->buffer(clock)->size() >= 10, 10000);
        QVERIFY(trend->buffer(level)->size() >= 1 && trend->buffer(level)->at(0).value == 7);

        // Holding registers are written, the input register is not offered.
        QVERIFY(!command(1, "Записать значение…"));
        QList<bool> accepted;
        s.watcher.answer([&accepted](QWidget* d) {
            auto* ok = requireChild<QDialogButtonBox>(d, "buttonBox")->button(QDialogButtonBox::Ok);
            for (const char* typed : {"70000", "12,5", "", "-1 234"}) {
                requireChild<QLineEdit>(d, "valueEdit")->setText(QString::fromUtf8(typed));
                accepted << ok->isEnabled();
            }
            ok->click();
        });
        command(3, "Записать значение…")->trigger();
        QCOMPARE(accepted, (QList<bool>{false, false, false, true}));
        QTRY_VERIFY(m_panel.read().contains("write 1 hr 1 64302\n"));
        // The register holds it: polled back, the table shows it.
        QTRY_COMPARE_WITH_TIMEOUT(table->model()->index(3, 1).data().toString(), QString("-1234"), 10000);
        const QString answer = "Запись значения -1234 в тег Пульт.Д.Г.setpoint: Good";
        QTRY_COMPARE(s.w.statusBar()->currentMessage(), answer);
        QVERIFY(CapturedLog::take().contains("I " + answer));
        s.accept([](QWidget* d) { requireChild<QLineEdit>(d, "valueEdit")->setText("1,5"); });
        command(2, "Записать значение…")->trigger();
        QTRY_VERIFY(m_panel.read().contains("write 1 hr 2 16320 0\n"));

        // The device stops answering: its state, counts and error, and its mark in the tree.
        s.select(s.node("Пульт.Д"));
        auto* diagnostics = requireChild<QTableWidget>(view, "diagnosticsTable");
        const auto shown = [diagnostics](const QString& caption) {
            for (int r = 0; r < diagnostics->rowCount(); ++r)
                if (diagnostics->item(r, 0)->text() == caption)
                    return diagnostics->item(r, 1)->text();
            return QString();
        };
        QTRY_COMPARE_WITH_TIMEOUT(shown("Состояние"), QString("опрашивается"), 10000);
        QTRY_VERIFY(shown("Ответов").toInt() > 0 && shown("Таймаутов") == "0");
        QTreeWidgetItem* row = s.row(s.node("Пульт.Д"));
        ::kill(pid_t(m_panel.process->processId()), SIGSTOP);
        QTRY_COMPARE_WITH_TIMEOUT(shown("Состояние"), QString("не отвечает, опрашивается реже"), 10000);
        QTRY_VERIFY(shown("Таймаутов").toInt() > 0 && shown("Последняя ошибка") == "нет ответа");
        QTRY_COMPARE(row->toolTip(0), QString("Устройство не отвечает: опрашивается реже"));
        ::kill(pid_t(m_panel.process->processId()), SIGCONT);
        QTRY_COMPARE_WITH_TIMEOUT(shown("Состояние"), QString("опрашивается"), 20000);
        QTRY_VERIFY(row->toolTip(0).isEmpty());
        s.select(s.node("Пульт.Д.Г"));
        QTRY_VERIFY(view->isHidden());

        // The plotted points as CSV; a file that can't be written loses none of them.
        const QString csv = m_dir.filePath("trend.csv");
        s.watcher.answerFile(csv);
        requireChild<QPushButton>(trend, "exportButton")->click();
        const QString text = QString::fromUtf8(readFile(csv));
        QVERIFY2(text.startsWith("\uFEFFВремя;Тег;Значение;Качество\n") &&
                     text.contains(";" + level + ";7;Good\n") && text.count(";" + clock + ";") >= 10,
                 qPrintable(text.left(500)));
        const int points = trend->buffer(clock)->size();
        s.watcher.answerFile(m_dir.filePath("нет/trend.csv"));
        s.watcher.answer(QMessageBox::Ok);
        requireChild<QPushButton>(trend, "exportButton")->click();
        QVERIFY(s.watcher.seen().last().text.startsWith("Не удалось сохранить график в файл"));
        QVERIFY(trend->buffer(clock)->size() >= points);

        // Not monitoring: the plot stays, the table offers nothing.
        s.w.findChild<QAction*>("monitoring_action")->trigger();
        QVERIFY(!command(0, "Убрать с графика") && menu.isEmpty() && trend->names().size() == 2);
        QCOMPARE(s.watcher.pending(), 0);
    }

    void outageTurnsTagsBadAndBack()
    {
        const QString tag = "Обрыв.Д.Г.t";
        QTRY_COMPARE_WITH_TIMEOUT(Value(tag), 11.0, 15000);

        // A stopped exchange holds the value with its time as the last usable one until a start.
        QCOMPARE(GatewayProcess::call(m_client.get(), "stopExchange", "emul"), UA_STATUSCODE_GOOD);
        QTRY_COMPARE(Status(tag), UA_STATUSCODE_UNCERTAINLASTUSABLEVALUE);
        const Reading held = Get(tag);
        for (int i = 0; i < 3; ++i, QTest::qWait(200)) {
            const Reading now = Get(tag);
            QVERIFY(now.status == held.status && now.number == 11.0 && now.source == held.source);
        }
        QCOMPARE(GatewayProcess::call(m_client.get(), "startExchange", "emul"), UA_STATUSCODE_GOOD);
        QTRY_COMPARE(Status(tag), UA_STATUSCODE_GOOD);
        QVERIFY(Get(tag).source > held.source);

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
        m_outage.process.reset();
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
        // Addresses as the configuration counts them, with the tags they hold; reasons in Russian.
        QVERIFY2(
            out.contains("Канал Исключения, устройство Д, входные регистры 500–500 (тег Исключения.Д.Г.t): "
                         "недопустимый адрес данных (исключение 2)"),
            qPrintable(out));
        QVERIFY(out.contains("Канал Мусор, устройство Д, входные регистры 1–1 (тег Мусор.Д.Г.t): "));
        QVERIFY(out.contains("Канал Нет_порта: нет связи с /nonexistent/ttyX: нет такого устройства"));
        QVERIFY(out.contains("Канал Аскии не опрашивается: протокол MODBUS ASCII не поддерживается"));
        // Still running; shutdown ends every channel thread and exits cleanly.
        QCOMPARE(m_gateway.stop(10000), 0);
    }
};

QTEST_MAIN(TestModbusGateway)
#include "tst_modbusgateway.moc"
