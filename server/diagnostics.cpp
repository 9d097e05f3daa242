#include "server/diagnostics.h"

#include "server/exchangeclock.h"
#include "server/modbus/modbusbridge.h"
#include "server/serverlog.h"

#include "model/cchannelinfo.h"
#include "model/deviceinfo.h"
#include "model/treeitemroot.h"

#include <algorithm>
#include <set>
#include <vector>

using namespace DiagnosticNames;

namespace {

// Both borrow the text: it has to outlive the call that uses them.
UA_NodeId StringId(UA_UInt16 ns, const std::string& id)
{
    return UA_NODEID_STRING(ns, const_cast<char*>(id.c_str()));
}

UA_LocalizedText Text(const std::string& s)
{
    return UA_LOCALIZEDTEXT(const_cast<char*>(""), const_cast<char*>(s.c_str()));
}

const UA_DataType* TypeOf(int variable)
{
    switch (variable) {
    case State:
    case Link:
    case LastError:
        return &UA_TYPES[UA_TYPES_STRING];
    case MeanResponseMs:
    case MaxResponseMs:
        return &UA_TYPES[UA_TYPES_DOUBLE];
    case LastErrorTime:
        return &UA_TYPES[UA_TYPES_DATETIME];
    default:
        return &UA_TYPES[UA_TYPES_UINT64];
    }
}

UA_StatusCode SetText(UA_Variant& v, const std::string& text)
{
    UA_String s = UA_STRING(const_cast<char*>(text.c_str()));
    return UA_Variant_setScalarCopy(&v, &s, &UA_TYPES[UA_TYPES_STRING]);
}

const char* LinkText(CChannelPoller::Link link)
{
    switch (link) {
    case CChannelPoller::Link::Connected:
        return kConnected;
    case CChannelPoller::Link::PortError:
        return kPortError;
    default:
        return kConnecting;
    }
}

} // namespace

CDiagnostics::CDiagnostics(UA_Server* server, const CExchangeClock* clock) : m_server(server), m_clock(clock)
{
}

// The nodes go with the server; only the entries they read are freed here.
CDiagnostics::~CDiagnostics() = default;

UA_StatusCode CDiagnostics::CreateRoot()
{
    m_namespace = UA_Server_addNamespace(m_server, kNamespaceUri);
    UA_ObjectAttributes attr = UA_ObjectAttributes_default;
    const std::string root = kRootId;
    attr.displayName = Text(root);
    return UA_Server_addObjectNode(
        m_server, StringId(m_namespace, root), UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER),
        UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES), UA_QUALIFIEDNAME(m_namespace, const_cast<char*>(kRootId)),
        UA_NODEID_NUMERIC(0, UA_NS0ID_BASEOBJECTTYPE), attr, nullptr, nullptr);
}

void CDiagnostics::Reconcile(CTreeItemRoot* root, const CModbusBridge& bridge)
{
    std::set<std::string> present;
    for (auto& channel : *root) {
        present.insert(channel.second->GetName());
        for (auto& device : *channel.second)
            present.insert(channel.second->GetName() + "." + device.second->GetName());
    }
    // Devices before their channels: a channel's object goes last.
    std::vector<std::string> stale;
    for (const auto& entry : m_entries)
        if (!present.count(entry.first))
            stale.push_back(entry.first);
    std::stable_partition(stale.begin(), stale.end(),
                          [](const std::string& name) { return name.find('.') != std::string::npos; });
    for (const std::string& name : stale)
        Remove(name);

    const std::string rootId = kRootId;
    for (auto& child : *root) {
        auto* channel = static_cast<CChannelInfo*>(child.second);
        const std::string& name = channel->GetName();
        Entry* ch = Ensure(name, name, true, StringId(m_namespace, rootId));
        if (!ch)
            continue;
        ch->line = bridge.LineOf(name);
        ch->refusal = bridge.RefusalOf(name);
        bool emulated = false;
        for (auto& d : *channel) {
            auto* device = static_cast<CDeviceInfo*>(d.second);
            const std::string key = name + "." + device->GetName();
            emulated = emulated || device->bEmulation;
            Entry* entry = Ensure(key, device->GetName(), false, ch->object);
            if (!entry)
                continue;
            entry->line = ch->line;
            entry->health = bridge.HealthOf(name, key);
            entry->idleState = device->bEmulation ? kEmulated : kNotPolled;
            entry->refusal = device->bEmulation || !device->bExchange ? std::string() : ch->refusal;
        }
        ch->idleState = emulated && ch->refusal.empty() ? kEmulated : kNotPolled;
    }
}

