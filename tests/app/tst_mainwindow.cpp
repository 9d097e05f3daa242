#include "app/mainwindow.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"

#include <QAbstractButton>
#include <QAction>
#include <QCloseEvent>
#include <QTabWidget>
#include <QTreeWidget>
#include <QtTest>

// Drives the frame of the main window: the state table of the commands, the
// closing questions and the small helpers.
class MainWindowTest : public QObject
{
    Q_OBJECT

private:
    static QAction* action(MainWindow& w, const char* name) { return w.findChild<QAction*>(name); }

    // Names of the actions that setEnabledToolbar governs, in table order.
    static QStringList governed()
    {
        return {"open_action",       "action_export_conf", "action_import_conf",
                "copy_action",       "paste_action",       "action",
                "edit_action",       "save_action",        "add_channel_action",
                "add_device_action", "add_group_action",   "add_tag_action",
                "delete_action",     "monitoring_action"};
    }

    static QStringList enabledOf(MainWindow& w)
    {
        QStringList on;
        for (const QString& n : governed())
            if (action(w, qPrintable(n))->isEnabled())
                on << n;
        return on;
    }

    static void setConfigOpen(MainWindow& w, bool v) { MainWindowProbe::configOpen(w) = v; }
    static void setMonitoring(MainWindow& w, bool v) { MainWindowProbe::monitoring(w) = v; }
    static void setDirty(MainWindow& w, bool v) { MainWindowProbe::dirty(w) = v; }

private slots:
    void startsWithOnlyTheNeutralCommands()
    {
        MainWindow w;
        QCOMPARE(w.windowTitle(), QString("Velmora"));
        QCOMPARE(w.size(), QSize(900, 601));
        QCOMPARE(enabledOf(w), QStringList({"open_action", "action_export_conf", "action_import_conf",
                                            "action", "add_channel_action"}));
        for (const char* always :
             {"run_server_action", "showOutput_action", "stop_server_action", "close_action",
              "create_certiifcates", "action_addUsers", "about_action", "action_help"})
            QVERIFY2(action(w, always)->isEnabled(), always);

        auto* tree = w.findChild<QTreeWidget*>("treeWidget");
        QCOMPARE(tree->topLevelItemCount(), 1);
        QCOMPARE(tree->topLevelItem(0)->text(0), QString("Каналы"));
        QCOMPARE(tree->topLevelItem(0)->type(), int(TreeItemRoot));
        auto* tabs = w.findChild<QTabWidget*>("tabWidget");
        QCOMPARE(tabs->currentIndex(), 0);
        QVERIFY(!tabs->isTabEnabled(1));
        QVERIFY(!tabs->isTabEnabled(2));
        QCOMPARE(action(w, "action_help")->shortcut(), QKeySequence("F1"));
        QCOMPARE(action(w, "add_tag_action")->shortcut(), QKeySequence("Ctrl+4"));
    }

    void stateTableInEveryMode_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("configOpen");
        QTest::addColumn<bool>("monitoring");
        QTest::addColumn<QStringList>("enabled");

