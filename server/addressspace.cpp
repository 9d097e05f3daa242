#include "server/addressspace.h"

#include "server/modbus/livevalue.h"

#include "model/cchannelinfo.h"
#include "model/dataginfo.h"
#include "model/deviceinfo.h"
#include "model/emuldata_const.h"
#include "model/emuldata_sin.h"
#include "model/groupinfo.h"
#include "model/transform_factordata.h"
#include "model/transform_linescaledata.h"

const char* const CAddressSpace::kChannelsId = "Каналы";

namespace {

const char kNamespaceUri[] = "urn:tarnopcua.server.channels";
const std::uint64_t kUnitMs[] = {1, 1000, 60000, 3600000};

// Both borrow the text: it has to outlive the call that uses them.
UA_LocalizedText Text(const char* s)
{
    return UA_LOCALIZEDTEXT(const_cast<char*>(""), const_cast<char*>(s));
}

UA_QualifiedName Browse(const char* s)
{
    return UA_QUALIFIEDNAME(2, const_cast<char*>(s));
}

} // namespace

CAddressSpace::CAddressSpace(UA_Server* server, const CExchangeClock* clock)
    : m_server(server), m_clock(clock)
{
}

CAddressSpace::~CAddressSpace() = default;

UA_NodeId CAddressSpace::NodeId(const std::string& fullName)
{
    return UA_NODEID_STRING(2, const_cast<char*>(fullName.c_str()));
}

UA_StatusCode CAddressSpace::CreateRoot()
{
    if (UA_Server_addNamespace(m_server, kNamespaceUri) != 2)
        return UA_STATUSCODE_BADINTERNALERROR;
    UA_ObjectAttributes attr = UA_ObjectAttributes_default;
    attr.displayName = Text(kChannelsId);
    return UA_Server_addObjectNode(m_server, NodeId(kChannelsId),
                                   UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER),
                                   UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES), Browse(kChannelsId),
                                   UA_NODEID_NUMERIC(0, UA_NS0ID_BASEOBJECTTYPE), attr, nullptr, nullptr);
}

void CAddressSpace::Describe(const CDATagInfo* tag, CTagRuntime& rt)
{
    rt.kind = CTagRuntime::KindFor(tag->RegType, tag->ValType);
    rt.readable = tag->bRead;
    rt.emulation = tag->EmulType;
    if (auto* c = dynamic_cast<const CEmulData_Const*>(tag->Emul))
        rt.constant = c->Const.dblVal;
    if (auto* s = dynamic_cast<const CEmulData_Sin*>(tag->Emul))
        rt.period = s->Period;
    // The file keeps no transformation for states and bit values, so neither do we.
    rt.transform = CTagRuntime::NoTransform;
    if (tag->RegType >= 2 && tag->ValType <= MVT_HighByte) {
        if (auto* l = dynamic_cast<const CTransform_LineScaleData*>(tag->Transform)) {
            rt.transform = CTagRuntime::LineScale;
            rt.srcMin = l->SrcMin;
            rt.srcMax = l->SrcMax;
            rt.dstMin = l->DstMin;
            rt.dstMax = l->DstMax;
        } else if (auto* f = dynamic_cast<const CTransform_FactorData*>(tag->Transform)) {
            rt.transform = CTagRuntime::Factor;
            rt.factor = f->Factor;
        }
    }
    const auto* group = dynamic_cast<const CGroupInfo*>(tag->GetParent());
    if (group) {
        const int unit = group->MU_UpdateRate >= 0 && group->MU_UpdateRate < 4 ? group->MU_UpdateRate : 0;
        rt.updateMs = group->UpdateRate * kUnitMs[unit];
        const auto* device = dynamic_cast<const CDeviceInfo*>(group->GetParent());
        rt.emulated = device && device->bEmulation;
    }
}

void CAddressSpace::SetLiveSource(LiveSource source, PollingOf polling)
{
    m_liveSource = std::move(source);
    m_polling = std::move(polling);
}

