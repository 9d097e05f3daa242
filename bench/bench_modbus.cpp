// The gateway polling 10,000 registers of 10 devices on one Modbus TCP
// simulator at a 100 ms period: requests per cycle against the fewest that
// read every value whole, the gateway's CPU, and the time from a register
// change at the simulator to the OPC UA notification. Then a unit that never
// answers beside three live ones on one line, over TCP and over RTU: the live
// units' poll rate against the rate their groups ask for.
//
//   bench_modbus [seconds]
//
// The CPU figures are medians of BENCH_RUNS spans that share `seconds`, the
// latency's of as many spans of twice that length each.
#include "bench/benchsupport.h"
#include "config/scrambler.h"
#include "gatewayprocess.h"

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_subscriptions.h>
#include <open62541/plugin/log_stdout.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

const int kDevices = 10;
const int kPeriodMs = 100;
// Per device: 500 registers of 16-bit values, then 250 values of 32 bits.
const int kShort = 500;
const int kLong = 250;
// The gateway polling may take this share of the CPU the simulator takes to answer it.
const double kCpuRatio = 0.75;
// A change reaches a client within this many poll periods (95 % of them).
const double kLatencyPeriods = 1.2;

QString Config(int port)
{
    QString text = "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n";
    text += QString(";Стенд;TCP-соединение;MODBUS TCP;1000;3;0;127.0.0.1;%1;5000\n").arg(port);
    for (int d = 1; d <= kDevices; ++d) {
        text += QString("DEVICE;1;2;3;4;5;6;7\n;Д%1;%1;Нет;125;2000;0;Да\nGROUP;1;2;3\n;Г;%2;мс\n"
                        "TAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n")
                    .arg(d)
                    .arg(kPeriodMs);
        for (int i = 0; i < kShort; ++i)
            text += QString(";s%1;Входной регистр;%1;0;0;Да;;;Цел16;AB;Нет;;;;;Константа;0\n").arg(i + 1);
        for (int i = 0; i < kLong; ++i)
            text += QString(";l%1;Входной регистр;%1;0;0;Да;;;Цел32;AB CD;Нет;;;;;Константа;0\n")
                        .arg(kShort + 2 * i + 1);
    }
    return text;
}

// The fewest requests of at most `limit` registers that read each value
// whole, by dynamic programming over the values in address order.
int Fewest(const std::vector<std::pair<int, int>>& values, int limit)
{
    std::vector<int> best(values.size() + 1, 1 << 30);
    best[0] = 0;
    for (std::size_t j = 1; j <= values.size(); ++j) {
        int end = 0;
        for (std::size_t i = j; i-- > 0;) {
            end = std::max(end, values[i].first + values[i].second);
            if (end - values[i].first > limit)
                break;
            best[j] = std::min(best[j], best[i] + 1);
        }
    }
    return best.back();
}

std::int64_t NowMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::vector<double> g_latencies;
double g_deliveryMs = 0; // from the poll's answer to the notification, summed

void OnChange(UA_Client*, UA_UInt32, void*, UA_UInt32, void*, UA_DataValue* value)
{
    if (!value->hasValue || value->value.type != &UA_TYPES[UA_TYPES_UINT32])
        return;
    const auto stamp = *static_cast<const UA_UInt32*>(value->value.data);
    const std::int64_t now = NowMs();
    g_latencies.push_back(double(std::uint32_t(now) - stamp));
    if (value->hasSourceTimestamp)
        g_deliveryMs += double(now - (value->sourceTimestamp - UA_DATETIME_UNIX_EPOCH) / UA_DATETIME_MSEC);
}

// A simulator for the dead-unit case: units 1 to 3 answer, any other keeps silent.
struct LineSim
{
    QProcess sim;
    QProcess socat;
    QString output;

    bool start(const QStringList& where)
    {
        sim.setProcessChannelMode(QProcess::MergedChannels);
        sim.start("/usr/bin/python3",
                  QStringList{VELMORA_MODBUS_SIM} + where +
                      QStringList{"--units", "1,2,3", "--silent-others", "--baud", "115200"});
        QElapsedTimer wait;
        wait.start();
        while (!output.contains("ready") && wait.elapsed() < 20000 && sim.waitForReadyRead(500))
            output += QString::fromUtf8(sim.readAll());
        return output.contains("ready");
    }
    double requests()
    {
        output += QString::fromUtf8(sim.readAll());
        const int at = output.lastIndexOf("requests ");
        return at < 0 ? 0.0 : output.mid(at + 9).section('\n', 0, 0).toDouble();
    }
    ~LineSim()
    {
        for (QProcess* p : {&sim, &socat}) {
            p->kill();
            p->waitForFinished(5000);
        }
    }
};

