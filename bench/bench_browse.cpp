// Connecting with browsing to the gateway serving 100,000 tags, as the user
// does it in the find-server dialog with "Искать и показать найденные ноды на
// сервере" checked: from the click on "Подключиться" until every found node is
// in the dialog's log pane. The peer is the bare open62541 client doing the
// same work the plain way: connect, then browse the channels object level by
// level, many nodes in a request, following continuation points. Ours and the
// peer's in turn; the median of the runs. The program's client call alone is
// given beside them.
//
//   bench_browse
#include "bench/benchsupport.h"
#include "config/scrambler.h"
#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "opcua/searchopcuaserver.h"

#include <QAbstractButton>
#include <QApplication>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>

#include <open62541/client_config_default.h>
#include <open62541/client_highlevel.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

const char kNone[] = "http://opcfoundation.org/UA/SecurityPolicy#None (None)";

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// The string-id targets of the results not met before join the next level;
// answers the continuation points of the results cut short.
std::vector<UA_ByteString> takeTargets(const UA_BrowseResult* results, size_t count,
                                       std::unordered_set<std::string>& seen, std::vector<UA_NodeId>& next)
{
    std::vector<UA_ByteString> points;
    for (size_t i = 0; i < count; ++i) {
        const UA_BrowseResult& result = results[i];
        for (size_t j = 0; j < result.referencesSize; ++j) {
            const UA_NodeId& target = result.references[j].nodeId.nodeId;
            if (target.identifierType != UA_NODEIDTYPE_STRING)
                continue;
            const std::string key = std::to_string(target.namespaceIndex) + ":" +
                                    std::string(reinterpret_cast<const char*>(target.identifier.string.data),
                                                target.identifier.string.length);
            if (seen.insert(key).second) {
                next.emplace_back();
                UA_NodeId_copy(&target, &next.back());
            }
        }
        if (result.continuationPoint.length > 0) {
            points.emplace_back();
            UA_ByteString_copy(&result.continuationPoint, &points.back());
        }
    }
    return points;
}

// Connect and browse with the bare client, in ms; the nodes found in count.
double bareClientMs(const QString& url, size_t& count)
{
    QElapsedTimer t;
    t.start();
    UA_Client* client = UA_Client_new();
    UA_ClientConfig* config = UA_Client_getConfig(client);
    UA_ClientConfig_setDefault(config);
    if (UA_Client_connect(client, url.toUtf8().constData()) != UA_STATUSCODE_GOOD) {
        UA_Client_delete(client);
        return -1;
    }
    std::unordered_set<std::string> seen;
    std::vector<UA_NodeId> level(1);
    level[0] = UA_NODEID_STRING_ALLOC(2, "Каналы");
    while (!level.empty()) {
        std::vector<UA_NodeId> next;
        for (size_t begin = 0; begin < level.size(); begin += 1000) {
            const size_t n = std::min<size_t>(1000, level.size() - begin);
            std::vector<UA_BrowseDescription> descriptions(n);
            for (size_t i = 0; i < n; ++i) {
                UA_BrowseDescription_init(&descriptions[i]);
                descriptions[i].nodeId = level[begin + i];
                descriptions[i].resultMask = UA_BROWSERESULTMASK_ALL;
            }
            UA_BrowseRequest request;
            UA_BrowseRequest_init(&request);
            request.nodesToBrowse = descriptions.data();
            request.nodesToBrowseSize = n;
            UA_BrowseResponse response = UA_Client_Service_browse(client, request);
            std::vector<UA_ByteString> points =
                takeTargets(response.results, response.resultsSize, seen, next);
            UA_BrowseResponse_clear(&response);
            while (!points.empty()) {
                UA_BrowseNextRequest more;
                UA_BrowseNextRequest_init(&more);
                more.continuationPoints = points.data();
                more.continuationPointsSize = points.size();
                UA_BrowseNextResponse answer = UA_Client_Service_browseNext(client, more);
                std::vector<UA_ByteString> further =
                    takeTargets(answer.results, answer.resultsSize, seen, next);
                UA_BrowseNextResponse_clear(&answer);
                for (UA_ByteString& point : points)
                    UA_ByteString_clear(&point);
                points = std::move(further);
            }
        }
        for (UA_NodeId& id : level)
            UA_NodeId_clear(&id);
        level = std::move(next);
    }
    const double ms = t.nsecsElapsed() / 1e6;
    UA_Client_disconnect(client);
    UA_Client_delete(client);
    count = seen.size();
    return ms;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    QTemporaryDir dir;
    const QString path = dir.filePath("large.cfg");
    if (!CScrambler::WriteFile(path, QString::fromStdString(BenchSupport::Generate()))) {
        std::fprintf(stderr, "bench_browse: can't write %s\n", qPrintable(path));
        return 1;
    }
    GatewayProcess gateway;
    GatewayProcess::Options options(path);
    options.logLevel = "warning";
    if (!gateway.start(options, 60000)) {
        std::fprintf(stderr, "bench_browse: the gateway did not answer:\n%s\n", qPrintable(gateway.output()));
        return 1;
    }

    std::vector<double> clientMs, gatewayCpu;
    qsizetype found = 0;
    size_t bareFound = 0;
    const auto dialogMs = [&] {
        SearchOPCUAServer dialog(false, nullptr, {}, {}, nullptr);
        OPCUAWrapper* client = dialog.getOPCUAWrapper();
        client->vecNodes.clear();
        dialog.findChild<QLineEdit*>("le_device")->setText(gateway.url());
        dialog.findChild<QAbstractButton*>("checkBox_browse")->setChecked(true);
        dialog.findChild<QPushButton*>("pb_searchDevice")->click();
        dialog.findChild<QPushButton*>("pb_getEndPoint")->click();
        const double cpu0 = BenchSupport::ProcessCpuMs(gateway.processId());
        QElapsedTimer t;
        t.start();
        dialog.findChild<QPushButton*>("pb_connect")->click();
        QCoreApplication::processEvents();
        const double ms = t.nsecsElapsed() / 1e6;
        gatewayCpu.push_back(BenchSupport::ProcessCpuMs(gateway.processId()) - cpu0);
        found = client->getVecNodes().size();
        client->disconnectToServer();

        // The same connection without the dialog.
        OPCUAWrapper bare;
        bare.findServers(gateway.url());
        t.restart();
        bare.connectToServer(gateway.url(), kNone, true, 0, "", "");
        clientMs.push_back(t.nsecsElapsed() / 1e6);
        bare.disconnectToServer();
        return ms;
    };
    const BenchSupport::Runs runs =
        BenchSupport::Runs::Alternate(dialogMs, [&] { return bareClientMs(gateway.url(), bareFound); });
    std::printf("nodes found:                          %lld, bare client %zu\n",
                static_cast<long long>(found), bareFound);
    std::printf("connect with browse, dialog:          median %.0f ms\n", runs.Ours());
    std::printf("connect with browse, client alone:    median %.0f ms\n", median(clientMs));
    std::printf("connect with browse, bare open62541:  median %.0f ms\n", runs.Peer());
    std::printf("gateway CPU during the dialog's run:  median %.0f ms\n", median(gatewayCpu));
    const bool met = BenchSupport::ReportAgainstPeer(
        "connect with browse, 100k tags (peer: bare open62541 client)", runs, "ms", 4.0);
    return met && found > 100000 && !runs.Failed() && runs.Peer() > 0 ? 0 : 1;
}
