#include "app/mainwindow.h"
#include "examplegateway.h"
#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"
#include "views/tablemodelmonitoring.h"

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QTabWidget>
#include <QTimer>
#include <QTreeWidget>
#include <QtTest>

#include <csignal>

namespace {

const char kGroup[] = "Channel_0.Device_0.Group_0";

QAction* action(MainWindow& w, const char* name)
{
    return w.findChild<QAction*>(name);
}

QTreeWidget* tree(MainWindow& w)
{
    return w.findChild<QTreeWidget*>("treeWidget");
}

QTreeWidgetItem* channelRow(MainWindow& w, int i)
{
    return tree(w)->topLevelItem(0)->child(i);
}

QTreeWidgetItem* groupRow(MainWindow& w)
{
    return channelRow(w, 0)->child(0)->child(0);
}

void select(MainWindow& w, QTreeWidgetItem* row)
{
    tree(w)->clearSelection();
    tree(w)->setCurrentItem(row);
    row->setSelected(true);
}

int enabledActions(MainWindow& w)
{
    int count = 0;
    for (const char* name :
         {"open_action", "action_export_conf", "action_import_conf", "copy_action", "paste_action", "action",
          "edit_action", "save_action", "add_channel_action", "add_device_action", "add_group_action",
          "add_tag_action", "delete_action", "monitoring_action"})
        count += action(w, name)->isEnabled();
    return count;
}

bool iconIs(MainWindow& w, const char* file)
{
    return action(w, "monitoring_action")->icon().pixmap(16).toImage() == QIcon(file).pixmap(16).toImage();
}

QString cell(MainWindow& w, int row, int column)
{
    TableModelMonitoring* model = MainWindowProbe::monitoringModel(w);
    return model->data(model->index(row, column)).toString();
}

// Opens `config`, connects through the find-server dialog and starts monitoring the first group.
bool startMonitoring(MainWindow& w, ModalWatcher& watcher, const QString& config, const QString& url)
{
    w.show();
    watcher.answerFile(config);
    w.on_open_action_triggered();
    watcher.answer([url](QWidget* dialog) {
        dialog->findChild<QLineEdit*>("le_device")->setText(url);
        for (const char* name : {"pb_searchDevice", "pb_getEndPoint", "pb_connect", "pb_ok"})
            dialog->findChild<QPushButton*>(name)->click();
    });
    action(w, "action")->trigger();
    select(w, groupRow(w));
    action(w, "monitoring_action")->trigger();
    return MainWindowProbe::connected(w) && MainWindowProbe::monitoring(w);
}

} // namespace

// Connecting through the dialog and live monitoring in the main window,
// against the gateway running the worked example with emulated values.
class MonitoringTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_example;

