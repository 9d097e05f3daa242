// The bundled gateway on the 100,000-tag configuration: time from starting
// the process to its first answer to GetEndpoints, against the program's bare
// reader loading the same file in the same run (the gateway reads it the same
// way, then builds its address space), in turn, median of BENCH_RUNS runs.
//
//   bench_gateway
#include "bench/benchsupport.h"
#include "config/csvimporter.h"
#include "config/scrambler.h"
#include "gatewayprocess.h"
#include "model/treeitemroot.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstdio>

namespace {

// The gateway may take this many times what the bare reader takes.
constexpr double kStartRatio = 4;

double gatewayStartMs(const QString& path)
{
    GatewayProcess gateway;
    GatewayProcess::Options options(path);
    options.logLevel = "warning";
    if (!gateway.start(options, 60000)) {
        std::fprintf(stderr, "bench_gateway: the gateway did not answer:\n%s\n",
                     qPrintable(gateway.output()));
        return -1;
    }
    gateway.stop();
    return gateway.startMs();
}

double readerLoadMs(const std::string& path)
{
    QElapsedTimer t;
    t.start();
    CTreeItemRoot root;
    CCsvLoader loader(&root);
    return loader.Load(path, false) ? t.nsecsElapsed() / 1e6 : -1;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    const QString path = dir.filePath("large.cfg");
    if (!CScrambler::WriteFile(path, QString::fromStdString(BenchSupport::Generate()))) {
        std::fprintf(stderr, "bench_gateway: can't write %s\n", qPrintable(path));
        return 1;
    }
    const BenchSupport::Runs runs = BenchSupport::Runs::Alternate(
        [&] { return gatewayStartMs(path); }, [&] { return readerLoadMs(path.toStdString()); });
    std::printf("gateway start to first endpoint answer, 100k tags: %.0f ms\n", runs.Ours());
    std::printf("bare Load of the same file:                        %.0f ms\n", runs.Peer());
    std::printf("ratio:                                              %.2f (target <= %.1f)\n", runs.Ratio(),
                kStartRatio);
    return BenchSupport::ReportAgainstPeer("gateway start to first endpoint, 100k tags, vs bare Load", runs,
                                           "ms", kStartRatio)
               ? 0
               : 1;
}
