// Load and save of a large configuration, against Python's csv module reading
// the same rows, in turn. Prints the times, their ratios and the peak memory
// of a load.
//
//   bench_config [work folder] [repeats]
#include "bench/benchsupport.h"
#include "config/configwriter.h"
#include "config/csvimporter.h"
#include "config/scrambler.h"
#include "model/treeitemroot.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>

using namespace BenchSupport;

namespace {

bool WriteFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

QByteArray ReadFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Time of Python's csv module reading the file into lists, in ms; -1 when
// there is no Python.
double PythonCsvMs(const QString& path)
{
    const QString script = QStringLiteral("import csv, sys, time\n"
                                          "t = time.perf_counter()\n"
                                          "with open(sys.argv[1], newline='', encoding='utf-8') as f:\n"
                                          "    rows = list(csv.reader(f, delimiter=';'))\n"
                                          "print(len(rows), (time.perf_counter() - t) * 1000.0)\n");
    QProcess python;
    python.start(QStringLiteral("python3"), {QStringLiteral("-c"), script, path});
    if (!python.waitForFinished(600000) || python.exitCode() != 0)
        return -1;
    const QList<QByteArray> out = python.readAllStandardOutput().trimmed().split(' ');
    return out.size() == 2 ? out[1].toDouble() : -1;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir tmp;
    const QString dir = argc > 1 ? QString::fromLocal8Bit(argv[1]) : tmp.path();
    const int repeats = argc > 2 ? std::max(1, std::atoi(argv[2])) : RunCount();
    const QString csvPath = dir + "/bench.csv";
    const QString cfgPath = dir + "/bench.cfg";
    const QString outPath = dir + "/bench_out.cfg";

    {
        const QByteArray plain = QByteArray::fromStdString(Generate());
        if (!WriteFile(csvPath, plain) || !WriteFile(cfgPath, CScrambler::Encode(QString::fromUtf8(plain)))) {
            std::fprintf(stderr, "cannot write to %s\n", qPrintable(dir));
            return 1;
        }
        std::printf("configuration: %d tags, %lld bytes plain\n", kChannels * kDevices * kGroups * kTags,
                    static_cast<long long>(plain.size()));
    }

    // Rounds of load, save and the peer in turn, so that a busy machine
    // weighs on all three alike; each row is the median of the rounds.
    const bool peakReset = ResetPeak();
    const long baseKb = PeakKb();
    long peakKb = 0;
    Runs load, save;
    CTreeItemRoot saved;
    for (int round = 0; round < repeats; ++round) {
        double loadMs = -1;
        {
            CTreeItemRoot root;
            QElapsedTimer timer;
            timer.start();
            const bool ok = CCsvLoader(&root).Load(cfgPath.toStdString(), false);
            loadMs = timer.nsecsElapsed() / 1e6;
            if (!ok ||
                root.GetItemsCount(itTag) != static_cast<uint32_t>(kChannels * kDevices * kGroups * kTags)) {
                std::fprintf(stderr, "load failed\n");
                return 1;
            }
            if (round == 0)
                peakKb = PeakKb();
        }
        if (round == 0)
            CCsvLoader(&saved).Load(cfgPath.toStdString(), false);

        // Save: the writer streaming the scrambled form into a temporary file
        // that then replaces the target.
        QElapsedTimer timer;
        timer.start();
        const bool ok = CConfigWriter::Save(saved, outPath, false) == CConfigWriter::Saved;
        const double saveMs = timer.nsecsElapsed() / 1e6;
        if (!ok) {
            std::fprintf(stderr, "save failed\n");
            return 1;
        }

        const double pythonMs = PythonCsvMs(csvPath);
        load.Add(loadMs, pythonMs);
        save.Add(saveMs, pythonMs);
        std::printf("round %d: load %.1f ms, save %.1f ms, python csv %.1f ms\n", round + 1, loadMs, saveMs,
                    pythonMs);
    }
    if (ReadFile(outPath) != ReadFile(cfgPath))
        std::printf("warning: the saved file differs from the generated one\n");

    std::printf("peak memory of a load:  %9.1f MB (VmHWM%s; %.1f MB before; target <= 150)\n",
                peakKb / 1024.0, peakReset ? ", reset before the load" : ", whole process", baseKb / 1024.0);
    if (load.Peer() < 0)
        std::printf("python csv (peer):      not available\n");
    bool met = ReportAgainstPeer("load 100k-tag .cfg (peer: python csv)", load, "ms", 0.6);
    met &= ReportAgainstPeer("save 100k-tag .cfg (peer: python csv)", save, "ms", 0.5);
    met &= ReportAbsolute("peak memory of a 100k-tag load", peakKb / 1024.0, "MB", 150);
    return met ? 0 : 1;
}
