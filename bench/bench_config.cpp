// Load and save of a large configuration, against Python's csv module reading
// the same rows. Prints the times, their ratios and the peak memory of a load.
//
//   bench_config [work folder] [repeats]
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

namespace {

constexpr int kChannels = 10;
constexpr int kDevices = 10;
constexpr int kGroups = 10;
constexpr int kTags = 100;

const char* const kRegTypes[] = {"Входное состояние", "Выходное состояние", "Входной регистр",
                                 "Выходной регистр"};
const char* const kValTypes[] = {"Вещ32",       "Вещ64",       "Цел16",        "Цел32",
                                 "Цел16(знак)", "Цел32(знак)", "Младший байт", "Старший байт",
                                 "Бит0",        "Бит5",        "Бит15"};
const char* const kOrders[][4] = {{"AB CD", "CD AB", "BA DC", "DC BA"},
                                  {"AB CD EF GH", "GH EF CD AB", "BA DC FE HG", "HG FE DC BA"},
                                  {"AB", "BA", "AB", "BA"},
                                  {"AB CD", "CD AB", "BA DC", "DC BA"},
                                  {"AB", "BA", "AB", "BA"},
                                  {"AB CD", "CD AB", "BA DC", "DC BA"}};

// One tag row; k walks through register types, value types, transformations
// and emulations so that every branch of reader and writer is taken.
std::string TagRow(int k)
{
    const int reg = k % 4;
    const bool output = reg == 1 || reg == 3;
    const bool registers = reg >= 2;
    const int val = (k / 4) % 11;
    char name[16];
    std::snprintf(name, sizeof name, "Tag_%03d", k);

    std::string row = std::string(";") + name + ";" + kRegTypes[reg] + ";" + std::to_string(k + 1) + ";10;" +
                      std::to_string(k % 10) + ";Да;";
    row += output ? (k % 3 ? "Да;Групповая;" : "Нет;Одиночная;") : ";;";
    if (registers) {
        row += std::string(kValTypes[val]) + ";";
        row += val <= 5 ? std::string(kOrders[val][k % 4]) + ";" : ";";
    } else {
        row += ";;";
    }
    // Цел32 has no raw range for a line scale, so it takes a factor there.
    const int transform = registers && val <= 7 ? (val == 3 ? 2 : (k / 7) % 3) : 0;
    if (registers && val <= 7)
        row += transform == 0 ? "Нет;" : transform == 1 ? "Линейная шкала;" : "Множитель;";
    else
        row += ";";
    row += transform == 1 ? "0;100;0.5;2500;" : transform == 2 ? "0.25;;;;" : ";;;;";
    switch (k % 3) {
    case 0:
        row += registers && val < 8 ? "Константа;12.5" : "Константа;1";
        break;
    case 1:
        row += "Случайное число";
        break;
    default:
        row += "Синусоида;" + std::to_string(1 + k % 60);
        break;
    }
    return row + "\n";
}

std::string Generate()
{
    std::string text;
    text.reserve(16 << 20);
    for (int c = 0; c < kChannels; ++c) {
        text += "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n";
        if (c % 2 == 0) {
            text += ";Channel_" + std::to_string(c) + ";COM-порт;MODBUS RTU;500;3;0;" +
                    std::to_string(c + 1) + ";9600;8;1;Нет;Нет;Нет;Нет\n";
        } else {
            text += ";Channel_" + std::to_string(c) + ";TCP-соединение;MODBUS TCP;1000;2;10;10.0.0." +
                    std::to_string(c) + ";502;3000\n";
        }
        for (int d = 0; d < kDevices; ++d) {
            text += "DEVICE;1;2;3;4;5;6;7\n;Device_" + std::to_string(d) + ";" + std::to_string(d + 1) +
                    ";Нет;125;2000;0;Да\n";
            for (int g = 0; g < kGroups; ++g) {
                text += "GROUP;1;2;3\n;Group_" + std::to_string(g) + ";" + std::to_string(100 * (g + 1)) +
                        ";мс\n";
                text += "TAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n";
                for (int k = 0; k < kTags; ++k)
                    text += TagRow(k);
            }
        }
    }
    return text;
}

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

// Peak resident size of this process in kB; ResetPeak starts a new peak.
long PeakKb()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmHWM:", 0) == 0)
            return std::stol(line.substr(6));
    }
    return -1;
}

bool ResetPeak()
{
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
    clear.close();
    return static_cast<bool>(clear);
}

// Time of Python's csv module reading the file into lists, in ms; huge when
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
        return 1e300;
    const QList<QByteArray> out = python.readAllStandardOutput().trimmed().split(' ');
    return out.size() == 2 ? out[1].toDouble() : 1e300;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir tmp;
    const QString dir = argc > 1 ? QString::fromLocal8Bit(argv[1]) : tmp.path();
    const int repeats = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;
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
    // weighs on all three alike; the best time of each counts.
    const bool peakReset = ResetPeak();
    const long baseKb = PeakKb();
    long peakKb = 0;
    double loadMs = 1e300, saveMs = 1e300, pythonMs = 1e300;
    CTreeItemRoot saved;
    for (int round = 0; round < repeats; ++round) {
        {
            CTreeItemRoot root;
            QElapsedTimer timer;
            timer.start();
            const bool ok = CCsvLoader(&root).Load(cfgPath.toStdString(), false);
            loadMs = std::min(loadMs, timer.nsecsElapsed() / 1e6);
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

        // Save: the writer, then the scrambling pass over the written file.
        QElapsedTimer timer;
        timer.start();
        const bool ok = CCsvLoader(&saved).Export(outPath.toStdString()) && CScrambler::ScrambleFile(outPath);
        saveMs = std::min(saveMs, timer.nsecsElapsed() / 1e6);
        if (!ok) {
            std::fprintf(stderr, "save failed\n");
            return 1;
        }

        pythonMs = std::min(pythonMs, PythonCsvMs(csvPath));
    }
    if (ReadFile(outPath) != ReadFile(cfgPath))
        std::printf("warning: the saved file differs from the generated one\n");

    std::printf("load .cfg:              %9.1f ms\n", loadMs);
    std::printf("export + scramble:      %9.1f ms\n", saveMs);
    if (pythonMs < 1e300) {
        std::printf("python csv (peer):      %9.1f ms\n", pythonMs);
        std::printf("ratio load / python:    %9.2f   (target <= 1.0)\n", loadMs / pythonMs);
        std::printf("ratio save / python:    %9.2f   (target <= 1.0)\n", saveMs / pythonMs);
    } else {
        std::printf("python csv (peer):      not available\n");
    }
    std::printf("peak memory of a load:  %9.1f MB (VmHWM%s; %.1f MB before; target <= 150)\n",
                peakKb / 1024.0, peakReset ? ", reset before the load" : ", whole process", baseKb / 1024.0);
    return 0;
}
