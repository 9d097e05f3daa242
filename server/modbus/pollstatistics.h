#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

// What became of the requests of one channel or one device since the gateway
// started. Counted on the channel's thread and read on the server's: the
// numbers are atomics, so counting takes no lock; only a failure's reason,
// which is rare, has one.
class CPollStatistics
{
public:
    enum Outcome
    {
        Answer,
        Exception, // answered with a Modbus exception
        Timeout,
        Failure // garbage, or the connection broke
    };

    // One request went out, and this came of it after `us` microseconds.
    void Count(Outcome outcome, std::int64_t us);
    // Why the last request failed or could not go out, at `ms` of the Unix epoch.
    void Fail(const std::string& why, std::int64_t ms);

    struct Snapshot
    {
        std::uint64_t requests = 0;
        std::uint64_t answers = 0;
        std::uint64_t timeouts = 0;
        std::uint64_t exceptions = 0;
        double meanResponseMs = 0; // of answers and exception answers
        double maxResponseMs = 0;
        std::string lastError;
        std::int64_t lastErrorMs = 0; // 0: none yet
    };
    Snapshot Take() const;

private:
    std::atomic<std::uint64_t> m_requests{0};
    std::atomic<std::uint64_t> m_answers{0};
    std::atomic<std::uint64_t> m_timeouts{0};
    std::atomic<std::uint64_t> m_exceptions{0};
    std::atomic<std::uint64_t> m_answeredUs{0};
    std::atomic<std::uint64_t> m_maxUs{0};

    mutable std::mutex m_errorMutex;
    std::string m_lastError;
    std::int64_t m_lastErrorMs = 0;
};