UA_StatusCode CAddressSpace::BuildAtStart(const std::function<CItem*(Prepared&)>& nextChannel)
{
    // Nothing else touches the node store before the server runs; a
    // lifecycle of the library's own (none is set here) would have to be
    // called for each node.
    const UA_ServerConfig* config = UA_Server_getConfig(m_server);
    m_direct = !config->nodeLifecycle.constructor;
    m_atStart = true;
    UA_StatusCode rc = UA_STATUSCODE_GOOD;
    Prepared prepared;
    m_prepared = &prepared;
    while (CItem* channel = nextChannel(prepared)) {
        m_preparedAt = 0;
        const UA_StatusCode channelRc = BuildUnder(channel, kChannelsId);
        if (rc == UA_STATUSCODE_GOOD)
            rc = channelRc;
        prepared.clear();
    }
    m_prepared = nullptr;
    m_atStart = false;
    m_direct = false;
    return rc;
}

std::unique_ptr<CAddressSpace::Tag> CAddressSpace::MakeTag(const CDATagInfo* info,
                                                           const std::string& id) const
{
    auto tag = std::make_unique<Tag>();
    tag->item = info;
    tag->clock = m_clock;
    Describe(info, tag->runtime);
    tag->runtime.SetSeed(id);
    if (m_polling)
        tag->polling = m_polling(info);
    return tag;
}

CAddressSpace::Prepared CAddressSpace::Prepare(const CItem* channel) const
{
    Prepared tags;
    PrepareUnder(channel, channel->GetName(), tags);
    return tags;
}

// In the order BuildUnder walks the tree.
void CAddressSpace::PrepareUnder(const CItem* item, const std::string& id, Prepared& tags) const
{
    if (item->GetType() == itTag) {
        tags.push_back(MakeTag(static_cast<const CDATagInfo*>(item), id));
        return;
    }
    for (const auto& child : *item)
        PrepareUnder(child.second, id + "." + child.second->GetName(), tags);
}

std::unique_ptr<CAddressSpace::Tag> CAddressSpace::TakePrepared(const CDATagInfo* info)
{
    // Tags below a node that could not be made are passed over.
    while (m_prepared && m_preparedAt < m_prepared->size()) {
        std::unique_ptr<Tag>& tag = (*m_prepared)[m_preparedAt++];
        if (tag->item == info)
            return std::move(tag);
    }
    return nullptr;
}

void CAddressSpace::AttachLive(const LiveOf& liveOf)
{
    for (auto& tag : m_tags)
        tag->live = liveOf(tag->item);
}

UA_StatusCode CAddressSpace::Build(CItem* item)
{
    if (item->GetType() == itRoot) {
        auto child = item->begin();
        return BuildAtStart([item, &child](Prepared&) -> CItem* {
            return child == item->end() ? nullptr : (child++)->second;
        });
    }
    std::string parentId = kChannelsId;
    if (item->GetType() != itChannel) {
        parentId.clear();
        item->GetParent()->GetFullName(parentId);
    }
    std::vector<std::string> made;
    m_made = &made;
    const UA_StatusCode rc = BuildUnder(item, parentId);
    m_made = nullptr;
    if (rc != UA_STATUSCODE_GOOD) {
        for (auto id = made.rbegin(); id != made.rend(); ++id)
            DeleteNode(*id);
    }
    return rc;
}

bool CAddressSpace::Free(const CItem* item, const std::string& fullName) const
{
    UA_NodeClass nodeClass;
    if (UA_Server_readNodeClass(m_server, NodeId(fullName), &nodeClass) == UA_STATUSCODE_GOOD)
        return false;
    for (const auto& child : *item) {
        if (!Free(child.second, fullName + "." + child.second->GetName()))
            return false;
    }
    return true;
}

