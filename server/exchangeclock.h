#pragma once

#include <cstdint>

// The time that tag values are computed for. stopExchange freezes it, so
// every value stays as it was; startExchange lets it run again.
class CExchangeClock
{
public:
    std::int64_t NowMs() const;
    void Stop();
    void Start();
    bool Running() const { return !m_frozen; }

private:
    bool m_frozen = false;
    std::int64_t m_frozenAt = 0;
};
