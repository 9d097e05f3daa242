// Live monitoring of 10,000 tags at 100 ms against the gateway, through the
// program's own commands: subscription creation time against the bare client
// making the same subscriptions, the program's CPU against the gateway's over
// the same spans, how late a value shows in the table against the publishing
// interval, and the program's CPU with 16 of the tags on the trend. Each
// figure is the median of BENCH_RUNS runs or spans.
//
//   QT_QPA_PLATFORM=offscreen bench_monitoring [seconds of a span] [picture.png]
//
// With a picture path, the window is saved there while it shows live values.
//
// Latency: the table's probe group holds sine tags that the gateway computes
// for each millisecond, so a shown value tells the millisecond it was sampled; the sample is published at
// most one publishing interval later, so "sample to table" bounds "publish to table" from above. The time the
// value reached the client is given beside it.
#include "app/mainwindow.h"
#include "app/progressbar.h"
#include "bench/benchsupport.h"
#include "config/scrambler.h"
#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/modalwatcher.h"
#include "views/tablemodelmonitoring.h"
#include "views/trendview.h"

#include <QAction>
#include <QApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QMenu>
#include <QTableView>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeWidget>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr int kDevices = 10;
constexpr int kGroups = 10;
constexpr int kTags = 100;
constexpr int kProbes = 20;
constexpr int kTrendTags = 16;
constexpr int kIntervalMs = 100;
// The desk, showing the table alone or with a trend open, may take at most
// this share of what the gateway takes to serve it.
constexpr double kCpuRatio = 0.6;
constexpr double kTrendCpuRatio = 0.7;
// The slowest value of a span reaches the table within this many publishing intervals.
constexpr double kLatencyIntervals = 3;
// The command may add this share to what the client takes for the same subscriptions.
constexpr double kSubscribeRatio = 1.5;

// Sine periods of the probe tags (the gateway allows 1 to 60 s).
std::vector<int> probePeriods()
{
    std::vector<int> periods;
    for (int i = 0; i < kProbes; ++i)
        periods.push_back(60 - i);
    return periods;
}

QString generate(const std::vector<int>& periods)
{
    QString text = "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n"
                   ";Линия;COM-порт;MODBUS RTU;500;3;0;1;9600;8;1;Нет;Нет;Нет;Нет\n";
    const QString tagHeader = "TAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n";
    for (int d = 0; d < kDevices; ++d) {
        text += QString("DEVICE;1;2;3;4;5;6;7\n;Прибор_%1;%2;Да;125;2000;0;Да\n").arg(d).arg(d + 1);
        for (int g = 0; g < kGroups; ++g) {
            text += QString("GROUP;1;2;3\n;Группа_%1;100;мс\n").arg(g) + tagHeader;
            // A third random, a third sine, a third constant: two thirds change every sample.
            for (int t = 0; t < kTags; ++t) {
                const QString emulation = t % 3 == 0   ? "Случайное число;"
                                          : t % 3 == 1 ? "Синусоида;60"
                                                       : "Константа;5";
                text += QString(";Тег_%1;Входной регистр;%2;0;0;Да;;;Вещ32;BA DC;Нет;;;;;%3\n")
                            .arg(t, 3, 10, QChar('0'))
                            .arg(t * 2 + 1)
                            .arg(emulation);
            }
        }
    }
    text += "DEVICE;1;2;3;4;5;6;7\n;Зонд;99;Да;125;2000;0;Да\nGROUP;1;2;3\n;Часы;1;мс\n" + tagHeader;
    for (int i = 0; i < kProbes; ++i)
        text += QString(";Период_%1;Входной регистр;%2;0;0;Да;;;Вещ32;BA DC;Нет;;;;;Синусоида;%3\n")
                    .arg(i, 2, 10, QChar('0'))
                    .arg(i * 2 + 1)
                    .arg(periods[size_t(i)]);
    return text;
}

