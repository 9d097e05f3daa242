#pragma once

#include "server/exchangeclock.h"
#include "server/tagruntime.h"

#include <open62541/server.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

class CItem;
class CDATagInfo;
class CLiveValue;

// The OPC UA side of the tree: one node per channel, device, group and tag in
// namespace 2, named by full path, under the object "Каналы". Tags are data
// sources reading their CTagRuntime, so nothing runs for tags nobody reads.
class CAddressSpace
{
public:
    static const char* const kChannelsId;
    // Gives the polled value of a tag, or null when the tag is emulated.
    using LiveSource = std::function<std::shared_ptr<CLiveValue>(const CDATagInfo*, const std::string&)>;
    // Whether a tag has a polled value, and whether it may be written, told
    // before the value itself exists.
    struct Polling
    {
        bool polled = false;
        bool writable = false;
    };
    using PollingOf = std::function<Polling(const CDATagInfo*)>;
    using LiveOf = std::function<std::shared_ptr<CLiveValue>(const CDATagInfo*)>;
    // What a tag's node reads; known outside only by name.
    struct Tag;
    // The tags below one channel made ready for BuildAtStart, in its order.
    using Prepared = std::vector<std::unique_ptr<Tag>>;

    CAddressSpace(UA_Server* server, const CExchangeClock* clock);
    ~CAddressSpace();
    CAddressSpace(const CAddressSpace&) = delete;
    CAddressSpace& operator=(const CAddressSpace&) = delete;

    // Namespace 2 and the object "Каналы" under Objects.
    UA_StatusCode CreateRoot();
    // Adds the nodes of `item` and of everything below it. The parent's node
    // has to exist already. For an item it is all or nothing: on failure the
    // nodes it made are gone again and nothing else was touched. For the root
    // it is BuildAtStart of its channels.
    UA_StatusCode Build(CItem* item);
    // The whole tree at start, before the server runs, a channel at a time as
    // `nextChannel` gives them (null: no more). Every node that can be made
    // stays, and the tags go into the node store directly. Tags get no polled
    // value here, so that the pollers can be planned meanwhile: AttachLive
    // gives them theirs. `nextChannel` may hand its tags over already
    // prepared.
    UA_StatusCode BuildAtStart(const std::function<CItem*(Prepared&)>& nextChannel);
    // The tags below `channel` made ready away from the node store, so on any
    // thread while another builds the channels before it.
    Prepared Prepare(const CItem* channel) const;
    void AttachLive(const LiveOf& liveOf);
    // True when no node has any of the ids that `item` and everything below it
    // would have under the full name `fullName`.
    bool Free(const CItem* item, const std::string& fullName) const;
    // Removes the nodes of `item` and of everything below it, named as the
    // tree names them now.
    void Remove(CItem* item);
    // True when the node of `item` (the root: "Каналы") is in the address space.
    bool Has(CItem* item) const;

    void SetLiveSource(LiveSource source, PollingOf polling);

    static UA_NodeId NodeId(const std::string& fullName);
    std::size_t TagCount() const { return m_tags.size(); }

private:
    // The value settings of one tag as taken from the tree.
    static void Describe(const CDATagInfo* tag, CTagRuntime& rt);
    UA_StatusCode BuildUnder(CItem* item, const std::string& parentId);
    UA_StatusCode InsertTag(const UA_NodeId& id, const UA_NodeId& parentId,
                            const UA_QualifiedName& browseName, const UA_VariableAttributes& attr,
                            const UA_DataSource& source, void* context);
    // What AddNodes answered for the tag `id`; a tag it made loses the reference from its type.
    UA_StatusCode TagAdded(UA_StatusCode added, const std::string& id);
    void RemoveUnder(CItem* item, const std::string& fullName);
    // Deletes the node `id` and, when it is a tag's, its Tag.
    void DeleteNode(const std::string& id);
    static UA_StatusCode ReadTag(UA_Server* server, const UA_NodeId* sessionId, void* sessionContext,
                                 const UA_NodeId* nodeId, void* nodeContext, UA_Boolean sourceTimestamp,
                                 const UA_NumericRange* range, UA_DataValue* value);
    static UA_StatusCode WriteTag(UA_Server* server, const UA_NodeId* sessionId, void* sessionContext,
                                  const UA_NodeId* nodeId, void* nodeContext, const UA_NumericRange* range,
                                  const UA_DataValue* value);

    // A tag's value settings, its polling told by PollingOf.
    std::unique_ptr<Tag> MakeTag(const CDATagInfo* info, const std::string& id) const;
    void PrepareUnder(const CItem* item, const std::string& id, Prepared& tags) const;
    // The prepared tag of `info` where the build under way has one.
    std::unique_ptr<Tag> TakePrepared(const CDATagInfo* info);

public:
    struct Tag
    {
        const CDATagInfo* item = nullptr;
        Polling polling;
        std::size_t index = 0; // in m_tags
        CTagRuntime runtime;
        const CExchangeClock* clock = nullptr;
        // Off while the node is being added: the library reads the value then
        // to check its type, and a bad status would refuse the node.
        bool ready = false;
        std::shared_ptr<CLiveValue> live;
    };

private:
    UA_Server* m_server;
    const CExchangeClock* m_clock;
    LiveSource m_liveSource;
    PollingOf m_polling;
    // Each tag's node has its Tag as context, which tells its place here.
    std::vector<std::unique_ptr<Tag>> m_tags;
    // Ids made by the item build under way, to be undone if it fails.
    std::vector<std::string>* m_made = nullptr;
    // The tree build at start leaves the polled values for AttachLive ...
    bool m_atStart = false;
    // ... and puts tags into the node store itself ...
    bool m_direct = false;
    // ... with the tags of the channel under way made ready beforehand.
    Prepared* m_prepared = nullptr;
    std::size_t m_preparedAt = 0;
};
