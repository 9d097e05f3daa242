#include "server/exchangeclock.h"

#include <open62541/types.h>

std::int64_t CExchangeClock::NowMs() const
{
    if (m_frozen)
        return m_frozenAt;
    return (UA_DateTime_now() - UA_DATETIME_UNIX_EPOCH) / UA_DATETIME_MSEC;
}

void CExchangeClock::Stop()
{
    if (!m_frozen)
        m_frozenAt = NowMs();
    m_frozen = true;
}

void CExchangeClock::Start()
{
    m_frozen = false;
}
