// Program start to window shown: starts the real program and waits for the
// line it logs right after showing its window.
//
//   QT_QPA_PLATFORM=offscreen bench_startup [repeats]
#include "bench/benchsupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>

namespace {

int startedLines(const QString& log)
{
    QFile f(log);
    return f.open(QIODevice::ReadOnly) ? int(f.readAll().count("Приложение запущено")) : 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int repeats = argc > 1 ? std::max(1, atoi(argv[1])) : 5;
    QTemporaryDir home;
    const QString log = home.filePath("Documents/TARN/OPC UA/Log/VelmoraGui.log");
    const QString program = QCoreApplication::applicationDirPath() + "/velmora";

    double best = 1e300;
    for (int i = 0; i < repeats; ++i) {
        QProcess velmora;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", home.path());
        velmora.setProcessEnvironment(env);
        const int before = startedLines(log);
        QElapsedTimer t;
        t.start();
        velmora.start(program, {});
        if (!velmora.waitForStarted(10000)) {
            std::fprintf(stderr, "bench_startup: can't start %s\n", qPrintable(program));
            return 1;
        }
        while (startedLines(log) == before && t.elapsed() < 20000)
            QThread::usleep(500);
        best = std::min(best, t.nsecsElapsed() / 1e6);
        velmora.terminate();
        velmora.waitForFinished(10000);
    }
    std::printf("start to window shown: %.1f ms (best of %d)\n", best, repeats);
    BenchSupport::ReportAbsolute("program start to window shown", best, "ms", 1000);
    return 0;
}
