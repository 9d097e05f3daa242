#pragma once

#include <string>

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

// Rows of the one summary table that scripts/bench.sh prints: a figure
// against an absolute target, or against a peer measured in the same run
// with a target for the ratio. Lower is better in both but the last, where
// the figure is a share of the peer's that must be reached.
void ReportAbsolute(const char* name, double value, const char* unit, double target);
void ReportAgainstPeer(const char* name, double value, double peer, const char* unit, double maxRatio);
void ReportShareOfPeer(const char* name, double value, double peer, const char* unit, double minRatio);

} // namespace BenchSupport
