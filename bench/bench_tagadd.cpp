// Adding tags in one series through the program's add command: the tag
// dialog answered at once, the worker behind the busy dialog, then the tag
// table brought up with the new rows. Two cases: 10,000 tags with no server
// and 1,000 tags while connected to the bundled gateway, three method calls
// each. The peer does the same work the plain way: the same tags made and
// put into a group of the model, with the same three calls through a client
// of its own when connected, then the group shown in a table view. Ours and
// the peer's in turn; the median of the runs.
//
//   QT_QPA_PLATFORM=offscreen bench_tagadd
#include "app/mainwindow.h"
#include "app/progressbar.h"
#include "bench/benchsupport.h"
#include "config/csvimporter.h"
#include "dialogs/tagsetupdialog.h"
#include "gatewayprocess.h"
#include "model/dataginfo.h"
#include "model/treeitemroot.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/modalwatcher.h"
#include "views/tablemodelvariable.h"

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
    dialog.exec();
    worker.join();
    return dialog.resultCode() == 0;
}

const char kNone[] = "http://opcfoundation.org/UA/SecurityPolicy#None (None)";

// The first group of a tree, as the tree view's first group row.
CItem* firstGroup(CItem* node)
{
    while (node && node->GetType() != itGroup)
        node = node->empty() ? nullptr : node->begin()->second;
    return node;
}

// The peer: `count` holding registers from `address` made one from the other
// as the add command makes them, put into the group, each sent to the gateway
// with the same three calls when there is a client, then the group shown.
double bareAddMs(QApplication& app, CItem* group, int count, int address, const std::string& name,
                 OPCUAWrapper* client)
{
    std::string full;
    group->GetFullName(full);
    const QString groupName = QString::fromStdString(full);
    QElapsedTimer t;
    t.start();
    auto* tag = new CDATagInfo(nullptr);
    tag->SetName(name);
    tag->RegType = MRT_HoldingRegister;
    tag->Addr = uint16_t(address);
    tag->Init();
    for (int i = 0; i < count; ++i) {
        if (i > 0) {
            auto* next = new CDATagInfo(tag);
            next->SetParent(group);
            next->Init();
            next->IncrementName(group);
            next->MakeNextSettings();
            tag = next;
        }
        group->AppendChild(tag);
        if (client) {
            client->exchangeRunning = true;
            if (!client->callMethodStartStopExchange() ||
                !client->callAddNode(MainWindow::nextTagInfo(groupName, tag)) ||
                !client->callMethodStartStopExchange())
                return -1;
        }
    }
    TableModelVariable model;
    QTableView view;
    view.setModel(&model);
    view.resize(1280, 900);
    view.show();
    model.setNameGroup(groupName);
    model.setMapItem({{groupName, group}});
    view.reset();
    view.viewport()->repaint();
    app.processEvents();
    return model.rowCount() >= count ? t.nsecsElapsed() / 1e6 : -1;
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
    const QString example = QStringLiteral(VELMORA_EXAMPLE_CFG);
    bool met = true;
    {
        const BenchSupport::Runs runs = BenchSupport::Runs::Alternate(
            [&] {
                MainWindow window;
                window.resize(1280, 900);
                window.show();
                if (!openExample(window, example))
                    return -1.0;
                const double ms = addSeries(app, window, 10000, 1);
                std::printf("resident memory now:       %7.1f MB\n", BenchSupport::ResidentKb() / 1024.0);
                return ms;
            },
            [&] {
                CTreeItemRoot root;
                if (!CCsvLoader(&root).Load(example.toStdString(), false) || !firstGroup(&root))
                    return -1.0;
                return bareAddMs(app, firstGroup(&root), 10000, 1, "Series_0", nullptr);
            });
        met &= BenchSupport::ReportAgainstPeer(
            "add 10k tags in one series, no server (peer: bare model inserts)", runs, "ms", 4.0);
    }
    {
        // Each turn against a gateway of its own, started from the example,
        // so that no turn finds the tags of another.
        GatewayProcess::Options options(example);
        options.logLevel = "warning";
        const BenchSupport::Runs runs = BenchSupport::Runs::Alternate(
            [&] {
                GatewayProcess gateway;
                MainWindow window;
                window.show();
                if (!gateway.start(options, 60000) || !openExample(window, example))
                    return -1.0;
                {
                    ModalWatcher watcher;
                    watcher.answerConnect(gateway.url());
                    window.findChild<QAction*>("action")->trigger();
                }
                return OPCUAWrapper::GetInstance()->connected ? addSeries(app, window, 1000, 100) : -1.0;
            },
            [&] {
                GatewayProcess gateway;
                OPCUAWrapper client;
                CTreeItemRoot root;
                if (!gateway.start(options, 60000) || !CCsvLoader(&root).Load(example.toStdString(), false))
                    return -1.0;
                client.findServers(gateway.url());
                if (client.connectToServer(gateway.url(), kNone, false, 0, "", "") != 0)
                    return -1.0;
                const double ms = bareAddMs(app, firstGroup(&root), 1000, 100, "Series_0", &client);
                client.disconnectToServer();
                return ms;
            });
        met &= BenchSupport::ReportAgainstPeer(
            "add 1,000 tags while connected to the gateway (peer: bare inserts and calls)", runs, "ms", 1.5);
    }
    return met ? 0 : 1;
}
