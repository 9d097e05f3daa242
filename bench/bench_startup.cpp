// Program start to window shown: starts the real program and waits for the
// line it logs right after showing its window. The peer is the plain Qt
// program, this one started again with --bare: a QApplication and an empty
// QMainWindow shown, then a line written the same way. Ours and the peer's in
// turn; the median of the runs.
//
//   QT_QPA_PLATFORM=offscreen bench_startup
#include "bench/benchsupport.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMainWindow>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>
#include <cstring>

namespace {

const char kShown[] = "Приложение запущено";

int shownLines(const QString& log)
{
    QFile f(log);
    return f.open(QIODevice::ReadOnly) ? int(f.readAll().count(kShown)) : 0;
}

// Start to the log's next line, in ms; -1 when it doesn't come.
double startMs(const QString& program, const QStringList& arguments, const QString& home, const QString& log)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", home);
    process.setProcessEnvironment(env);
    const int before = shownLines(log);
    QElapsedTimer t;
    t.start();
    process.start(program, arguments);
    if (!process.waitForStarted(10000))
        return -1;
    while (shownLines(log) == before && t.elapsed() < 20000)
        QThread::usleep(500);
    const double ms = shownLines(log) > before ? t.nsecsElapsed() / 1e6 : -1;
    process.terminate();
    process.waitForFinished(10000);
    return ms;
}

int bareProgram(int argc, char** argv, const char* log)
{
    QApplication app(argc, argv);
    QMainWindow window;
    window.show();
    QFile file(QString::fromLocal8Bit(log));
    if (!file.open(QIODevice::Append))
        return 1;
    file.write(QByteArray(kShown) + "\n");
    file.close();
    return app.exec();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 2 && std::strcmp(argv[1], "--bare") == 0)
        return bareProgram(argc, argv, argv[2]);

    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    const QString log = home.filePath("Documents/TARN/OPC UA/Log/VelmoraGui.log");
    const QString bareLog = home.filePath("bare.log");
    const QString dir = QCoreApplication::applicationDirPath();
    const BenchSupport::Runs runs =
        BenchSupport::Runs::Alternate([&] { return startMs(dir + "/velmora", {}, home.path(), log); },
                                      [&] {
                                          return startMs(QCoreApplication::applicationFilePath(),
                                                         {"--bare", bareLog}, home.path(), bareLog);
                                      });
    if (runs.Failed() || runs.Peer() < 0) {
        std::fprintf(stderr, "bench_startup: a program did not show its window\n");
        return 1;
    }
    std::printf("start to window shown: %.1f ms, bare QMainWindow %.1f ms\n", runs.Ours(), runs.Peer());
    return BenchSupport::ReportAgainstPeer("program start to window shown (peer: bare QMainWindow)", runs,
                                           "ms", 4.0)
               ? 0
               : 1;
}