        const QStringList base = {"open_action", "action_export_conf", "action_import_conf"};
        QTest::newRow("channel") << int(TreeItemChannel) << false << false
                                 << (base + QStringList{"copy_action", "paste_action", "action",
                                                        "save_action", "add_channel_action",
                                                        "add_device_action", "delete_action"});
        QTest::newRow("device") << int(TreeItemDevice) << false << false
                                << (base + QStringList{"copy_action", "paste_action", "action", "edit_action",
                                                       "save_action", "add_channel_action",
                                                       "add_device_action", "add_group_action",
                                                       "delete_action"});
        const QStringList group =
            base + QStringList{"copy_action",       "paste_action",     "action",
                               "edit_action",       "save_action",      "add_channel_action",
                               "add_device_action", "add_group_action", "add_tag_action",
                               "delete_action",     "monitoring_action"};
        QTest::newRow("group") << int(TreeItemGroup) << true << false << group;
        QTest::newRow("monitoring stopped") << int(ToolbarMonitoringOff) << true << false << group;
        // The flag has already fallen when this mode is used; it is exempt anyway.
        QTest::newRow("monitoring stopped, flag still set")
            << int(ToolbarMonitoringOff) << true << true << group;
        QTest::newRow("monitoring started")
            << int(ToolbarMonitoringOn) << true << true << QStringList{"monitoring_action"};
        QTest::newRow("root while monitoring")
            << int(TreeItemRoot) << true << true << QStringList{"monitoring_action"};
        QTest::newRow("channel while monitoring")
            << int(TreeItemChannel) << true << true << QStringList{"monitoring_action"};
    }

    void stateTableInEveryMode()
    {
        QFETCH(int, mode);
        QFETCH(bool, configOpen);
        QFETCH(bool, monitoring);
        QFETCH(QStringList, enabled);
        MainWindow w;
        setConfigOpen(w, configOpen);
        setMonitoring(w, monitoring);
        w.setEnabledToolbar(mode);
        const QStringList actual = enabledOf(w);
        // The flag alone, with no subscription behind it: nothing to stop at the end.
        setMonitoring(w, false);
        QCOMPARE(actual, enabled);
    }

    void saveLatchesAfterFirstChannel()
    {
        MainWindow w;
        w.setEnabledToolbar(TreeItemRoot);
        QVERIFY(!action(w, "save_action")->isEnabled());
        w.setEnabledToolbar(TreeItemChannel);
        // Nothing was opened or saved, yet the root row now keeps save enabled.
        w.setEnabledToolbar(TreeItemRoot);
        QVERIFY(action(w, "save_action")->isEnabled());

        // An unknown mode changes only the save command.
        MainWindow fresh;
        setConfigOpen(fresh, true);
        const QStringList before = enabledOf(fresh);
        QVERIFY(!before.contains("save_action"));
        fresh.setEnabledToolbar(42);
        QStringList after = enabledOf(fresh);
        QVERIFY(after.removeAll("save_action") == 1);
        QCOMPARE(after, before);
    }

    void closeWithUnsavedChangesAsks()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        setDirty(w, true);

        watcher.answer(QMessageBox::Cancel);
        QCloseEvent cancelled;
        w.closeEvent(&cancelled);
        QVERIFY(!cancelled.isAccepted());
        QCOMPARE(watcher.seen().size(), 1);
        QCOMPARE(watcher.seen()[0].title, QString("Внимание"));
        QCOMPARE(watcher.seen()[0].text, QString("Хотите сохранить изменения настроек?"));

        watcher.answer([](QWidget* box) {
            auto* mb = qobject_cast<QMessageBox*>(box);
            QCOMPARE(mb->button(QMessageBox::No)->text(), QString("Нет"));
            QCOMPARE(mb->button(QMessageBox::Cancel)->text(), QString("Отмена"));
            ModalWatcher::pressButton(box, QMessageBox::No);
        });
        QCloseEvent declined;
        w.closeEvent(&declined);
        QVERIFY(declined.isAccepted());
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    void helpers()
    {
        QCOMPARE(MainWindow::ipAddrIntToQstring(0x0100A8C0), QString("192.168.0.1"));
        QCOMPARE(MainWindow::ipAddrIntToQstring(-1), QString("255.255.255.255"));

        MainWindow w;
        CTreeItemRoot root;
        CItem* channel = CItem::NewItem(itChannel, nullptr);
        CItem* device = CItem::NewItem(itDevice, nullptr);
        root.AppendChild(channel);
        channel->AppendChild(device);
        QCOMPARE(w.GetHostElement(device, itChannel), channel);
        QCOMPARE(w.GetHostElement(device, itDevice), device);
        QCOMPARE(w.GetHostElement(channel, itGroup), nullptr);
    }

    void backgroundWorkRunsOffTheGuiThread()
    {
        MainWindow w;
        std::atomic<bool> offGui{false};
        std::atomic<bool> done{false};
        QThread* gui = QThread::currentThread();
        w.runInBackground([&] {
            offGui = QThread::currentThread() != gui;
            done = true;
        });
        QTRY_VERIFY(done);
        QVERIFY(offGui);
    }
};

QTEST_MAIN(MainWindowTest)
#include "tst_mainwindow.moc"