CDiagnostics::Entry* CDiagnostics::Ensure(const std::string& fullName, const std::string& name, bool channel,
                                          const UA_NodeId& parent)
{
    std::unique_ptr<Entry>& slot = m_entries[fullName];
    if (slot)
        return slot.get();
    auto entry = std::make_unique<Entry>();
    entry->channel = channel;
    entry->clock = m_clock;
    const UA_NodeId hasComponent = UA_NODEID_NUMERIC(0, UA_NS0ID_HASCOMPONENT);
    UA_ObjectAttributes attr = UA_ObjectAttributes_default;
    attr.displayName = Text(name);
    // Objects take numbers: only the variables are named, so that no name of
    // a channel or device can meet a variable's.
    const UA_StatusCode rc =
        UA_Server_addObjectNode(m_server, UA_NODEID_NUMERIC(m_namespace, 0), parent, hasComponent,
                                UA_QUALIFIEDNAME(m_namespace, const_cast<char*>(name.c_str())),
                                UA_NODEID_NUMERIC(0, UA_NS0ID_BASEOBJECTTYPE), attr, nullptr, &entry->object);
    if (rc != UA_STATUSCODE_GOOD) {
        CServerLog::Write(CServerLog::Warning,
                          "Диагностика " + fullName + " не опубликована: " + UA_StatusCode_name(rc));
        m_entries.erase(fullName);
        return nullptr;
    }
    for (int v = 0; v < kVariableCount; ++v) {
        if (v == Link && !channel)
            continue;
        Field& field = entry->fields[std::size_t(v)];
        field.entry = entry.get();
        field.variable = v;
        const std::string id = fullName + "." + kVariables[v];
        UA_VariableAttributes va = UA_VariableAttributes_default;
        va.displayName = UA_LOCALIZEDTEXT(const_cast<char*>(""), const_cast<char*>(kVariables[v]));
        va.dataType = TypeOf(v)->typeId;
        va.valueRank = UA_VALUERANK_SCALAR;
        va.accessLevel = UA_ACCESSLEVELMASK_READ;
        va.userAccessLevel = UA_ACCESSLEVELMASK_READ;
        va.minimumSamplingInterval = 100.0;
        UA_DataSource source;
        source.read = &CDiagnostics::Read;
        source.write = nullptr;
        const UA_StatusCode made = UA_Server_addDataSourceVariableNode(
            m_server, StringId(m_namespace, id), entry->object, hasComponent,
            UA_QUALIFIEDNAME(m_namespace, const_cast<char*>(kVariables[v])),
            UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE), va, source, &field, nullptr);
        if (made != UA_STATUSCODE_GOOD)
            CServerLog::Write(CServerLog::Warning,
                              "Диагностика " + id + " не опубликована: " + UA_StatusCode_name(made));
    }
    slot = std::move(entry);
    return slot.get();
}

void CDiagnostics::Remove(const std::string& fullName)
{
    const auto it = m_entries.find(fullName);
    if (it == m_entries.end())
        return;
    // The nodes go before the entry they read.
    for (int v = 0; v < kVariableCount; ++v) {
        if (v == Link && !it->second->channel)
            continue;
        const std::string id = fullName + "." + kVariables[v];
        UA_Server_deleteNode(m_server, StringId(m_namespace, id), true);
    }
    UA_Server_deleteNode(m_server, it->second->object, true);
    m_entries.erase(it);
}

const char* CDiagnostics::StateOf(const Entry& e)
{
    const bool active = e.health || (e.channel && e.line) || e.idleState == kEmulated;
    if (active && !e.clock->Running())
        return kStopped;
    if (e.health) {
        switch (CChannelPoller::ModeOf(*e.health)) {
        case CChannelPoller::Mode::NoLink:
            return kNoLink;
        case CChannelPoller::Mode::Demoted:
            return kDemoted;
        default:
            return kPolled;
        }
    }
    if (e.channel && e.line)
        return kPolled;
    return e.idleState ? e.idleState : kNotPolled;
}

UA_StatusCode CDiagnostics::Read(UA_Server*, const UA_NodeId*, void*, const UA_NodeId*, void* nodeContext,
                                 UA_Boolean sourceTimestamp, const UA_NumericRange*, UA_DataValue* value)
{
    const auto* field = static_cast<const Field*>(nodeContext);
    if (!field || !field->entry)
        return UA_STATUSCODE_BADINTERNALERROR;
    const Entry& e = *field->entry;
    const CPollStatistics* statistics = e.health              ? &e.health->statistics
                                        : e.channel && e.line ? &e.line->statistics
                                                              : nullptr;
    const CPollStatistics::Snapshot s = statistics ? statistics->Take() : CPollStatistics::Snapshot();
    UA_Variant& v = value->value;
    UA_StatusCode rc = UA_STATUSCODE_GOOD;
    switch (field->variable) {
    case State:
        rc = SetText(v, StateOf(e));
        break;
    case Link:
        rc = SetText(v, e.line ? LinkText(e.line->link) : kNotPolled);
        break;
    case Requests:
    case Answers:
    case Timeouts:
    case Exceptions: {
        const std::uint64_t counts[] = {s.requests, s.answers, s.timeouts, s.exceptions};
        const UA_UInt64 count = counts[field->variable - Requests];
        rc = UA_Variant_setScalarCopy(&v, &count, &UA_TYPES[UA_TYPES_UINT64]);
        break;
    }
    case MeanResponseMs:
    case MaxResponseMs: {
        const UA_Double ms = field->variable == MeanResponseMs ? s.meanResponseMs : s.maxResponseMs;
        rc = UA_Variant_setScalarCopy(&v, &ms, &UA_TYPES[UA_TYPES_DOUBLE]);
        break;
    }
    case LastError:
        rc = SetText(v, s.lastError.empty() ? e.refusal : s.lastError);
        break;
    default: {
        // DateTime 0, the type's null, while there was none.
        const UA_DateTime at = s.lastErrorMs ? UA_DATETIME_UNIX_EPOCH + s.lastErrorMs * UA_DATETIME_MSEC : 0;
        rc = UA_Variant_setScalarCopy(&v, &at, &UA_TYPES[UA_TYPES_DATETIME]);
        break;
    }
    }
    if (rc != UA_STATUSCODE_GOOD)
        return rc;
    value->hasValue = true;
    if (sourceTimestamp) {
        value->hasSourceTimestamp = true;
        value->sourceTimestamp = UA_DateTime_now();
    }
    return UA_STATUSCODE_GOOD;
}
