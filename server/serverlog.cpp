#include "server/serverlog.h"

#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>

namespace {

CServerLog::Level g_level = CServerLog::Warning;
volatile std::sig_atomic_t g_quietLibrary = 0;
std::mutex g_mutex;

const char* const kWords[] = {"none", "fatal", "error", "warning", "info", "debug", "verbose"};

void Emit(const char* tag, const std::string& text)
{
    using namespace std::chrono;
    const auto now = system_clock::now();
    const std::time_t t = system_clock::to_time_t(now);
    const int ms = int(duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000);
    std::tm tm{};
    localtime_r(&t, &tm);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &tm);
    std::lock_guard<std::mutex> lock(g_mutex);
    std::fprintf(stdout, "%s.%03d [%s] %s\n", stamp, ms, tag, text.c_str());
    std::fflush(stdout);
}

CServerLog::Level FromLibrary(UA_LogLevel level)
{
    if (level >= UA_LOGLEVEL_FATAL)
        return CServerLog::Fatal;
    if (level >= UA_LOGLEVEL_ERROR)
        return CServerLog::Error;
    if (level >= UA_LOGLEVEL_WARNING)
        return g_quietLibrary ? CServerLog::Debug : CServerLog::Warning;
    if (level >= UA_LOGLEVEL_INFO)
        return CServerLog::Debug;
    return CServerLog::Verbose;
}

void LibraryLog(void*, UA_LogLevel level, UA_LogCategory, const char* msg, va_list args)
{
    const CServerLog::Level ours = FromLibrary(level);
    if (ours > g_level)
        return;
    char buffer[1024];
    std::vsnprintf(buffer, sizeof buffer, msg, args);
    CServerLog::Write(ours, buffer);
}

UA_Logger g_logger = {LibraryLog, nullptr, nullptr};

} // namespace

bool CServerLog::LevelFromWord(const std::string& word, Level& level)
{
    for (int i = None; i <= Verbose; ++i) {
        if (word == kWords[i]) {
            level = Level(i);
            return true;
        }
    }
    return false;
}

void CServerLog::SetLevel(Level level)
{
    g_level = level;
}

bool CServerLog::Enabled(Level level)
{
    return level != None && level <= g_level;
}

void CServerLog::Notice(const std::string& text)
{
    if (g_level != None)
        Emit("info", text);
}

void CServerLog::Write(Level level, const std::string& text)
{
    if (!Enabled(level))
        return;
    Emit(kWords[level], text);
}

UA_Logger* CServerLog::Logger()
{
    return &g_logger;
}

void CServerLog::QuietLibrary(bool quiet)
{
    g_quietLibrary = quiet ? 1 : 0;
}
