#pragma once

#include "server/modbus/channelpoller.h"

#include "model/diagnosticnames.h"

#include <open62541/server.h>

#include <array>
#include <map>
#include <memory>
#include <string>

class CExchangeClock;
class CItem;
class CModbusBridge;
class CTreeItemRoot;

// The statistics of each channel and device, published in a namespace of
// their own so that they never meet a configured name: an object per channel
// and device below "Диагностика", its variables read on demand from the
// pollers' counters. Clients can only read them. Everything here runs on the
// server's thread.
class CDiagnostics
{
public:
    CDiagnostics(UA_Server* server, const CExchangeClock* clock);
    ~CDiagnostics();
    CDiagnostics(const CDiagnostics&) = delete;
    CDiagnostics& operator=(const CDiagnostics&) = delete;

    // The namespace and the object "Диагностика" under Objects.
    UA_StatusCode CreateRoot();
    // Brings the objects in line with the tree and its pollers: those of items
    // gone or renamed are removed, new ones added, and each reads the poller
    // that polls it now.
    void Reconcile(CTreeItemRoot* root, const CModbusBridge& bridge);

private:
    struct Entry;
    // The context of one variable's node.
    struct Field
    {
        const Entry* entry = nullptr;
        int variable = 0;
    };
    struct Entry
    {
        bool channel = false;
        const CExchangeClock* clock = nullptr;
        UA_NodeId object = UA_NODEID_NULL;
        std::array<Field, DiagnosticNames::kVariableCount> fields;
        // What the item is when no poller polls it, and why not.
        const char* idleState = nullptr;
        std::string refusal;
        std::shared_ptr<const CChannelPoller::Line> line;
        std::shared_ptr<const CChannelPoller::Health> health; // devices only
    };

    // The entry of `fullName`, its nodes made under `parent` if it is new;
    // null when they could not be made.
    Entry* Ensure(const std::string& fullName, const std::string& name, bool channel,
                  const UA_NodeId& parent);
    void Remove(const std::string& fullName);
    static const char* StateOf(const Entry& entry);
    static UA_StatusCode Read(UA_Server* server, const UA_NodeId* sessionId, void* sessionContext,
                              const UA_NodeId* nodeId, void* nodeContext, UA_Boolean sourceTimestamp,
                              const UA_NumericRange* range, UA_DataValue* value);

    UA_Server* m_server;
    const CExchangeClock* m_clock;
    UA_UInt16 m_namespace = 0;
    std::map<std::string, std::unique_ptr<Entry>> m_entries;
};