UA_StatusCode CAddressSpace::BuildUnder(CItem* item, const std::string& parentId)
{
    const std::string& name = item->GetName();
    const std::string id = item->GetType() == itChannel ? name : parentId + "." + name;
    const UA_NodeId parent = NodeId(parentId);
    const UA_NodeId hasComponent = UA_NODEID_NUMERIC(0, UA_NS0ID_HASCOMPONENT);

    if (item->GetType() == itTag) {
        const auto* info = static_cast<const CDATagInfo*>(item);
        std::unique_ptr<Tag> tag = TakePrepared(info);
        if (!tag)
            tag = MakeTag(info, id);
        if (m_liveSource && !m_atStart) {
            tag->live = m_liveSource(info, id);
            tag->polling = {tag->live != nullptr, tag->live && tag->live->Writable()};
        }
        const Polling polling = tag->polling;
        const bool writable = polling.writable;

        const CTagRuntime::DataKind kind = tag->runtime.Published();
        UA_VariableAttributes attr = UA_VariableAttributes_default;
        attr.displayName = Text(name.c_str());
        // A number may be written in any numeric type: the value is converted
        // to the register's type on its way to the device.
        attr.dataType = writable && kind != CTagRuntime::Boolean ? UA_NODEID_NUMERIC(0, UA_NS0ID_NUMBER)
                                                                 : CTagRuntime::TypeOf(kind)->typeId;
        attr.valueRank = UA_VALUERANK_SCALAR;
        attr.accessLevel =
            (tag->runtime.readable ? UA_ACCESSLEVELMASK_READ : 0) | (writable ? UA_ACCESSLEVELMASK_WRITE : 0);
        attr.userAccessLevel = attr.accessLevel;
        // A polled value is read from memory: it may be sampled as fast as the
        // server samples at all, so that a change waits for its poll alone.
        attr.minimumSamplingInterval = polling.polled ? 10.0 : double(tag->runtime.updateMs);
        UA_DataSource source;
        source.read = &CAddressSpace::ReadTag;
        source.write = writable ? &CAddressSpace::WriteTag : nullptr;
        const UA_StatusCode rc =
            m_direct ? InsertTag(NodeId(id), parent, Browse(name.c_str()), attr, source, tag.get())
                     : TagAdded(UA_Server_addDataSourceVariableNode(
                                    m_server, NodeId(id), parent, hasComponent, Browse(name.c_str()),
                                    UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE), attr, source,
                                    tag.get(), nullptr),
                                id);
        if (rc == UA_STATUSCODE_GOOD) {
            tag->ready = true;
            tag->index = m_tags.size();
            m_tags.push_back(std::move(tag));
            if (m_made)
                m_made->push_back(id);
        } else {
            // The library may keep a node it then refused; it would read the
            // runtime that goes with `tag` now.
            void* context = nullptr;
            if (UA_Server_getNodeContext(m_server, NodeId(id), &context) == UA_STATUSCODE_GOOD &&
                context == tag.get())
                UA_Server_deleteNode(m_server, NodeId(id), true);
        }
        return rc;
    }

    UA_ObjectAttributes attr = UA_ObjectAttributes_default;
    attr.displayName = Text(name.c_str());
    UA_StatusCode rc =
        UA_Server_addObjectNode(m_server, NodeId(id), parent, hasComponent, Browse(name.c_str()),
                                UA_NODEID_NUMERIC(0, UA_NS0ID_BASEOBJECTTYPE), attr, nullptr, nullptr);
    if (rc != UA_STATUSCODE_GOOD)
        return rc;
    if (m_made)
        m_made->push_back(id);
    // One node that cannot be made doesn't cost its siblings theirs.
    for (auto& child : *item) {
        const UA_StatusCode childRc = BuildUnder(child.second, id);
        if (rc == UA_STATUSCODE_GOOD)
            rc = childRc;
    }
    return rc;
}

