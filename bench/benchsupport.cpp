#include "bench/benchsupport.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <unistd.h>

namespace BenchSupport {

namespace {

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

long StatusKb(const char* key)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string prefix = key;
    while (std::getline(status, line)) {
        if (line.rfind(prefix, 0) == 0)
            return std::stol(line.substr(prefix.size()));
    }
    return -1;
}

} // namespace

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

long PeakKb()
{
    return StatusKb("VmHWM:");
}

long ResidentKb()
{
    return StatusKb("VmRSS:");
}

bool ResetPeak()
{
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
    clear.close();
    return static_cast<bool>(clear);
}

double ProcessCpuMs(long long pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    // Fields after the command name, which may hold blanks, start behind ")".
    const size_t close = text.rfind(')');
    if (close == std::string::npos)
        return -1;
    std::istringstream rest(text.substr(close + 2));
    std::string field;
    long long utime = 0;
    long long stime = 0;
    for (int i = 3; i <= 15 && rest >> field; ++i) {
        if (i == 14)
            utime = std::stoll(field);
        if (i == 15)
            stime = std::stoll(field);
    }
    return double(utime + stime) * 1000.0 / double(sysconf(_SC_CLK_TCK));
}

CpuSpan::CpuSpan(long long first, long long second)
    : m_first(first), m_second(second), m_first0(ProcessCpuMs(first)), m_second0(ProcessCpuMs(second)),
      m_start(std::chrono::steady_clock::now())
{
}

std::pair<double, double> CpuSpan::Percents() const
{
    const double wallMs =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - m_start).count();
    return {(ProcessCpuMs(m_first) - m_first0) / wallMs * 100.0,
            (ProcessCpuMs(m_second) - m_second0) / wallMs * 100.0};
}

int RunCount()
{
    const char* runs = std::getenv("BENCH_RUNS");
    return std::max(5, runs ? std::atoi(runs) : 0);
}

void Runs::Add(double ours, double peer)
{
    m_ours.push_back(ours);
    m_peer.push_back(peer);
}

Runs Runs::Alternate(const std::function<double()>& ours, const std::function<double()>& peer)
{
    Runs runs;
    for (int i = 0, n = RunCount(); i < n; ++i) {
        const double o = ours();
        runs.Add(o, peer());
    }
    return runs;
}

Runs Runs::Repeat(const std::function<double()>& ours)
{
    Runs runs;
    for (int i = 0, n = RunCount(); i < n; ++i)
        runs.Add(ours());
    return runs;
}

Runs Runs::Once(double ours, double peer)
{
    Runs runs;
    runs.Add(ours, peer);
    return runs;
}

namespace {

double Median(std::vector<double> v)
{
    if (v.empty())
        return -1;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

std::string Format(const char* format, double a, double b)
{
    char text[64];
    std::snprintf(text, sizeof text, format, a, b);
    return text;
}

} // namespace

bool Runs::Failed() const
{
    const auto bad = [](double x) { return x < 0; };
    return m_ours.empty() || std::any_of(m_ours.begin(), m_ours.end(), bad);
}

double Runs::Ours() const
{
    return Median(m_ours);
}

double Runs::Peer() const
{
    return Median(m_peer);
}

double Runs::Ratio() const
{
    std::vector<double> ratios;
    for (size_t i = 0; i < m_ours.size(); ++i)
        if (m_peer[i] > 0)
            ratios.push_back(m_ours[i] / m_peer[i]);
    return Median(ratios);
}

std::string Runs::Spread() const
{
    std::vector<double> v;
    for (size_t i = 0; i < m_ours.size(); ++i)
        v.push_back(m_peer[i] > 0 ? m_ours[i] / m_peer[i] : m_ours[i]);
    if (v.size() < 2)
        return "-";
    const auto [low, high] = std::minmax_element(v.begin(), v.end());
    return Format(m_peer.front() > 0 ? "%.2f-%.2f" : "%.1f-%.1f", *low, *high) + " (" +
           std::to_string(v.size()) + ")";
}

namespace {

bool Row(const char* name, const std::string& ours, const std::string& peer, const std::string& ratio,
         const std::string& spread, const std::string& target, bool met)
{
    std::printf("BENCH\t%s\t%s\t%s\t%s\t%s\t%s\t%s\n", name, ours.c_str(), peer.c_str(), ratio.c_str(),
                spread.c_str(), target.c_str(), met ? "pass" : "FAIL");
    std::fflush(stdout);
    return met;
}

std::string Figure(double value, const char* unit)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.1f %s", value, unit);
    return text;
}

} // namespace

bool ReportAbsolute(const char* name, double value, const char* unit, double target)
{
    return Row(name, Figure(value, unit), "-", "-", "-", "<= " + Figure(target, unit), value <= target);
}

bool ReportAbsolute(const char* name, const Runs& runs, const char* unit, double target)
{
    const double value = runs.Ours();
    return Row(name, Figure(value, unit), "-", "-", runs.Spread(), "<= " + Figure(target, unit),
               !runs.Failed() && value <= target);
}

bool ReportAgainstPeer(const char* name, const Runs& runs, const char* unit, double maxRatio)
{
    const double ratio = runs.Ratio();
    return Row(name, Figure(runs.Ours(), unit), Figure(runs.Peer(), unit), Format("%.2f", ratio, 0),
               runs.Spread(), Format("<= %.2f", maxRatio, 0),
               !runs.Failed() && ratio >= 0 && ratio <= maxRatio);
}

bool ReportShareOfPeer(const char* name, const Runs& runs, const char* unit, double minRatio)
{
    const double ratio = runs.Ratio();
    return Row(name, Figure(runs.Ours(), unit), Figure(runs.Peer(), unit), Format("%.2f", ratio, 0),
               runs.Spread(), Format(">= %.2f", minRatio, 0), !runs.Failed() && ratio >= minRatio);
}

} // namespace BenchSupport
