#include "server/modbus/pollstatistics.h"

void CPollStatistics::Count(Outcome outcome, std::int64_t us)
{
    // One channel thread writes: relaxed order is enough for counts read as a whole.
    const auto relaxed = std::memory_order_relaxed;
    m_requests.fetch_add(1, relaxed);
    switch (outcome) {
    case Answer:
        m_answers.fetch_add(1, relaxed);
        break;
    case Exception:
        m_exceptions.fetch_add(1, relaxed);
        break;
    case Timeout:
        m_timeouts.fetch_add(1, relaxed);
        return;
    case Failure:
        return;
    }
    const std::uint64_t took = us > 0 ? std::uint64_t(us) : 0;
    m_answeredUs.fetch_add(took, relaxed);
    if (took > m_maxUs.load(relaxed))
        m_maxUs.store(took, relaxed);
}

void CPollStatistics::Fail(const std::string& why, std::int64_t ms)
{
    std::lock_guard<std::mutex> lock(m_errorMutex);
    m_lastError = why;
    m_lastErrorMs = ms;
}

CPollStatistics::Snapshot CPollStatistics::Take() const
{
    Snapshot s;
    s.requests = m_requests;
    s.answers = m_answers;
    s.timeouts = m_timeouts;
    s.exceptions = m_exceptions;
    const std::uint64_t answered = s.answers + s.exceptions;
    s.meanResponseMs = answered ? double(m_answeredUs) / double(answered) / 1000.0 : 0.0;
    s.maxResponseMs = double(m_maxUs) / 1000.0;
    std::lock_guard<std::mutex> lock(m_errorMutex);
    s.lastError = m_lastError;
    s.lastErrorMs = m_lastErrorMs;
    return s;
}
