#pragma once

#include <open62541/plugin/log.h>

#include <string>

// What the gateway prints: one line per event on stdout, flushed at once so
// that a parent process reading the pipe sees it immediately.
class CServerLog
{
public:
    // The log level words as the start arguments give them, in rising verbosity.
    enum Level
    {
        None = 0,
        Fatal,
        Error,
        Warning,
        Info,
        Debug,
        Verbose
    };

    // Word to level; false for an unknown word.
    static bool LevelFromWord(const std::string& word, Level& level);
    static void SetLevel(Level level);
    // Whether lines of `level` are printed: costly texts are made only then.
    static bool Enabled(Level level);

    // The start banner and the endpoint list: shown at every level but None.
    static void Notice(const std::string& text);
    static void Write(Level level, const std::string& text);

    // A logger for the OPC UA library that feeds the same output, one level
    // below ours for the library's chatter.
    static UA_Logger* Logger();
    // While set, the library's warnings count as debug lines: its set-up and
    // shutdown warn about things that are as intended here. Safe to call from
    // a signal handler.
    static void QuietLibrary(bool quiet);
};