// The node the library's AddNodes makes for a data source variable under a
// parent with HasComponent, of type BaseDataVariableType, put into the node
// store as it stands: the same attributes, the references in the same order
// with the same name hashes, dynamic and constructed; only the type keeps no
// reference back (see TagAdded). The library's checks (the type hierarchy
// walked and the new node browsed several times) cost some fifty thousand
// instructions a node and were most of a start.
UA_StatusCode CAddressSpace::InsertTag(const UA_NodeId& id, const UA_NodeId& parentId,
                                       const UA_QualifiedName& browseName, const UA_VariableAttributes& attr,
                                       const UA_DataSource& source, void* context)
{
    UA_Nodestore& store = UA_Server_getConfig(m_server)->nodestore;
    const UA_NodeId typeId = UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE);
    // Taken as the library edits nodes: in place.
    auto* parent = const_cast<UA_Node*>(store.getNode(store.context, &parentId, UA_NODEATTRIBUTESMASK_ALL,
                                                      UA_REFERENCETYPESET_ALL, UA_BROWSEDIRECTION_BOTH));
    const UA_Node* type = store.getNode(store.context, &typeId, UA_NODEATTRIBUTESMASK_BROWSENAME,
                                        UA_REFERENCETYPESET_NONE, UA_BROWSEDIRECTION_INVALID);
    const auto release = [&store, parent, type] {
        if (parent)
            store.releaseNode(store.context, parent);
        if (type)
            store.releaseNode(store.context, type);
    };
    if (!parent || !type) {
        release();
        return parent ? UA_STATUSCODE_BADTYPEDEFINITIONINVALID : UA_STATUSCODE_BADPARENTNODEIDINVALID;
    }

    UA_Node* node = store.newNode(store.context, UA_NODECLASS_VARIABLE);
    if (!node) {
        release();
        return UA_STATUSCODE_BADOUTOFMEMORY;
    }
    node->head.context = context;
    UA_StatusCode rc = UA_NodeId_copy(&id, &node->head.nodeId);
    rc |= UA_QualifiedName_copy(&browseName, &node->head.browseName);
    rc |= UA_Node_setAttributes(node, &attr, &UA_TYPES[UA_TYPES_VARIABLEATTRIBUTES]);
    UA_VariableNode& variable = node->variableNode;
    UA_DataValue_clear(&variable.value.data.value);
    variable.value.dataSource = source;
    variable.valueSource = UA_VALUESOURCE_DATASOURCE;
    variable.isDynamic = true;
    node->head.constructed = true;

    UA_ExpandedNodeId toParent;
    UA_ExpandedNodeId_init(&toParent);
    toParent.nodeId = parentId;
    UA_ExpandedNodeId toType;
    UA_ExpandedNodeId_init(&toType);
    toType.nodeId = typeId;
    UA_ExpandedNodeId toNode;
    UA_ExpandedNodeId_init(&toNode);
    toNode.nodeId = id;
    const UA_UInt32 nodeHash = UA_QualifiedName_hash(&browseName);
    if (rc == UA_STATUSCODE_GOOD)
        rc = UA_Node_addReference(node, UA_REFERENCETYPEINDEX_HASCOMPONENT, false, &toParent,
                                  UA_QualifiedName_hash(&parent->head.browseName));
    if (rc == UA_STATUSCODE_GOOD)
        rc = UA_Node_addReference(node, UA_REFERENCETYPEINDEX_HASTYPEDEFINITION, true, &toType,
                                  UA_QualifiedName_hash(&type->head.browseName));
    if (rc != UA_STATUSCODE_GOOD) {
        store.deleteNode(store.context, node);
        release();
        return rc;
    }
    // The store takes the node, also when it refuses it (a taken id).
    UA_NodeId added;
    UA_NodeId_init(&added);
    rc = store.insertNode(store.context, node, &added);
    UA_NodeId_clear(&added);
    if (rc == UA_STATUSCODE_GOOD)
        rc = UA_Node_addReference(parent, UA_REFERENCETYPEINDEX_HASCOMPONENT, true, &toNode, nodeHash);
    release();
    return rc;
}

