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

namespace {

const char kGroup[] = "Channel_0.Device_0.Group_0";
const char kCode8[] = "Ошибка отключение подписки выбранных тегов, подробности смотрите с логе.";
const char kCode10[] = "Ошибка создания подписки выбранных тегов, подробности смотрите с логе.";

QAction* action(MainWindow& w, const char* name)
{
    return w.findChild<QAction*>(name);
}

QTreeWidget* tree(MainWindow& w)
{
    return w.findChild<QTreeWidget*>("treeWidget");
}

void select(MainWindow& w, QTreeWidgetItem* row)
{
    tree(w)->clearSelection();
    tree(w)->setCurrentItem(row);
    row->setSelected(true);
}

QTreeWidgetItem* channelRow(MainWindow& w, int i)
{
    return tree(w)->topLevelItem(0)->child(i);
}

QTreeWidgetItem* groupRow(MainWindow& w)
{
    return channelRow(w, 0)->child(0)->child(0);
}

// Drives the find-server dialog through search, endpoints and an anonymous connection.
void connectThroughDialog(MainWindow& w, ModalWatcher& watcher, const QString& url)
{
    watcher.answer([url](QWidget* dialog) {
        dialog->findChild<QLineEdit*>("le_device")->setText(url);
        for (const char* name : {"pb_searchDevice", "pb_getEndPoint", "pb_connect", "pb_ok"})
            dialog->findChild<QPushButton*>(name)->click();
    });
    action(w, "action")->trigger();
}

QStringList enabledActions(MainWindow& w)
{
    QStringList names;
    for (const char* name :
         {"open_action", "action_export_conf", "action_import_conf", "copy_action", "paste_action", "action",
          "edit_action", "save_action", "add_channel_action", "add_device_action", "add_group_action",
          "add_tag_action", "delete_action", "monitoring_action"})
        if (action(w, name)->isEnabled())
            names << name;
    return names;
}

bool sameIcon(const QIcon& icon, const char* file)
{
    return icon.pixmap(16).toImage() == QIcon(file).pixmap(16).toImage();
}

QString cell(MainWindow& w, int row, int column)
{
    TableModelMonitoring* model = MainWindowProbe::monitoringModel(w);
    return model->data(model->index(row, column)).toString();
}

} // namespace

