// The trend with 16 tags: the memory of one hour of points at ten a second,
// and the program's CPU while new values come at 10 Hz with that hour in the
// buffer, showing the last minute and the whole hour.
//
//   QT_QPA_PLATFORM=offscreen bench_trend [seconds]
#include "bench/benchsupport.h"
#include "views/trendview.h"

#include <QApplication>
#include <QComboBox>
#include <QDateTime>
#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

const int kSeries = 16;
const int kTakesPerHour = 36000;

// The values of one take of the monitoring, as its refresh hands them on.
QList<QList<QVariant>> take(const QStringList& names, qint64 ms)
{
    QList<QList<QVariant>> batch;
    for (int s = 0; s < names.size(); ++s)
        batch.append({QVariant(uint(s + 1)), QVariant(100 * std::sin(double(ms) / (3000.0 + 500 * s)) + s),
                      QString("Good"), names.at(s), QVariant(1u)});
    return batch;
}

double ownCpuMs()
{
    return BenchSupport::ProcessCpuMs(QCoreApplication::applicationPid());
}

// Percent of a core that `seconds` of takes every 100 ms cost, drawing included.
double cpuAtTenHertz(TrendView& trend, const QStringList& names, int seconds)
{
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        trend.record(take(names, QDateTime::currentMSecsSinceEpoch()), QDateTime::currentMSecsSinceEpoch());
    });
    timer.start(100);
    QEventLoop loop;
    QTimer::singleShot(1000, &loop, &QEventLoop::quit);
    loop.exec();
    const double cpu0 = ownCpuMs();
    QElapsedTimer wall;
    wall.start();
    QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
    loop.exec();
    return (ownCpuMs() - cpu0) / double(wall.elapsed()) * 100.0;
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int seconds = argc > 1 ? std::max(3, atoi(argv[1])) : 10;

    TrendView trend;
    trend.resize(1000, 400);
    QStringList names;
    for (int s = 0; s < kSeries; ++s) {
        names << QString("Канал.Прибор.Группа.Тег_%1").arg(s, 2, 10, QChar('0'));
        trend.addSeries(names.last());
    }
    QApplication::processEvents();

    // An hour of takes, ending now.
    const long before = BenchSupport::ResidentKb();
    const qint64 end = QDateTime::currentMSecsSinceEpoch();
    for (int i = 0; i < kTakesPerHour; ++i) {
        const qint64 ms = end - qint64(kTakesPerHour - i) * 100;
        trend.record(take(names, ms), ms);
    }
    QApplication::processEvents();
    const double hourMb = double(BenchSupport::ResidentKb() - before) / 1024.0;
    const double bytesPerPoint = hourMb * 1024 * 1024 / (double(kTakesPerHour) * kSeries);

    // Medians of BENCH_RUNS spans sharing `seconds`.
    const int span = std::max(2, seconds / BenchSupport::RunCount());
    const BenchSupport::Runs minuteCpu =
        BenchSupport::Runs::Repeat([&] { return cpuAtTenHertz(trend, names, span); });
    trend.findChild<QComboBox*>("spanBox")->setCurrentIndex(3);
    const BenchSupport::Runs hourCpu =
        BenchSupport::Runs::Repeat([&] { return cpuAtTenHertz(trend, names, span); });

    std::printf("points kept:                  %d a tag (%d tags)\n", trend.buffer(names.first())->size(),
                kSeries);
    std::printf("memory of one hour:           %.1f MB, %.0f bytes a point (bound 36 MB)\n", hourMb,
                bytesPerPoint);
    std::printf("CPU at 10 Hz, last minute:    %.1f %% of one core\n", minuteCpu.Ours());
    std::printf("CPU at 10 Hz, whole hour:     %.1f %% of one core\n", hourCpu.Ours());
    BenchSupport::ReportAbsolute("trend memory, 1 h of 16 tags at 10 Hz", hourMb, "MB", 36);
    BenchSupport::ReportAbsolute("trend of 16 tags at 10 Hz, last minute (% of a core)", minuteCpu, "%", 15);
    BenchSupport::ReportAbsolute("trend of 16 tags at 10 Hz, whole hour (% of a core)", hourCpu, "%", 15);
    return 0;
}