// The sampling time (ms since the epoch) of a sine value of period `p` s:
// of the two times in a period with this value, the one in the last two
// seconds. Values near the peaks are ambiguous and give -1. The gateway's sine
// of a float tag without a transformation spans -1 to 1 and starts a quarter period ahead.
double sampleTimeMs(double value, int p, qint64 nowMs)
{
    if (std::fabs(value) > 0.95)
        return -1;
    const double a = std::asin(value) / (2 * M_PI) - 0.25;
    const double periodMs = p * 1000.0;
    for (double phase : {a, -a}) {
        phase = phase - std::floor(phase);
        double t = std::floor(nowMs / periodMs) * periodMs + phase * periodMs;
        if (t > nowMs + 1)
            t -= periodMs;
        if (nowMs - t < 2000)
            return t;
    }
    return -1;
}

// Full names of every tag of generate()'s tree, a list per group, as the
// monitoring command subscribes them.
QList<QList<QString>> subscribedNames()
{
    QList<QList<QString>> groups;
    for (int d = 0; d < kDevices; ++d)
        for (int g = 0; g < kGroups; ++g) {
            QList<QString> names;
            for (int t = 0; t < kTags; ++t)
                names << QString("Линия.Прибор_%1.Группа_%2.Тег_%3").arg(d).arg(g).arg(t, 3, 10, QChar('0'));
            groups << names;
        }
    QList<QString> probes;
    for (int i = 0; i < kProbes; ++i)
        probes << QString("Линия.Зонд.Часы.Период_%1").arg(i, 2, 10, QChar('0'));
    groups << probes;
    return groups;
}

double percentile(std::vector<double> v, double q)
{
    if (v.empty())
        return -1;
    std::sort(v.begin(), v.end());
    return v[size_t(q * double(v.size() - 1))];
}

void runBusy(MainWindow& window, void (MainWindow::*body)(QString), const QString& arg)
{
    ProgressBar dialog(nullptr);
    QObject::connect(&window, &MainWindow::signalCloseProgressBar, &dialog,
                     &ProgressBar::slotCloseProgressBar);
    std::thread worker(body, &window, arg);
    worker.detach();
    dialog.exec();
}

QTreeWidgetItem* findRow(QTreeWidgetItem* parent, const QString& text)
{
    for (int i = 0; i < parent->childCount(); ++i) {
        if (parent->child(i)->text(0) == text)
            return parent->child(i);
        if (QTreeWidgetItem* found = findRow(parent->child(i), text))
            return found;
    }
    return nullptr;
}

