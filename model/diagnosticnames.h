#pragma once

// The names under which the gateway publishes the statistics of its channels
// and devices, shared by the gateway and the program that shows them. A
// variable's node id is "<full name>.<variable>" in the namespace of
// kNamespaceUri; objects of channels and devices hang below kRootId.
namespace DiagnosticNames {

inline constexpr char kNamespaceUri[] = "urn:velmora:diagnostics";
inline constexpr char kRootId[] = "Диагностика";

enum Variable
{
    State,
    Link, // channels only
    Requests,
    Answers,
    Timeouts,
    Exceptions,
    MeanResponseMs,
    MaxResponseMs,
    LastError,
    LastErrorTime,
    kVariableCount
};
inline constexpr const char* kVariables[kVariableCount] = {
    "State",      "Link",           "Requests",      "Answers",   "Timeouts",
    "Exceptions", "MeanResponseMs", "MaxResponseMs", "LastError", "LastErrorTime"};

// Values of State.
inline constexpr char kPolled[] = "polled";
inline constexpr char kDemoted[] = "demoted";
inline constexpr char kNoLink[] = "noLink";
inline constexpr char kStopped[] = "stopped";
inline constexpr char kEmulated[] = "emulated";
inline constexpr char kNotPolled[] = "notPolled";
// Values of Link, besides kNotPolled.
inline constexpr char kConnected[] = "connected";
inline constexpr char kConnecting[] = "connecting";
inline constexpr char kPortError[] = "portError";

} // namespace DiagnosticNames