private slots:
    void initTestCase()
    {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        m_example = writeEmulatedExample(m_dir.path());
        QVERIFY(!m_example.isEmpty());
    }

    void connectMonitorAndDisconnect()
    {
        GatewayProcess gateway;
        QVERIFY2(gateway.start(GatewayProcess::Options(m_example)), qPrintable(gateway.output()));
        ModalWatcher watcher;
        MainWindow w;

        // No connection yet: the switch only warns.
        watcher.answer(QMessageBox::Ok);
        w.on_monitoring_action_triggered();
        QCOMPARE(
            watcher.seen().last().text,
            QString("Нет подключенных серверов, запустите сервер или подключитесь к нему через меню Сервис"));

        QVERIFY(startMonitoring(w, watcher, m_example, gateway.url()));
        QCOMPARE(MainWindowProbe::statusLabel(w)->text(),
                 QString(" Подключены к серверу (%1).").arg(gateway.url()));
        QVERIFY(iconIs(w, ":/res/images/res/monitoring_on.png"));
        QVERIFY(enabledActions(w) == 1 && action(w, "monitoring_action")->isEnabled());
        QCOMPARE(w.findChild<QTabWidget*>("tabWidget")->currentIndex(), 2);

        // Values with their quality and arrival time. The constant comes once, while the 29 groups behind are
        // still being subscribed, and must not be lost.
        for (int row = 0; row < 3; ++row)
            QTRY_COMPARE_WITH_TIMEOUT(cell(w, row, 2), QString("Good"), 10000);
        QCOMPARE(cell(w, 0, 1), QString("0"));
        QVERIFY(QRegularExpression("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}$")
                    .match(cell(w, 2, 3))
                    .hasMatch());

        // However fast values come, the table is repainted at most ten times a second.
        TableModelMonitoring* model = MainWindowProbe::monitoringModel(w);
        QSignalSpy repaints(model, &QAbstractItemModel::dataChanged);
        QElapsedTimer clock;
        clock.start();
        QTRY_VERIFY_WITH_TIMEOUT(repaints.size() >= 10, 20000);
        QVERIFY2(clock.elapsed() >= 800, qPrintable(QString::number(clock.elapsed())));

        // A value finds its row by subscription and name; decimals beyond six are cut.
        const int sub = MainWindowProbe::subscriptionRows(w).firstKey();
        const QString tag0 = QString(kGroup) + ".Tag_0";
        auto inject = [&](const QVariant& value, const QString& name, int id) {
            w.slotDataChange({uint(1), value, QString("Good"), name, uint(id)});
            return model->groupValues(kGroup).at(1).toString();
        };
        QCOMPARE(inject(12.3456789, tag0, sub), QString("12.345678"));
        QCOMPARE(inject(7.5, QString(kGroup) + ".Tag_9", sub), QString("12.345678")); // unknown name
        QCOMPARE(inject(7.5, tag0, sub + 99), QString("12.345678"));                  // unknown subscription
        w.slotDataChange({QString("BadNoCommunication")});
        QCOMPARE(model->groupValues(kGroup).at(1).toString(), QString("12.345678"));

        // With a channel selected the tab is off and values are dropped; back on the group
        // they come again (the random tag keeps changing).
        select(w, channelRow(w, 0));
        QVERIFY(!w.findChild<QTabWidget*>("tabWidget")->isTabEnabled(2));
        QCOMPARE(inject(7.5, tag0, sub), QString("12.345678"));
        const QList<QVariant> frozen = model->groupValues(kGroup);
        select(w, groupRow(w));
        QTRY_VERIFY_WITH_TIMEOUT(model->groupValues(kGroup) != frozen, 10000);

        // The Delete key of the tree still works and reaches the gateway at once.
        select(w, channelRow(w, 1));
        watcher.answer(QMessageBox::Yes);
        w.activateWindow();
        tree(w)->setFocus();
        QTRY_VERIFY(tree(w)->hasFocus());
        QTest::keyClick(tree(w), Qt::Key_Delete);
        QTRY_COMPARE_WITH_TIMEOUT(tree(w)->topLevelItem(0)->childCount(), 1, 5000);
        QTRY_VERIFY_WITH_TIMEOUT(gateway.output().contains("Вызов метода deleteNode: Channel_1"), 10000);

        // Stopped with a channel selected, the toolbar follows the channel.
        select(w, channelRow(w, 0));
        action(w, "monitoring_action")->trigger();
        QVERIFY(!MainWindowProbe::monitoring(w) && MainWindowProbe::subscriptionRows(w).isEmpty());
        QVERIFY(iconIs(w, ":/res/images/res/monitoring_off.png"));
        QVERIFY(action(w, "add_device_action")->isEnabled() && !action(w, "add_tag_action")->isEnabled());

        // Stopped on the group, all of the group's commands come back.
        select(w, groupRow(w));
        action(w, "monitoring_action")->trigger();
        action(w, "monitoring_action")->trigger();
        QVERIFY(!MainWindowProbe::monitoring(w));
        QCOMPARE(enabledActions(w), 14);

        // Opened again, the dialog shows the connection and can end it.
        watcher.answer([](QWidget* dialog) {
            dialog->findChild<QPushButton*>("pb_disconnect")->click();
            dialog->findChild<QPushButton*>("pb_ok")->click();
        });
        action(w, "action")->trigger();
        QVERIFY(!MainWindowProbe::connected(w) && !MainWindowProbe::client(w));
        QCOMPARE(MainWindowProbe::statusLabel(w)->text(), QString("Сервер не запущен"));
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    // The gateway dies under live monitoring, then comes back on its port.
    void gatewayKilledDuringMonitoring()
    {
        GatewayProcess::Options options(m_example);
        GatewayProcess gateway;
        QVERIFY2(gateway.start(options), qPrintable(gateway.output()));
        ModalWatcher watcher;
        MainWindow w;
        QVERIFY(startMonitoring(w, watcher, m_example, gateway.url()));
        QTRY_COMPARE_WITH_TIMEOUT(cell(w, 2, 2), QString("Good"), 10000);
        const QString connectedLabel = MainWindowProbe::statusLabel(w)->text();

        // Noticed within seconds: monitoring ends, the line says why, no value passes for live.
        ::kill(pid_t(gateway.processId()), SIGKILL);
        QTRY_VERIFY_WITH_TIMEOUT(!MainWindowProbe::monitoring(w), 5000);
        QVERIFY(MainWindowProbe::statusLabel(w)->text().contains("Соединение с сервером потеряно: Bad"));
        const QString reason = cell(w, 0, 2);
        QVERIFY2(reason.startsWith("Bad"), qPrintable(reason));
        QCOMPARE(cell(w, 2, 2), reason);
        QVERIFY(!MainWindowProbe::monitoringTimer(w)->isActive());
        QVERIFY(iconIs(w, ":/res/images/res/monitoring_off.png") && enabledActions(w) == 14);

        // A start while it is down fails and says so, yet shows the tab.
        w.findChild<QTabWidget*>("tabWidget")->setCurrentIndex(0);
        watcher.answer(QMessageBox::Ok);
        action(w, "monitoring_action")->trigger();
        QCOMPARE(watcher.seen().last().text,
                 QString("Ошибка создания подписки выбранных тегов, подробности смотрите с логе."));
        QVERIFY(!MainWindowProbe::monitoring(w) && iconIs(w, ":/res/images/res/monitoring_off.png"));
        QCOMPARE(w.findChild<QTabWidget*>("tabWidget")->currentIndex(), 2);

        // Back again: monitoring starts on a new session with live values, and calls go through.
        options.port = gateway.port();
        QVERIFY2(gateway.start(options), qPrintable(gateway.output()));
        action(w, "monitoring_action")->trigger();
        QVERIFY(MainWindowProbe::monitoring(w));
        QTRY_COMPARE_WITH_TIMEOUT(cell(w, 2, 2), QString("Good"), 10000);
        QCOMPARE(MainWindowProbe::statusLabel(w)->text(), connectedLabel);
        QVERIFY(MainWindowProbe::client(w)->callDeleteNode({"Channel_1"}));
        QCOMPARE(watcher.unexpectedCount(), 0);
    }
};

QTEST_MAIN(MonitoringTest)
#include "tst_monitoring.moc"
