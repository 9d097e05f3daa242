// Renders docs/modbus-monitoring.png: the monitoring tab showing the demo
// simulator's live values through the bundled gateway; with a second path,
// docs/trend.png: two of them on the trend, with a pause of the device; with a
// third, docs/diagnostics.png: the device's diagnostics while it is silent.
//   cmake --build build --target velmora_modbus_shot
//   QT_QPA_PLATFORM=offscreen build/bin/velmora_modbus_shot docs/modbus-monitoring.png docs/trend.png
//       docs/diagnostics.png
#include "app/qttranslation.h"
#include "config/scrambler.h"
#include "gatewayprocess.h"
#include "tests/common/session.h"

#include <QAction>
#include <QApplication>
#include <QEventLoop>
#include <QFile>
#include <QMenu>
#include <QProcess>
#include <QTableView>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeWidget>

#include <csignal>
#include <cstdio>

namespace {

void runFor(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    installQtTranslation(app);
    if (argc < 2 || argc > 4) {
        std::fprintf(stderr, "usage: velmora_modbus_shot <picture.png> [trend.png [diagnostics.png]]\n");
        return 2;
    }
    // The demo configuration, on a port of its own.
    const int port = GatewayProcess::freePort();
    QFile demo(QString(VELMORA_EXAMPLES) + "/modbus-demo.csv");
    QTemporaryDir dir;
    const QString path = dir.filePath("modbus-demo.cfg");
    if (!demo.open(QIODevice::ReadOnly) ||
        !CScrambler::WriteFile(path, QString::fromUtf8(demo.readAll())
                                         .replace(";127.0.0.1;1502;", QString(";127.0.0.1;%1;").arg(port)))) {
        std::fprintf(stderr, "velmora_modbus_shot: can't prepare the demo configuration\n");
        return 1;
    }
    QProcess sim;
    sim.start("/usr/bin/python3", {VELMORA_MODBUS_SIM, "--tcp", QString::number(port), "--demo"});
    GatewayProcess gateway;
    if (!sim.waitForReadyRead(20000) || !gateway.start(GatewayProcess::Options(path))) {
        std::fprintf(stderr, "velmora_modbus_shot: no simulator or gateway:\n%s\n",
                     qPrintable(gateway.output()));
        return 1;
    }

    Session session(path);
    session.w.resize(1280, 800);
    session.watcher.answerConnect(gateway.url());
    session.w.findChild<QAction*>("action")->trigger();
    session.select(session.node("Стенд.Котёл.Быстрая"));
    session.tree()->expandAll();
    session.w.findChild<QAction*>("monitoring_action")->trigger();
    runFor(3000);
    bool saved = session.w.grab().save(QString::fromLocal8Bit(argv[1]));
    if (argc >= 3) {
        // Pressure and a flag on the plot; the device stops answering for a
        // while (the gap and the crosses) and comes back.
        auto* table = session.w.findChild<QTableView*>("tableView_2");
        for (int row : {1, 4})
            table->selectionModel()->select(table->model()->index(row, 0),
                                            QItemSelectionModel::Select | QItemSelectionModel::Rows);
        QMenu menu;
        session.w.fillMonitoringMenu(menu, 1);
        menu.actions().first()->trigger();
        runFor(25000);
        ::kill(pid_t(sim.processId()), SIGSTOP);
        runFor(6000);
        ::kill(pid_t(sim.processId()), SIGCONT);
        runFor(20000);
        saved = session.w.grab().save(QString::fromLocal8Bit(argv[2])) && saved;
    }
    if (argc == 4) {
        // The device stops answering again: its diagnostics, and its mark in the tree.
        session.select(session.node("Стенд.Котёл"));
        runFor(3000);
        ::kill(pid_t(sim.processId()), SIGSTOP);
        runFor(5000);
        saved = session.w.grab().save(QString::fromLocal8Bit(argv[3])) && saved;
        ::kill(pid_t(sim.processId()), SIGCONT);
    }
    session.w.findChild<QAction*>("monitoring_action")->trigger();
    sim.kill();
    sim.waitForFinished(5000);
    return saved ? 0 : 1;
}
