// The bundled gateway on the 100,000-tag configuration: time from starting
// the process to its first answer to GetEndpoints.
//
//   bench_gateway [repeats]
#include "bench/benchsupport.h"
#include "config/scrambler.h"
#include "gatewayprocess.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int repeats = argc > 1 ? std::max(1, atoi(argv[1])) : 3;
    QTemporaryDir dir;
    const QString path = dir.filePath("large.cfg");
    if (!CScrambler::WriteFile(path, QString::fromStdString(BenchSupport::Generate()))) {
        std::fprintf(stderr, "bench_gateway: can't write %s\n", qPrintable(path));
        return 1;
    }
    double best = 1e300;
    for (int i = 0; i < repeats; ++i) {
        GatewayProcess gateway;
        GatewayProcess::Options options(path);
        options.logLevel = "warning";
        QElapsedTimer t;
        t.start();
        if (!gateway.start(options, 60000)) {
            std::fprintf(stderr, "bench_gateway: the gateway did not answer:\n%s\n",
                         qPrintable(gateway.output()));
            return 1;
        }
        best = std::min(best, t.nsecsElapsed() / 1e6);
        gateway.stop();
    }
    std::printf("gateway start to first endpoint answer, 100k tags: %.0f ms (best of %d)\n", best, repeats);
    BenchSupport::ReportAbsolute("gateway start to first endpoint, 100k tags", best, "ms", 3000);
    return 0;
}