// The library also hangs every new variable on its type, by an inverse
// HasTypeDefinition: a hundred thousand tags on BaseDataVariableType, all
// browsed by nobody, were a sixth of a start. The tag's own reference to its
// type is all that the address space model asks for, so the type keeps none.
UA_StatusCode CAddressSpace::TagAdded(UA_StatusCode added, const std::string& id)
{
    if (added == UA_STATUSCODE_GOOD) {
        UA_ExpandedNodeId tag;
        UA_ExpandedNodeId_init(&tag);
        tag.nodeId = NodeId(id);
        UA_Server_deleteReference(m_server, UA_NODEID_NUMERIC(0, UA_NS0ID_BASEDATAVARIABLETYPE),
                                  UA_NODEID_NUMERIC(0, UA_NS0ID_HASTYPEDEFINITION), false, tag, false);
    }
    return added;
}

bool CAddressSpace::Has(CItem* item) const
{
    std::string id = kChannelsId;
    if (item->GetType() != itRoot) {
        id.clear();
        item->GetFullName(id);
    }
    UA_NodeClass nodeClass;
    return UA_Server_readNodeClass(m_server, NodeId(id), &nodeClass) == UA_STATUSCODE_GOOD;
}

void CAddressSpace::Remove(CItem* item)
{
    if (item->GetType() == itRoot) {
        for (auto& child : *item)
            RemoveUnder(child.second, child.second->GetName());
        return;
    }
    std::string id;
    item->GetFullName(id);
    RemoveUnder(item, id);
}

void CAddressSpace::RemoveUnder(CItem* item, const std::string& fullName)
{
    for (auto& child : *item)
        RemoveUnder(child.second, fullName + "." + child.second->GetName());
    DeleteNode(fullName);
}

void CAddressSpace::DeleteNode(const std::string& id)
{
    void* context = nullptr;
    UA_NodeClass nodeClass = UA_NODECLASS_UNSPECIFIED;
    const bool tag = UA_Server_readNodeClass(m_server, NodeId(id), &nodeClass) == UA_STATUSCODE_GOOD &&
                     nodeClass == UA_NODECLASS_VARIABLE &&
                     UA_Server_getNodeContext(m_server, NodeId(id), &context) == UA_STATUSCODE_GOOD &&
                     context;
    UA_Server_deleteNode(m_server, NodeId(id), true);
    if (!tag)
        return;
    // The last Tag takes the place of the one that goes.
    const std::size_t index = static_cast<Tag*>(context)->index;
    m_tags[index] = std::move(m_tags.back());
    m_tags[index]->index = index;
    m_tags.pop_back();
}

UA_StatusCode CAddressSpace::ReadTag(UA_Server*, const UA_NodeId*, void*, const UA_NodeId*, void* nodeContext,
                                     UA_Boolean sourceTimestamp, const UA_NumericRange*, UA_DataValue* value)
{
    const auto* tag = static_cast<const Tag*>(nodeContext);
    if (!tag)
        return UA_STATUSCODE_BADINTERNALERROR;
    if (!tag->ready) {
        const UA_DataType* type = CTagRuntime::TypeOf(tag->runtime.Published());
        UA_Variant_setScalar(&value->value, UA_new(type), type);
        value->hasValue = true;
        return UA_STATUSCODE_GOOD;
    }
    if (tag->live) {
        tag->live->Fill(sourceTimestamp, value);
        return UA_STATUSCODE_GOOD;
    }
    tag->runtime.Fill(tag->clock->NowMs(), sourceTimestamp, value);
    // A stopped exchange holds the value where it was: usable, no longer current.
    if (!tag->clock->Running() && value->hasValue && !value->hasStatus) {
        value->hasStatus = true;
        value->status = UA_STATUSCODE_UNCERTAINLASTUSABLEVALUE;
    }
    return UA_STATUSCODE_GOOD;
}

UA_StatusCode CAddressSpace::WriteTag(UA_Server*, const UA_NodeId*, void*, const UA_NodeId*,
                                      void* nodeContext, const UA_NumericRange* range,
                                      const UA_DataValue* value)
{
    const auto* tag = static_cast<const Tag*>(nodeContext);
    if (!tag || !tag->live)
        return UA_STATUSCODE_BADNOTWRITABLE;
    if (range || !value->hasValue)
        return UA_STATUSCODE_BADINDEXRANGEINVALID;
    // Waits for the device's answer: the client is told what the device said.
    return tag->live->Write(value->value);
}
