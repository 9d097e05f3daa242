// Browsing the server's tree below a node.
#include "opcua/opcuawrapper.h"

#include <algorithm>

namespace {

// Nodes asked for in one Browse request; halved for a server that refuses as many.
const size_t kBrowseBatch = 1000;

} // namespace

void OPCUAWrapper::browseNodes(UA_Client* browseClient, QString nodeId)
{
    auto lock = lockClient();
    if (!browseClient || (browseClient == client && !m_clientAlive))
        return;

    // The tree is walked a level at a time with many nodes in each request (one
    // request per node is a round trip per tag), then told depth first, in the
    // order the references came.
    BrowseTree tree;
    const QByteArray text = nodeId.toUtf8();
    UA_String parseText = {size_t(text.size()),
                           reinterpret_cast<UA_Byte*>(const_cast<char*>(text.constData()))};
    tree.nodes.emplace_back();
    UA_NodeId_parse(&tree.nodes.front().id, parseText);
    std::vector<size_t> level{0};
    while (!level.empty())
        level = browseLevel(browseClient, tree, level);

    std::vector<bool> onPath(tree.nodes.size(), false);
    tellFound(tree, 0, onPath);
    for (BrowseTree::Node& node : tree.nodes)
        UA_NodeId_clear(&node.id);
}

// Browses the nodes of one level, a batch per request, and answers the nodes of the next.
std::vector<size_t> OPCUAWrapper::browseLevel(UA_Client* browseClient, BrowseTree& tree,
                                              const std::vector<size_t>& level)
{
    std::vector<size_t> next;
    size_t batch = kBrowseBatch;
    for (size_t begin = 0; begin < level.size();) {
        const size_t count = std::min(batch, level.size() - begin);
        std::vector<UA_BrowseDescription> descriptions(count);
        for (size_t i = 0; i < count; ++i) {
            UA_BrowseDescription_init(&descriptions[i]);
            // Shallow: the ids stay owned by the tree.
            descriptions[i].nodeId = tree.nodes[level[begin + i]].id;
        }
        UA_BrowseRequest request;
        UA_BrowseRequest_init(&request);
        request.nodesToBrowse = descriptions.data();
        request.nodesToBrowseSize = count;
        UA_BrowseResponse response = UA_Client_Service_browse(browseClient, request);
        const UA_StatusCode service = response.responseHeader.serviceResult;
        // A server that takes fewer nodes at a time gets smaller requests.
        if ((service == UA_STATUSCODE_BADTOOMANYOPERATIONS || service == UA_STATUSCODE_BADRESPONSETOOLARGE) &&
            batch > 1) {
            UA_BrowseResponse_clear(&response);
            batch /= 2;
            continue;
        }
        std::vector<std::pair<size_t, UA_ByteString>> pending;
        for (size_t i = 0; i < response.resultsSize && i < count; ++i) {
            addReferences(tree, level[begin + i], response.results[i], next);
            if (response.results[i].continuationPoint.length > 0) {
                UA_ByteString point;
                UA_ByteString_copy(&response.results[i].continuationPoint, &point);
                pending.emplace_back(level[begin + i], point);
            }
        }
        browseContinued(browseClient, tree, pending, next);
        UA_BrowseResponse_clear(&response);
        begin += count;
    }
    return next;
}

// Follows the continuation points of servers that cut long reference lists.
void OPCUAWrapper::browseContinued(UA_Client* browseClient, BrowseTree& tree,
                                   std::vector<std::pair<size_t, UA_ByteString>> pending,
                                   std::vector<size_t>& next)
{
    while (!pending.empty()) {
        std::vector<UA_ByteString> points;
        for (const auto& entry : pending)
            points.push_back(entry.second);
        UA_BrowseNextRequest request;
        UA_BrowseNextRequest_init(&request);
        request.continuationPoints = points.data();
        request.continuationPointsSize = points.size();
        UA_BrowseNextResponse response = UA_Client_Service_browseNext(browseClient, request);
        std::vector<std::pair<size_t, UA_ByteString>> more;
        for (size_t i = 0; i < response.resultsSize && i < pending.size(); ++i) {
            addReferences(tree, pending[i].first, response.results[i], next);
            if (response.results[i].continuationPoint.length > 0) {
                UA_ByteString point;
                UA_ByteString_copy(&response.results[i].continuationPoint, &point);
                more.emplace_back(pending[i].first, point);
            }
        }
        UA_BrowseNextResponse_clear(&response);
        for (auto& entry : pending)
            UA_ByteString_clear(&entry.second);
        pending = std::move(more);
    }
}

// The string-id targets of one result become children of `parent`; a node met
// before is listed again but browsed once.
void OPCUAWrapper::addReferences(BrowseTree& tree, size_t parent, const UA_BrowseResult& result,
                                 std::vector<size_t>& next)
{
    for (size_t j = 0; j < result.referencesSize; ++j) {
        const UA_NodeId& target = result.references[j].nodeId.nodeId;
        if (target.identifierType != UA_NODEIDTYPE_STRING)
            continue;
        BrowseTree::Node node;
        node.identifier = UA_StringToQString(target.identifier.string);
        node.ns = QString::number(target.namespaceIndex);
        const QString key = QStringLiteral("ns=%1;s=%2").arg(node.ns, node.identifier);
        auto known = tree.index.constFind(key);
        size_t child = 0;
        if (known != tree.index.constEnd()) {
            child = *known;
        } else {
            child = tree.nodes.size();
            UA_NodeId_copy(&target, &node.id);
            tree.index.insert(key, child);
            tree.nodes.push_back(std::move(node));
            next.push_back(child);
        }
        tree.nodes[parent].children.push_back(child);
    }
}

// Tells and lists the found nodes depth first; a node that is its own
// ancestor is listed but not descended into again.
void OPCUAWrapper::tellFound(const BrowseTree& tree, size_t parent, std::vector<bool>& onPath)
{
    onPath[parent] = true;
    for (size_t child : tree.nodes[parent].children) {
        const BrowseTree::Node& node = tree.nodes[child];
        emit signalSetLogDlgSearchDevice(
            QStringLiteral("Найдена нода: %1 - ns=%2;s=%3").arg(node.identifier, node.ns, node.identifier));
        vecNodes.append(QStringLiteral("ns=%1;s=%2").arg(node.ns, node.identifier));
        if (!onPath[child])
            tellFound(tree, child, onPath);
    }
    onPath[parent] = false;
}
