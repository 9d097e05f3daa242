#include "server/sessionguard.h"

#include "server/serverlog.h"

#include <algorithm>
#include <string>

CSessionGuard::~CSessionGuard()
{
    for (UA_NodeId& id : m_activated)
        UA_NodeId_clear(&id);
}

bool CSessionGuard::IsActivated(const UA_NodeId& session) const
{
    return std::any_of(m_activated.begin(), m_activated.end(),
                       [&session](const UA_NodeId& id) { return UA_NodeId_equal(&id, &session); });
}

void CSessionGuard::Activated(const UA_NodeId& session)
{
    if (IsActivated(session))
        return;
    UA_NodeId copy;
    if (UA_NodeId_copy(&session, &copy) == UA_STATUSCODE_GOOD)
        m_activated.push_back(copy);
}

void CSessionGuard::Closed(const UA_NodeId& session)
{
    for (auto it = m_activated.begin(); it != m_activated.end(); ++it) {
        if (UA_NodeId_equal(&*it, &session)) {
            UA_NodeId_clear(&*it);
            m_activated.erase(it);
            return;
        }
    }
}

void CSessionGuard::Check()
{
    const auto now = std::chrono::steady_clock::now();
    if (now < m_nextCheck)
        return;
    m_nextCheck = now + std::chrono::seconds(1);

    UA_Variant sessions;
    UA_Variant_init(&sessions);
    if (UA_Server_readValue(
            m_server,
            UA_NODEID_NUMERIC(
                0, UA_NS0ID_SERVER_SERVERDIAGNOSTICS_SESSIONSDIAGNOSTICSSUMMARY_SESSIONDIAGNOSTICSARRAY),
            &sessions) != UA_STATUSCODE_GOOD ||
        sessions.type != &UA_TYPES[UA_TYPES_SESSIONDIAGNOSTICSDATATYPE]) {
        UA_Variant_clear(&sessions);
        return;
    }
    const auto* list = static_cast<const UA_SessionDiagnosticsDataType*>(sessions.data);
    const auto* end = list + sessions.arrayLength;
    const UA_DateTime deadline = UA_DateTime_now() - kActivationSeconds * UA_DATETIME_SEC;
    for (const auto* s = list; s != end; ++s) {
        if (IsActivated(s->sessionId) || s->clientConnectionTime > deadline)
            continue;
        if (UA_Server_closeSession(m_server, &s->sessionId) == UA_STATUSCODE_GOOD)
            CServerLog::Write(CServerLog::Info, "Сессия закрыта: вход не выполнен за " +
                                                    std::to_string(kActivationSeconds) + " с");
    }
    // Sessions that ended by their timeout are forgotten here too.
    for (auto it = m_activated.begin(); it != m_activated.end();) {
        const bool alive = std::any_of(list, end, [&it](const UA_SessionDiagnosticsDataType& s) {
            return UA_NodeId_equal(&s.sessionId, &*it);
        });
        if (alive) {
            ++it;
        } else {
            UA_NodeId_clear(&*it);
            it = m_activated.erase(it);
        }
    }
    UA_Variant_clear(&sessions);
}