void select(QTreeWidget* tree, QTreeWidgetItem* row)
{
    tree->clearSelection();
    tree->setCurrentItem(row);
    row->setSelected(true);
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    const int seconds = argc > 1 ? std::max(2, atoi(argv[1])) : 4;

    QTemporaryDir dir;
    const QString path = dir.filePath("monitoring.cfg");
    const std::vector<int> periods = probePeriods();
    if (!CScrambler::WriteFile(path, generate(periods))) {
        std::fprintf(stderr, "bench_monitoring: can't write %s\n", qPrintable(path));
        return 1;
    }
    GatewayProcess gateway;
    if (!gateway.start(GatewayProcess::Options(path), 60000)) {
        std::fprintf(stderr, "bench_monitoring: gateway did not start:\n%s\n", qPrintable(gateway.output()));
        return 1;
    }

    MainWindow window;
    window.resize(1280, 800);
    window.show();
    runBusy(window, &MainWindow::openCSVFile, path);
    ModalWatcher watcher;
    watcher.answerConnect(gateway.url());
    window.findChild<QAction*>("action")->trigger();
    OPCUAWrapper* client = OPCUAWrapper::GetInstance();
    if (!client->connected) {
        std::fprintf(stderr, "bench_monitoring: no connection\n");
        return 1;
    }

    // The probe group is selected once so the table keeps its values, then the
    // switch is pressed on an ordinary group, whose 100 ms apply to all. Each
    // start by the command is followed by the same subscriptions made by the
    // bare client on the same session, and both are taken down again.
    auto* tree = window.findChild<QTreeWidget*>("treeWidget");
    QTreeWidgetItem* probeRow = findRow(tree->topLevelItem(0), "Часы");
    QTreeWidgetItem* groupRow = findRow(tree->topLevelItem(0), "Группа_0");
    select(tree, probeRow);
    select(tree, groupRow);
    QAction* monitoringSwitch = window.findChild<QAction*>("monitoring_action");
    const QList<QList<QString>> names = subscribedNames();
    QElapsedTimer timer;
    double unsubscribeMs = 0;
    const BenchSupport::Runs subscribing = BenchSupport::Runs::Alternate(
        [&] {
            timer.start();
            monitoringSwitch->trigger();
            const double ms = timer.nsecsElapsed() / 1e6;
            timer.restart();
            monitoringSwitch->trigger();
            unsubscribeMs = timer.nsecsElapsed() / 1e6;
            return ms;
        },
        [&] {
            QMap<int, QList<QString>> rows;
            timer.start();
            const int code = client->subscriptionTag(names, kIntervalMs, rows);
            const double ms = timer.nsecsElapsed() / 1e6;
            client->deleteSubscriptionTag();
            return code == 0 ? ms : -1;
        });
    monitoringSwitch->trigger();

    // Warm-up, then the steady state with the event loop waiting as it does in
    // the program, the table showing the probe group; no instrumentation yet.
    auto runFor = [](int ms) {
        QEventLoop loop;
        QTimer::singleShot(ms, &loop, &QEventLoop::quit);
        loop.exec();
    };
    // Percent of a core that this process and the gateway take over one span.
    auto cpuOfSpan = [&] {
        const BenchSupport::CpuSpan span(QCoreApplication::applicationPid(), gateway.processId());
        runFor(seconds * 1000);
        return span.Percents();
    };
    select(tree, probeRow);
    runFor(3000);
    BenchSupport::Runs steady, gatewayAlone;
    for (int i = 0; i < BenchSupport::RunCount(); ++i) {
        const auto [program, gatewayCpu] = cpuOfSpan();
        steady.Add(program, gatewayCpu);
        gatewayAlone.Add(gatewayCpu);
    }

    // Arrival of each probe value at the client, on the loop's thread.
    std::mutex arrivalsMutex;
    std::map<QString, qint64> arrivals;
    const QMetaObject::Connection arrivalsSeen = QObject::connect(
        client, &OPCUAWrapper::signalDataChange, client,
        [&](QVariantList v) {
            if (v.size() == 5 && v.at(3).toString().contains("Период_")) {
                std::lock_guard<std::mutex> lock(arrivalsMutex);
                arrivals[v.at(3).toString() + "=" + v.at(1).toString()] = QDateTime::currentMSecsSinceEpoch();
            }
        },
        Qt::DirectConnection);

    auto* model = window.findChild<TableModelMonitoring*>();
    std::vector<QString> shown(kProbes);
    std::vector<double> sampleToTable, arrivalToTable;
    const QMetaObject::Connection shownSeen = QObject::connect(model, &QAbstractItemModel::dataChanged, [&] {
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        for (int row = 0; row < kProbes; ++row) {
            const QString value = model->data(model->index(row, 1)).toString();
            if (value.isEmpty() || value == "0" || value == shown[size_t(row)])
                continue;
            shown[size_t(row)] = value;
            const double sampled = sampleTimeMs(value.toDouble(), periods[size_t(row)], now);
            if (sampled > 0)
                sampleToTable.push_back(now - sampled);
            const QString name = model->data(model->index(row, 0)).toString();
            std::lock_guard<std::mutex> lock(arrivalsMutex);
            for (auto it = arrivals.begin(); it != arrivals.end(); ++it)
                if (it->first.contains(name + "=") && it->first.section('=', 1).startsWith(value)) {
                    arrivalToTable.push_back(double(now - it->second));
                    break;
                }
        }
        std::lock_guard<std::mutex> lock(arrivalsMutex);
        if (arrivals.size() > 5000)
            arrivals.clear();
    });

    // Then the latency, with the probes in place: the slowest value of each
    // span against the publishing interval.
    BenchSupport::Runs latency;
    for (int i = 0; i < BenchSupport::RunCount(); ++i) {
        const size_t first = sampleToTable.size();
        runFor(seconds * 1000);
        const auto slowest = std::max_element(sampleToTable.begin() + qsizetype(first), sampleToTable.end());
        latency.Add(slowest == sampleToTable.end() ? -1 : *slowest, kIntervalMs);
    }

    // The trend of 16 probe tags beside the table, put there by the table's
    // command: the program's CPU against the gateway's on the same
    // subscription in the same spans, and the points that reached the plot.
    // The latency probes are gone by then.
    QObject::disconnect(arrivalsSeen);
    QObject::disconnect(shownSeen);
    auto* table = window.findChild<QTableView*>("tableView_2");
    for (int row = 0; row < kTrendTags; ++row)
        table->selectionModel()->select(model->index(row, 0),
                                        QItemSelectionModel::Select | QItemSelectionModel::Rows);
    QMenu menu;
    window.fillMonitoringMenu(menu, 0);
    menu.actions().first()->trigger();
    auto* trend = window.findChild<TrendView*>();
    runFor(2000);
    const auto plotted = [&] {
        long points = 0;
        for (const QString& name : trend->names())
            points += trend->buffer(name)->size();
        return points;
    };
    const long points0 = plotted();
    QElapsedTimer wait;
    wait.start();
    BenchSupport::Runs withTrend, withTrendAlone;
    for (int i = 0; i < BenchSupport::RunCount(); ++i) {
        const auto [program, gatewayCpu] = cpuOfSpan();
        withTrend.Add(program, gatewayCpu);
        withTrendAlone.Add(program);
    }
    const double pointRate =
        double(plotted() - points0) / trend->names().size() / (double(wait.elapsed()) / 1000);

    // Calls made on the GUI thread while the loop delivers this load.
    double slowestCall = 0;
    for (int i = 0; i < 10; ++i) {
        timer.restart();
        client->exchangeRunning = true;
        client->callMethodStartStopExchange();
        client->callMethodStartStopExchange();
        slowestCall = std::max(slowestCall, timer.nsecsElapsed() / 1e6 / 2);
    }

    if (argc > 2) {
        select(tree, groupRow);
        runFor(500);
        window.grab().save(QString::fromLocal8Bit(argv[2]));
    }
    monitoringSwitch->trigger();

    std::printf("tags monitored:               %d (+%d probes), interval %d ms, spans of %d s\n",
                kDevices * kGroups * kTags, kProbes, kIntervalMs, seconds);
    std::printf("subscription creation:        %.0f ms, the bare client %.0f ms\n", subscribing.Ours(),
                subscribing.Peer());
    std::printf("steady-state CPU:             program %.1f %%, gateway %.1f %% of one core\n", steady.Ours(),
                steady.Peer());
    std::printf("sample -> table, %zu values:  median %.0f ms, p99 %.0f ms, max %.0f ms\n",
                sampleToTable.size(), percentile(sampleToTable, 0.5), percentile(sampleToTable, 0.99),
                percentile(sampleToTable, 1.0));
    std::printf("client arrival -> table:      median %.0f ms, p99 %.0f ms, max %.0f ms (%zu values)\n",
                percentile(arrivalToTable, 0.5), percentile(arrivalToTable, 0.99),
                percentile(arrivalToTable, 1.0), arrivalToTable.size());
    std::printf("method call during monitoring: slowest %.1f ms\n", slowestCall);
    std::printf("subscription removal:         %.0f ms\n", unsubscribeMs);
    std::printf(
        "with a trend of %d tags:       program %.1f %%, gateway %.1f %% of one core, %zu tags on the "
        "plot, %.1f points a tag and second\n",
        kTrendTags, withTrend.Ours(), withTrend.Peer(), size_t(trend->names().size()), pointRate);
    BenchSupport::ReportAgainstPeer("subscribe to 10k tags at 100 ms, vs bare client", subscribing, "ms",
                                    kSubscribeRatio);
    BenchSupport::ReportAgainstPeer("program CPU, 10k tags monitored, vs gateway CPU", steady, "%",
                                    kCpuRatio);
    BenchSupport::ReportAbsolute("gateway CPU, 10k tags monitored (% of a core)", gatewayAlone, "%", 50);
    BenchSupport::ReportAgainstPeer("gateway sample to table, slowest, vs publishing interval", latency, "ms",
                                    kLatencyIntervals);
    BenchSupport::ReportAbsolute("program CPU, 10k tags + trend of 16 (% of a core)", withTrendAlone, "%",
                                 15);
    BenchSupport::ReportAgainstPeer("program CPU, 10k tags + trend of 16, vs gateway CPU", withTrend, "%",
                                    kTrendCpuRatio);
    client->disconnectToServer();
    return 0;
}
