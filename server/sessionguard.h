#pragma once

#include <open62541/server.h>

#include <chrono>
#include <vector>

// Closes sessions that were created but never activated. Each one holds a
// place in the server's table of sessions until its timeout, which the client
// chooses, so without this a client could fill the table without ever logging
// in and keep everybody else out.
class CSessionGuard
{
public:
    static constexpr int kActivationSeconds = 5;

    explicit CSessionGuard(UA_Server* server) : m_server(server) {}
    ~CSessionGuard();
    CSessionGuard(const CSessionGuard&) = delete;
    CSessionGuard& operator=(const CSessionGuard&) = delete;

    void Activated(const UA_NodeId& session);
    void Closed(const UA_NodeId& session);
    // Closes the sessions past their time. Called outside the server's own
    // callbacks, as often as convenient: it looks once a second.
    void Check();

private:
    bool IsActivated(const UA_NodeId& session) const;

    UA_Server* m_server;
    std::vector<UA_NodeId> m_activated;
    std::chrono::steady_clock::time_point m_nextCheck;
};
