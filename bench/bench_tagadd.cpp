// Adding tags in one series through the program's add command: the tag
// dialog answered at once, the worker behind the busy dialog, then the tag
// table brought up with the new rows. Two cases: 10,000 tags with no server
// (target 2 s from the dialog's OK to the table shown) and 1,000 tags while
// connected to the bundled gateway, three method calls each (target 10 s).
//
//   QT_QPA_PLATFORM=offscreen bench_tagadd
#include "app/mainwindow.h"
#include "app/progressbar.h"
#include "bench/benchsupport.h"
#include "dialogs/tagsetupdialog.h"
#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/modalwatcher.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QSpinBox>
#include <QTableView>
#include <QTimer>
#include <QTreeWidget>

#include <algorithm>
#include <cstdio>
#include <thread>

namespace {

bool openExample(MainWindow& window, const QString& path)
{
    ProgressBar dialog(nullptr);
    QObject::connect(&window, &MainWindow::signalCloseProgressBar, &dialog,
                     &ProgressBar::slotCloseProgressBar);
    std::thread worker(&MainWindow::openCSVFile, &window, path);
    worker.detach();
    dialog.exec();
    return dialog.resultCode() == 0;
}

QTreeWidgetItem* firstGroupRow(QTreeWidget* tree)
{
    QTreeWidgetItem* row = tree->topLevelItem(0);
    while (row && row->type() != TreeItemGroup)
        row = row->childCount() ? row->child(0) : nullptr;
    return row;
}

// One series of `count` holding registers from `address`, from the dialog's
// OK to the table showing them; negative when the table doesn't show them.
double addSeries(QApplication& app, MainWindow& window, int count, int address)
{
    auto* tree = window.findChild<QTreeWidget*>("treeWidget");
    QTreeWidgetItem* groupRow = firstGroupRow(tree);
    if (!groupRow)
        return -1;
    tree->setCurrentItem(groupRow);
    auto* table = window.findChild<QTableView*>("tableView");
    const int before = table->model()->rowCount();

    QElapsedTimer sinceOk;
    QTimer answer;
    answer.setInterval(1);
    QObject::connect(&answer, &QTimer::timeout, [&] {
        auto* dialog = qobject_cast<TagSetupDialog*>(QApplication::activeModalWidget());
        if (!dialog)
            return;
        answer.stop();
        dialog->findChild<QComboBox*>("regTypeBox")->setCurrentIndex(3);
        dialog->findChild<QSpinBox*>("addrBox")->setValue(address);
        dialog->findChild<QComboBox*>("valTypeBox")->setCurrentIndex(2);
        dialog->findChild<QSpinBox*>("spinBox_5")->setValue(count);
        sinceOk.start();
        dialog->accept();
    });
    answer.start();

    window.on_add_tag_action_triggered();
    table->viewport()->repaint();
    app.processEvents();
    const double ms = sinceOk.nsecsElapsed() / 1e6;
    const int after = table->model()->rowCount();
    std::printf("tags added:                %7d (table rows %d -> %d)\n", count, before, after);
    std::printf("OK to table shown:         %7.1f ms, %.1f us per tag\n", ms, ms * 1000.0 / count);
    return after == before + count ? ms : -1;
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    bool ok = true;
    {
        MainWindow window;
        window.resize(1280, 900);
        window.show();
        if (!openExample(window, QStringLiteral(VELMORA_EXAMPLE_CFG))) {
            std::fprintf(stderr, "bench_tagadd: the example did not load\n");
            return 1;
        }
        const double ms = addSeries(app, window, 10000, 1);
        std::printf("resident memory now:       %7.1f MB\n", BenchSupport::ResidentKb() / 1024.0);
        ok &= ms >= 0;
        BenchSupport::ReportAbsolute("add 10k tags in one series, no server", ms, "ms", 2000);
    }
    {
        GatewayProcess gateway;
        GatewayProcess::Options options(QStringLiteral(VELMORA_EXAMPLE_CFG));
        options.logLevel = "warning";
        if (!gateway.start(options, 60000)) {
            std::fprintf(stderr, "bench_tagadd: the gateway did not start:\n%s\n",
                         qPrintable(gateway.output()));
            return 1;
        }
        MainWindow window;
        window.show();
        if (!openExample(window, QStringLiteral(VELMORA_EXAMPLE_CFG))) {
            std::fprintf(stderr, "bench_tagadd: the example did not load\n");
            return 1;
        }
        {
            ModalWatcher watcher;
            watcher.answerConnect(gateway.url());
            window.findChild<QAction*>("action")->trigger();
        }
        if (!OPCUAWrapper::GetInstance()->connected) {
            std::fprintf(stderr, "bench_tagadd: no connection to the gateway\n");
            return 1;
        }
        const double ms = addSeries(app, window, 1000, 100);
        ok &= ms >= 0;
        BenchSupport::ReportAbsolute("add 1,000 tags while connected to the gateway", ms, "ms", 10000);
    }
    return ok ? 0 : 1;
}
