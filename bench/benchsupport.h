#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

// Shared pieces of the benchmarks: the large generated configuration and the
// process's memory figures.
namespace BenchSupport {

constexpr int kChannels = 10;
constexpr int kDevices = 10;
constexpr int kGroups = 10;
constexpr int kTags = 100;

// The plain text of kChannels channels (serial and TCP in turn), each with
// kDevices devices of kGroups groups of kTags tags of mixed register types,
// value types, transformations and emulations.
std::string Generate();

// Peak resident size of this process in kB (VmHWM); ResetPeak starts a new peak.
long PeakKb();
bool ResetPeak();
// Resident size now, in kB (VmRSS).
long ResidentKb();

// CPU time used so far by another process of this machine, in ms; -1 when
// it can't be read.
double ProcessCpuMs(long long pid);

// The CPU two processes take from its start on, each in percent of a core
// over the same wall time.
class CpuSpan
{
public:
    CpuSpan(long long first, long long second);
    std::pair<double, double> Percents() const;

private:
    long long m_first, m_second;
    double m_first0, m_second0;
    std::chrono::steady_clock::time_point m_start;
};

// How many times each case is run: BENCH_RUNS, at least 5.
int RunCount();

// Figures of several runs of one case: ours, and the peer's measured in the
// same turn (alternating with ours, or over the same span of time).
class Runs
{
public:
    void Add(double ours, double peer = -1);
    // Runs ours and the peer in turn RunCount() times; a figure below zero
    // means the run failed.
    static Runs Alternate(const std::function<double()>& ours, const std::function<double()>& peer);
    static Runs Repeat(const std::function<double()>& ours);
    // One figure, for cases too long to repeat.
    static Runs Once(double ours, double peer = -1);

    bool Failed() const;
    double Ours() const; // medians
    double Peer() const;
    double Ratio() const;       // the median of the runs' ratios
    std::string Spread() const; // lowest-highest ratio, or of ours when there is no peer

private:
    std::vector<double> m_ours, m_peer;
};

// Rows of the one summary table that scripts/bench.sh prints: a figure
// against an absolute target, or against a peer measured in the same run
// with a target for the ratio. Lower is better in both but the last, where
// the figure is a share of the peer's that must be reached. Each returns
// whether the target was met.
bool ReportAbsolute(const char* name, double value, const char* unit, double target);
bool ReportAbsolute(const char* name, const Runs& runs, const char* unit, double target);
bool ReportAgainstPeer(const char* name, const Runs& runs, const char* unit, double maxRatio);
bool ReportShareOfPeer(const char* name, const Runs& runs, const char* unit, double minRatio);

} // namespace BenchSupport
