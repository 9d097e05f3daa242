// Opening the 100,000-tag configuration through the program's own open path
// (worker thread, busy dialog, tree rebuild, selection of the root) against
// the bare reader on the same file, in turn; the median of the runs.
// From the second repeat on, the program's open also replaces the tree it
// had; its worker frees that tree after the dialog has closed, and the next
// turn waits for it to end.
//
//   QT_QPA_PLATFORM=offscreen bench_open
#include "app/mainwindow.h"
#include "app/progressbar.h"
#include "bench/benchsupport.h"
#include "config/csvimporter.h"
#include "config/scrambler.h"
#include "model/treeitemroot.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTreeWidget>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include <malloc.h>

namespace {

double bareLoadMs(const std::string& path)
{
    QElapsedTimer t;
    t.start();
    CTreeItemRoot root;
    CCsvLoader loader(&root);
    if (!loader.Load(path, false))
        return -1;
    return t.nsecsElapsed() / 1e6;
}

// The bare load's tree, freed after its time was taken, leaves its nodes on
// the allocator's lists; the next large allocation would sort them out, and
// that would be the program's busy dialog in the next turn. Handing them back
// here, as the program does with the tree it replaces, keeps it outside both
// measured spans.
void settleHeap()
{
    malloc_trim(0);
}

// The steps of the open command after its file dialog, until the dialog
// closes; ended is the time until the worker has ended too.
double programOpenMs(MainWindow& window, const QString& path, double& ended)
{
    QElapsedTimer t;
    t.start();
    ProgressBar dialog(nullptr);
    QObject::connect(&window, &MainWindow::signalCloseProgressBar, &dialog,
                     &ProgressBar::slotCloseProgressBar);
    QObject::connect(&window, &MainWindow::signalSetLabelProgressBar, &dialog,
                     &ProgressBar::slotSetLabelProgressBar);
    std::thread worker(&MainWindow::openCSVFile, &window, path);
    dialog.exec();
    const double ms = t.nsecsElapsed() / 1e6;
    worker.join();
    ended = t.nsecsElapsed() / 1e6;
    return dialog.resultCode() == 0 ? ms : -1;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QTemporaryDir dir;
    const QString path = dir.filePath("large.cfg");
    if (!CScrambler::WriteFile(path, QString::fromStdString(BenchSupport::Generate()))) {
        std::fprintf(stderr, "bench_open: can't write %s\n", qPrintable(path));
        return 1;
    }

    MainWindow window;
    window.show();
    BenchSupport::Runs ended;
    const BenchSupport::Runs runs = BenchSupport::Runs::Alternate(
        [&] {
            double endedMs = -1;
            const double ms = programOpenMs(window, path, endedMs);
            ended.Add(endedMs);
            app.processEvents();
            return ms;
        },
        [&] {
            const double ms = bareLoadMs(path.toStdString());
            settleHeap();
            return ms;
        });
    if (runs.Failed() || runs.Peer() < 0) {
        std::fprintf(stderr, "bench_open: the configuration did not load\n");
        return 1;
    }
    const int rows = window.findChild<QTreeWidget*>("treeWidget")->topLevelItem(0)->childCount();
    std::printf(
        "configuration: %d tags, %d channel rows in the tree\n",
        BenchSupport::kChannels * BenchSupport::kDevices * BenchSupport::kGroups * BenchSupport::kTags, rows);
    std::printf("bare Load:                 %7.1f ms\n", runs.Peer());
    std::printf("open through the program:  %7.1f ms\n", runs.Ours());
    std::printf("  and until its worker ended: %5.1f ms (the replaced tree freed)\n", ended.Ours());
    std::printf("ratio open / Load:          %5.2f   (target <= 1.2)\n", runs.Ratio());
    std::printf("resident memory now:        %5.1f MB\n", BenchSupport::ResidentKb() / 1024.0);
    bool met =
        BenchSupport::ReportAgainstPeer("open 100k tags in the program (peer: bare Load)", runs, "ms", 1.2);
    met &= BenchSupport::ReportAbsolute("resident memory, 100k-tag tree open",
                                        BenchSupport::ResidentKb() / 1024.0, "MB", 300);
    return met ? 0 : 1;
}