// Three lines at once, each three live units and a dead one with a 100 ms group of
// one request: the live units' reads per second, and what their groups ask for,
// the median line of the three. The first seconds, while the dead unit is found
// out and its first demotion periods pass, are not counted.
bool DeadUnitRates(bool rtu, int seconds, const QString& folder, double& achieved, double& configured)
{
    const int kLines = 3, kLive = 3, kDead = 9, kPeriod = 100;
    std::vector<std::unique_ptr<LineSim>> sims;
    QString config;
    for (int line = 0; line < kLines; ++line) {
        auto sim = std::make_unique<LineSim>();
        QStringList where;
        config += "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n";
        if (rtu) {
            const QString a = folder + QString("/tty%1a").arg(line),
                          b = folder + QString("/tty%1b").arg(line);
            sim->socat.start("socat", {"pty,raw,echo=0,link=" + a, "pty,raw,echo=0,link=" + b});
            QElapsedTimer wait;
            wait.start();
            while (!(QFileInfo::exists(a) && QFileInfo::exists(b)) && wait.elapsed() < 10000)
                QThread::msleep(20);
            where = QStringList{"--serial", b};
            config += QString(";Линия%1;COM-порт;MODBUS RTU;300;3;0;%2;115200;8;1;Нет;Нет;Нет;Нет\n")
                          .arg(line)
                          .arg(line + 1);
            qputenv("VELMORA_COM_PORTS",
                    qgetenv("VELMORA_COM_PORTS") + QString(",%1=%2").arg(line + 1).arg(a).toUtf8());
        } else {
            const int port = GatewayProcess::freePort();
            where = QStringList{"--tcp", QString::number(port)};
            config +=
                QString(";Линия%1;TCP-соединение;MODBUS TCP;300;3;0;127.0.0.1;%2;2000\n").arg(line).arg(port);
        }
        if (!sim->start(where)) {
            std::fprintf(stderr, "bench_modbus: a simulator did not start:\n%s\n", qPrintable(sim->output));
            return false;
        }
        for (int unit : {1, 2, 3, kDead})
            config += QString("DEVICE;1;2;3;4;5;6;7\n;У%1;%1;Нет;125;2000;0;Да\nGROUP;1;2;3\n;Г;%2;мс\n"
                              "TAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n"
                              ";t;Входной регистр;1;2;0;Да;;;Цел16;AB;Нет;;;;;Константа;0\n")
                          .arg(unit)
                          .arg(kPeriod);
        sims.push_back(std::move(sim));
    }
    const QString path = folder + (rtu ? "/dead-rtu.cfg" : "/dead-tcp.cfg");
    CScrambler::WriteFile(path, config);
    GatewayProcess gateway;
    if (!gateway.start(GatewayProcess::Options(path), 30000)) {
        std::fprintf(stderr, "bench_modbus: the gateway did not answer:\n%s\n", qPrintable(gateway.output()));
        return false;
    }
    const auto pause = [&sims](int ms) {
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < ms)
            for (auto& sim : sims)
                sim->sim.waitForReadyRead(20);
    };
    pause(6000);
    std::vector<double> before;
    for (auto& sim : sims)
        before.push_back(sim->requests());
    QElapsedTimer window;
    window.start();
    pause(seconds * 1000);
    const double wallS = window.elapsed() / 1000.0;
    std::vector<double> rates;
    for (std::size_t i = 0; i < sims.size(); ++i)
        rates.push_back((sims[i]->requests() - before[i]) / wallS);
    std::sort(rates.begin(), rates.end());
    achieved = rates[rates.size() / 2];
    configured = kLive * 1000.0 / kPeriod;
    std::printf("dead unit beside %d live ones, %s: live reads per second by line %.1f %.1f %.1f of %.1f\n",
                kLive, rtu ? "RTU" : "TCP", rates[0], rates[1], rates[2], configured);
    gateway.stop();
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int seconds = argc > 1 ? std::max(2, atoi(argv[1])) : 10;
    QTemporaryDir dir;
    const int port = GatewayProcess::freePort();

    QProcess sim;
    sim.setProcessChannelMode(QProcess::MergedChannels);
    QStringList units;
    for (int d = 1; d <= kDevices; ++d)
        units << QString::number(d);
    sim.start("/usr/bin/python3", {VELMORA_MODBUS_SIM, "--tcp", QString::number(port), "--units",
                                   units.join(','), "--size", "1100", "--clock", "1:1001"});
    QString simOutput;
    QElapsedTimer wait;
    wait.start();
    while (!simOutput.contains("ready") && wait.elapsed() < 20000 && sim.waitForReadyRead(500))
        simOutput += QString::fromUtf8(sim.readAll());
    if (!simOutput.contains("ready")) {
        std::fprintf(stderr, "bench_modbus: the simulator did not start:\n%s\n", qPrintable(simOutput));
        return 1;
    }

    const QString path = dir.filePath("modbus.cfg");
    // One more tag reads the simulator's clock register of the first device.
    QString config = Config(port);
    config.insert(config.indexOf("DEVICE", config.indexOf("DEVICE") + 1),
                  ";clock;Входной регистр;1001;0;0;Да;;;Цел32;AB CD;Нет;;;;;Константа;0\n");
    CScrambler::WriteFile(path, config);
    GatewayProcess gateway;
    if (!gateway.start(GatewayProcess::Options(path), 60000)) {
        std::fprintf(stderr, "bench_modbus: the gateway did not answer:\n%s\n", qPrintable(gateway.output()));
        return 1;
    }

    const auto requestsNow = [&] {
        simOutput += QString::fromUtf8(sim.readAll());
        const int at = simOutput.lastIndexOf("requests ");
        return at < 0 ? 0.0 : simOutput.mid(at + 9).section('\n', 0, 0).toDouble();
    };
    // First the polling alone, after a few cycles to settle: no OPC UA client
    // is there to cost the server's loop anything. The gateway's CPU is set
    // against the simulator's over the same spans: both handle the same
    // requests, one asking and one answering.
    QElapsedTimer window;
    window.start();
    while (window.elapsed() < 2000)
        sim.waitForReadyRead(100);
    const int spanMs = seconds * 1000 / BenchSupport::RunCount();
    const double requests0 = requestsNow();
    BenchSupport::Runs cpu;
    double wallMs = 0;
    for (int i = 0; i < BenchSupport::RunCount(); ++i) {
        const BenchSupport::CpuSpan span(gateway.processId(), sim.processId());
        window.restart();
        while (window.elapsed() < spanMs)
            sim.waitForReadyRead(100);
        wallMs += window.elapsed();
        const auto [gatewayCpu, simCpu] = span.Percents();
        cpu.Add(gatewayCpu, simCpu);
    }
    const double requests = requestsNow() - requests0;

    // Then a client watching the clock register as fast as the server samples.
    UA_ClientConfig cc{};
    cc.logging = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
    UA_ClientConfig_setDefault(&cc);
    UA_Client* client = UA_Client_newWithConfig(&cc);
    if (UA_Client_connect(client, gateway.url().toUtf8().constData()) != UA_STATUSCODE_GOOD) {
        std::fprintf(stderr, "bench_modbus: no session\n");
        return 1;
    }
    UA_CreateSubscriptionRequest request = UA_CreateSubscriptionRequest_default();
    request.requestedPublishingInterval = 10;
    const UA_CreateSubscriptionResponse sub =
        UA_Client_Subscriptions_create(client, request, nullptr, nullptr, nullptr);
    const QByteArray clockId = "Стенд.Д1.Г.clock";
    UA_MonitoredItemCreateRequest item =
        UA_MonitoredItemCreateRequest_default(UA_NODEID_STRING(2, const_cast<char*>(clockId.constData())));
    item.requestedParameters.samplingInterval = 0; // as fast as the server samples
    UA_Client_MonitoredItems_createDataChange(client, sub.subscriptionId, UA_TIMESTAMPSTORETURN_BOTH, item,
                                              nullptr, OnChange, nullptr);
    window.restart();
    while (window.elapsed() < 1000)
        UA_Client_run_iterate(client, 10);
    // The p95 of each span against the poll period, which bounds how long a
    // change waits for its poll.
    g_latencies.clear();
    g_deliveryMs = 0;
    BenchSupport::Runs latency;
    std::vector<double> all;
    for (int i = 0; i < BenchSupport::RunCount(); ++i) {
        g_latencies.clear();
        window.restart();
        while (window.elapsed() < 2 * spanMs) {
            UA_Client_run_iterate(client, 10);
            sim.waitForReadyRead(0);
        }
        std::sort(g_latencies.begin(), g_latencies.end());
        latency.Add(g_latencies.empty() ? -1
                                        : g_latencies[std::size_t(0.95 * double(g_latencies.size() - 1))],
                    kPeriodMs);
        all.insert(all.end(), g_latencies.begin(), g_latencies.end());
    }
    g_latencies = all;
    UA_Client_disconnect(client);
    UA_Client_delete(client);

    int planned = 0;
    const QRegularExpression line("запросов за цикл (\\d+)");
    for (auto it = line.globalMatch(gateway.output()); it.hasNext();)
        planned += it.next().captured(1).toInt();
    std::vector<std::pair<int, int>> values;
    for (int i = 0; i < kShort; ++i)
        values.push_back({i, 1});
    for (int i = 0; i < kLong; ++i)
        values.push_back({kShort + 2 * i, 2});
    const int fewest = (kDevices - 1) * Fewest(values, 125);
    // The first device also reads the clock register, right behind the rest.
    values.push_back({kShort + 2 * kLong, 2});
    const int withClock = Fewest(values, 125);
    const int allFewest = fewest + withClock;
    const double cycleMs = requests > 0 ? wallMs / (requests / planned) : 0;

    std::sort(g_latencies.begin(), g_latencies.end());
    const auto at = [](double q) {
        return g_latencies.empty() ? 1e9 : g_latencies[std::size_t(q * (g_latencies.size() - 1))];
    };
    double mean = 0;
    for (double l : g_latencies)
        mean += l / g_latencies.size();
    std::printf(
        "planned %d requests per cycle, fewest reading every value whole %d (%d registers / 125 = %d)\n",
        planned, allFewest, kDevices * (kShort + 2 * kLong) + 2,
        (kDevices * (kShort + 2 * kLong) + 124) / 125 + 1);
    std::printf("simulator answered %.0f requests in %.1f s: one cycle every %.1f ms (period %d ms)\n",
                requests, wallMs / 1000, cycleMs, kPeriodMs);
    std::printf("CPU: gateway %.1f %%, simulator %.1f %% of one core\n", cpu.Ours(), cpu.Peer());
    std::printf("register change to notification: %zu samples, mean %.1f ms (of it %.1f ms from the poll's "
                "answer on), p95 %.1f ms, max %.1f ms\n",
                g_latencies.size(), mean, g_deliveryMs / std::max<std::size_t>(1, g_latencies.size()),
                at(0.95), at(1.0));
    if (cycleMs > kPeriodMs * 1.05)
        std::printf("the simulator is the bottleneck: it cannot answer %d requests in %d ms\n", planned,
                    kPeriodMs);

    BenchSupport::ReportAgainstPeer("modbus: requests per cycle, 10k registers",
                                    BenchSupport::Runs::Once(planned, allFewest), "req", 1.1);
    BenchSupport::ReportAgainstPeer("modbus: gateway CPU, 10k registers at 100 ms, vs simulator CPU", cpu,
                                    "%", kCpuRatio);
    BenchSupport::ReportAgainstPeer("modbus: register change to notification, p95, vs poll period", latency,
                                    "ms", kLatencyPeriods);
    gateway.stop();
    sim.kill();
    sim.waitForFinished(5000);

    for (const bool rtu : {false, true}) {
        double achieved = 0, configured = 0;
        if (!DeadUnitRates(rtu, std::max(seconds, 20), dir.path(), achieved, configured))
            return 1;
        BenchSupport::ReportShareOfPeer(rtu ? "modbus: live units' poll rate beside a dead one, RTU"
                                            : "modbus: live units' poll rate beside a dead one, TCP",
                                        BenchSupport::Runs::Once(achieved, configured), "req/s", 0.9);
    }
    return 0;
}