// Connecting through the dialog and live monitoring in the main window,
// against the gateway running the worked example with emulated values.
class MonitoringTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString m_example;

    // Opens the example, connects to the gateway and starts monitoring its group.
    void startMonitoring(MainWindow& w, ModalWatcher& watcher, const GatewayProcess& gateway)
    {
        watcher.answerFile(m_example);
        w.on_open_action_triggered();
        connectThroughDialog(w, watcher, gateway.url());
        QVERIFY(MainWindowProbe::connected(w));
        select(w, groupRow(w));
        action(w, "monitoring_action")->trigger();
        QVERIFY(MainWindowProbe::monitoring(w));
    }

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
        w.show();

        // No connection yet: the switch only warns.
        watcher.answer(QMessageBox::Ok);
        w.on_monitoring_action_triggered();
        QCOMPARE(
            watcher.seen().last().text,
            QString("Нет подключенных серверов, запустите сервер или подключитесь к нему через меню Сервис"));

        startMonitoring(w, watcher, gateway);
        QCOMPARE(MainWindowProbe::statusLabel(w)->text(),
                 QString(" Подключены к серверу (%1).").arg(gateway.url()));
        QVERIFY(MainWindowProbe::dialogConnected(w));
        QCOMPARE(MainWindowProbe::client(w), OPCUAWrapper::GetInstance());
        TableModelMonitoring* model = MainWindowProbe::monitoringModel(w);

        QVERIFY(sameIcon(action(w, "monitoring_action")->icon(), ":/res/images/res/monitoring_on.png"));
        QCOMPARE(enabledActions(w), QStringList{"monitoring_action"});
        QCOMPARE(w.findChild<QTabWidget*>("tabWidget")->currentIndex(), 2);
        QCOMPARE(MainWindowProbe::monitoredTreeItem(w), groupRow(w));
        const QString g = QString(kGroup) + ".";
        QCOMPARE(MainWindowProbe::subscribedNames(w),
                 (QList<QList<QString>>{{g + "Tag_0", g + "Tag_1", g + "Tag_2"}}));

        // Values, their quality and arrival times; the random tag keeps changing.
        QTRY_VERIFY(!cell(w, 2, 1).isEmpty());
        for (int row = 0; row < 3; ++row)
            QTRY_COMPARE(cell(w, row, 2), QString("Good"));
        QVERIFY(QRegularExpression("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}$")
                    .match(cell(w, 2, 3))
                    .hasMatch());
        const QString firstTime = cell(w, 2, 3);
        QTRY_VERIFY(cell(w, 2, 3) != firstTime);

        // However fast values come, the table is repainted at most ten times a second.
        QSignalSpy repaints(model, &QAbstractItemModel::dataChanged);
        QTest::qWait(1000);
        QVERIFY2(repaints.size() >= 5 && repaints.size() <= 11, qPrintable(QString::number(repaints.size())));

        // A value finds its row by subscription and name; decimals beyond six are cut.
        const int sub = MainWindowProbe::subscriptionRows(w).firstKey();
        auto inject = [&](const QVariant& value, const QString& name, int id) {
            w.slotDataChange({uint(1), value, QString("Good"), name, uint(id)});
            return model->groupValues(kGroup).at(1).toString();
        };
        QCOMPARE(inject(12.3456789, g + "Tag_0", sub), QString("12.345678"));
        QCOMPARE(inject(12.345678, g + "Tag_0", sub), QString("12.345678"));
        QCOMPARE(inject(12, g + "Tag_0", sub), QString("12"));
        QCOMPARE(inject(7.5, g + "Tag_9", sub), QString("12"));      // unknown name
        QCOMPARE(inject(7.5, g + "Tag_0", sub + 99), QString("12")); // unknown subscription
        w.slotDataChange({QString("BadNoCommunication")});
        QCOMPARE(model->groupValues(kGroup).at(1).toString(), QString("12"));

        // With a channel selected the tab is off and values are dropped.
        select(w, channelRow(w, 0));
        QVERIFY(!w.findChild<QTabWidget*>("tabWidget")->isTabEnabled(2));
        const QList<QVariant> frozen = model->groupValues(kGroup);
        QTest::qWait(600);
        QCOMPARE(model->groupValues(kGroup), frozen);
        select(w, groupRow(w));
        QTRY_VERIFY(model->groupValues(kGroup) != frozen);

        // The Delete key of the tree still works and reaches the gateway at once.
        select(w, channelRow(w, 1));
        watcher.answer(QMessageBox::Yes);
        w.activateWindow();
        tree(w)->setFocus();
        QTRY_VERIFY(tree(w)->hasFocus());
        QTest::keyClick(tree(w), Qt::Key_Delete);
        QTRY_COMPARE_WITH_TIMEOUT(tree(w)->topLevelItem(0)->childCount(), 1, 3000);
        QTRY_VERIFY(gateway.output().contains("Вызов метода deleteNode: Channel_1"));

        // Stopped with a channel selected, the toolbar follows the channel.
        select(w, channelRow(w, 0));
        action(w, "monitoring_action")->trigger();
        QVERIFY(!MainWindowProbe::monitoring(w));
        QVERIFY(!MainWindowProbe::monitoringTimer(w)->isActive());
        QVERIFY(MainWindowProbe::subscriptionRows(w).isEmpty());
        QVERIFY(sameIcon(action(w, "monitoring_action")->icon(), ":/res/images/res/monitoring_off.png"));
        QVERIFY(action(w, "add_device_action")->isEnabled() && !action(w, "add_tag_action")->isEnabled());
        QVERIFY(!action(w, "monitoring_action")->isEnabled());

        // Stopped on the group, the group's commands come back.
        select(w, groupRow(w));
        action(w, "monitoring_action")->trigger();
        QVERIFY(MainWindowProbe::monitoring(w));
        action(w, "monitoring_action")->trigger();
        QVERIFY(!MainWindowProbe::monitoring(w));
        QCOMPARE(enabledActions(w).size(), 14);

        // Opened again, the dialog shows the connection and can end it.
        watcher.answer([](QWidget* dialog) {
            dialog->findChild<QPushButton*>("pb_disconnect")->click();
            dialog->findChild<QPushButton*>("pb_ok")->click();
        });
        action(w, "action")->trigger();
        QVERIFY(!MainWindowProbe::connected(w) && !MainWindowProbe::dialogConnected(w));
        QVERIFY(!MainWindowProbe::client(w));
        QCOMPARE(MainWindowProbe::statusLabel(w)->text(), QString("Сервер не запущен"));
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    void valuesThatNeverChangeStillShow()
    {
        // Constant tags send their value once, while the later groups are still
        // being subscribed; it must not be lost.
        const QString path = writeConstantGroups(m_dir.path(), 30);
        QVERIFY(!path.isEmpty());
        GatewayProcess gateway;
        QVERIFY2(gateway.start(GatewayProcess::Options(path)), qPrintable(gateway.output()));
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        watcher.answerFile(path);
        w.on_open_action_triggered();
        connectThroughDialog(w, watcher, gateway.url());
        QTreeWidgetItem* first = channelRow(w, 0)->child(0)->child(0);
        select(w, first);
        action(w, "monitoring_action")->trigger();
        QVERIFY(MainWindowProbe::monitoring(w));
        QCOMPARE(MainWindowProbe::subscriptionRows(w).size(), 30);
        for (int row = 0; row < 3; ++row) {
            QTRY_COMPARE_WITH_TIMEOUT(cell(w, row, 1), QString::number(row + 1), 2000);
            QCOMPARE(cell(w, row, 2), QString("Good"));
        }
        action(w, "monitoring_action")->trigger();
        QVERIFY(!MainWindowProbe::monitoring(w));
    }

    void gatewayLostDuringMonitoring()
    {
        GatewayProcess gateway;
        QVERIFY2(gateway.start(GatewayProcess::Options(m_example)), qPrintable(gateway.output()));
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        startMonitoring(w, watcher, gateway);
        gateway.stop();

        // The window goes on serving its events.
        bool fired = false;
        QTimer::singleShot(20, &w, [&fired] { fired = true; });
        QTRY_VERIFY_WITH_TIMEOUT(fired, 1000);

        watcher.answer(QMessageBox::Ok);
        action(w, "monitoring_action")->trigger();
        QCOMPARE(watcher.seen().last().text, QString(kCode8));
        QVERIFY(!MainWindowProbe::monitoring(w));
        QVERIFY(!MainWindowProbe::monitoringTimer(w)->isActive());
        QVERIFY(!MainWindowProbe::subscriptionRows(w).isEmpty()); // kept when the deletion fails

        // A start that fails leaves the switch off but shows the tab.
        w.findChild<QTabWidget*>("tabWidget")->setCurrentIndex(0);
        MainWindowProbe::monitoredTreeItem(w) = nullptr;
        watcher.answer(QMessageBox::Ok);
        action(w, "monitoring_action")->trigger();
        QCOMPARE(watcher.seen().last().text, QString(kCode10));
        QVERIFY(!MainWindowProbe::monitoring(w));
        QVERIFY(!MainWindowProbe::monitoringTimer(w)->isActive());
        QVERIFY(sameIcon(action(w, "monitoring_action")->icon(), ":/res/images/res/monitoring_off.png"));
        QCOMPARE(w.findChild<QTabWidget*>("tabWidget")->currentIndex(), 2);
        QCOMPARE(MainWindowProbe::monitoredTreeItem(w), groupRow(w));
        QCOMPARE(watcher.unexpectedCount(), 0);
    }
};

QTEST_MAIN(MonitoringTest)
#include "tst_monitoring.moc"
