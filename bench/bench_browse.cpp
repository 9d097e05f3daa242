// Connecting with browsing to the gateway serving 100,000 tags, as the user
// does it in the find-server dialog with "Искать и показать найденные ноды на
// сервере" checked: from the click on "Подключиться" until every found node is
// in the dialog's log pane. The client call alone is given beside it.
//
//   bench_browse [repeats]
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

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

const char kNone[] = "http://opcfoundation.org/UA/SecurityPolicy#None (None)";

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    const int repeats = argc > 1 ? std::max(1, atoi(argv[1])) : 3;
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

    std::vector<double> dialogMs, clientMs, gatewayCpu;
    qsizetype found = 0;
    for (int i = 0; i < repeats; ++i) {
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
        dialogMs.push_back(t.nsecsElapsed() / 1e6);
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
    }
    std::printf("nodes found:                          %lld\n", static_cast<long long>(found));
    std::printf("connect with browse, dialog:          median %.0f ms of %d (target <= 1500)\n",
                median(dialogMs), repeats);
    std::printf("connect with browse, client alone:    median %.0f ms\n", median(clientMs));
    std::printf("gateway CPU during the dialog's run:  median %.0f ms\n", median(gatewayCpu));
    BenchSupport::ReportAbsolute("connect with browse, 100k tags", median(dialogMs), "ms", 1500);
    return found > 100000 ? 0 : 1;
}
