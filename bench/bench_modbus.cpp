// The gateway polling 10,000 registers of 10 devices on one Modbus TCP
// simulator at a 100 ms period: requests per cycle against the fewest that
// read every value whole, the gateway's CPU, and the time from a register
// change at the simulator to the OPC UA notification.
//
//   bench_modbus [seconds]
#include "bench/benchsupport.h"
#include "config/scrambler.h"
#include "gatewayprocess.h"

#include <open62541/client.h>
#include <open62541/client_config_default.h>
#include <open62541/client_subscriptions.h>
#include <open62541/plugin/log_stdout.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace {

const int kDevices = 10;
const int kPeriodMs = 100;
// Per device: 500 registers of 16-bit values, then 250 values of 32 bits.
const int kShort = 500;
const int kLong = 250;

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
    // is there to cost the server's loop anything.
    QElapsedTimer window;
    window.start();
    while (window.elapsed() < 2000)
        sim.waitForReadyRead(100);
    const double requests0 = requestsNow();
    const double gatewayCpu0 = BenchSupport::ProcessCpuMs(gateway.processId());
    const double simCpu0 = BenchSupport::ProcessCpuMs(sim.processId());
    window.restart();
    while (window.elapsed() < seconds * 1000)
        sim.waitForReadyRead(100);
    const double wallMs = window.elapsed();
    const double requests = requestsNow() - requests0;
    const double gatewayCpu = (BenchSupport::ProcessCpuMs(gateway.processId()) - gatewayCpu0) / wallMs * 100;
    const double simCpu = (BenchSupport::ProcessCpuMs(sim.processId()) - simCpu0) / wallMs * 100;

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
    g_latencies.clear();
    g_deliveryMs = 0;
    window.restart();
    while (window.elapsed() < seconds * 1000) {
        UA_Client_run_iterate(client, 10);
        sim.waitForReadyRead(0);
    }
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
    std::printf("CPU: gateway %.1f %%, simulator %.1f %% of one core\n", gatewayCpu, simCpu);
    std::printf("register change to notification: %zu samples, mean %.1f ms (of it %.1f ms from the poll's "
                "answer on), p95 %.1f ms, max %.1f ms\n",
                g_latencies.size(), mean, g_deliveryMs / std::max<std::size_t>(1, g_latencies.size()),
                at(0.95), at(1.0));
    if (cycleMs > kPeriodMs * 1.05)
        std::printf("the simulator is the bottleneck: it cannot answer %d requests in %d ms\n", planned,
                    kPeriodMs);

    BenchSupport::ReportAgainstPeer("modbus: requests per cycle, 10k registers", planned, allFewest, "req",
                                    1.1);
    BenchSupport::ReportAbsolute("modbus: gateway CPU, 10k registers at 100 ms", gatewayCpu, "%", 10);
    BenchSupport::ReportAbsolute("modbus: register change to notification, p95", at(0.95), "ms",
                                 kPeriodMs + 20);
    gateway.stop();
    sim.kill();
    sim.waitForFinished(5000);
    return 0;
}
