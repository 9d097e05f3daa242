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
// closing question, the address text and the background worker.
class MainWindowTest : public QObject
{
    Q_OBJECT

private:
    static QAction* action(MainWindow& w, const char* name) { return w.findChild<QAction*>(name); }

    // The actions that setEnabledToolbar governs, in table order; all are on for a group.
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

private slots:
    void startsWithOnlyTheNeutralCommands()
    {
        MainWindow w;
        QCOMPARE(enabledOf(w), QStringList({"open_action", "action_export_conf", "action_import_conf",
                                            "action", "add_channel_action"}));
        QVERIFY(action(w, "run_server_action")->isEnabled());
        auto* tree = w.findChild<QTreeWidget*>("treeWidget");
        QCOMPARE(tree->topLevelItemCount(), 1);
        QCOMPARE(tree->topLevelItem(0)->text(0), QString("Каналы"));
        auto* tabs = w.findChild<QTabWidget*>("tabWidget");
        QVERIFY(!tabs->isTabEnabled(1) && !tabs->isTabEnabled(2));

        // Nothing was opened or saved, yet after a channel row the root row
        // keeps save enabled.
        w.setEnabledToolbar(TreeItemChannel);
        w.setEnabledToolbar(TreeItemRoot);
        QVERIFY(action(w, "save_action")->isEnabled());
    }

    void stateTableInEveryMode_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("monitoring");
        QTest::addColumn<QStringList>("enabled");

        const QStringList group = governed();
        // A channel can't be edited from the toolbar, nor take a group or a tag.
        QStringList channel = group;
        for (const char* off : {"edit_action", "add_group_action", "add_tag_action", "monitoring_action"})
            channel.removeOne(off);
        QTest::newRow("channel") << int(TreeItemChannel) << false << channel;
        QStringList device = group;
        device.removeOne("add_tag_action");
        device.removeOne("monitoring_action");
        QTest::newRow("device") << int(TreeItemDevice) << false << device;
        QTest::newRow("group") << int(TreeItemGroup) << false << group;
        // The flag has already fallen when this mode is used; it is exempt anyway.
        QTest::newRow("monitoring stopped, flag still set") << int(ToolbarMonitoringOff) << true << group;
        QTest::newRow("monitoring started")
            << int(ToolbarMonitoringOn) << true << QStringList{"monitoring_action"};
        QTest::newRow("channel while monitoring")
            << int(TreeItemChannel) << true << QStringList{"monitoring_action"};
    }

    void stateTableInEveryMode()
    {
        QFETCH(int, mode);
        QFETCH(bool, monitoring);
        QFETCH(QStringList, enabled);
        MainWindow w;
        MainWindowProbe::configOpen(w) = true;
        MainWindowProbe::monitoring(w) = monitoring;
        w.setEnabledToolbar(mode);
        const QStringList actual = enabledOf(w);
        // The flag alone, with no subscription behind it: nothing to stop at the end.
        MainWindowProbe::monitoring(w) = false;
        QCOMPARE(actual, enabled);
    }

    void closeWithUnsavedChangesAsks()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        MainWindowProbe::dirty(w) = true;

        watcher.answer(QMessageBox::Cancel);
        QCloseEvent cancelled;
        w.closeEvent(&cancelled);
        QVERIFY(!cancelled.isAccepted());
        QCOMPARE(watcher.seen().last().title, QString("Внимание"));
        QCOMPARE(watcher.seen().last().text, QString("Хотите сохранить изменения настроек?"));

        watcher.answer([](QWidget* box) {
            QCOMPARE(qobject_cast<QMessageBox*>(box)->button(QMessageBox::No)->text(), QString("Нет"));
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

        // Background work runs off the GUI thread.
        MainWindow w;
        std::atomic<bool> offGui{false}, done{false};
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
