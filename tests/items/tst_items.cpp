#include "app/mainwindow.h"
#include "dialogs/channelsetupdialog.h"
#include "dialogs/devicesetupdialog.h"
#include "dialogs/groupsetupdialog.h"
#include "model/cchannelinfo.h"
#include "model/deviceinfo.h"
#include "model/groupinfo.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"

#include <QComboBox>
#include <QLineEdit>
#include <QSpinBox>
#include <QTreeWidget>
#include <QtTest>

namespace {

CItem* at(CItem* parent, const char* name)
{
    return parent->FindChildByName(name);
}

unsigned comNo(CItem* channel)
{
    return dynamic_cast<CPortIO_COMInfo*>(static_cast<CChannelInfo*>(channel)->Port)->ComNo;
}

using Edit = std::function<void(QDialog*)>;
using Action = void (MainWindow::*)();

// The main window with the worked example open, and the watcher answering its boxes.
struct Session
{
    ModalWatcher watcher;
    MainWindow w;
    CTreeItemRoot& root = MainWindowProbe::root(w);
    std::map<QString, CItem*>& groups = MainWindowProbe::groups(w);

    Session()
    {
        w.show();
        watcher.answerFile(QString(VELMORA_TEST_DATA) + "/worked_example.cfg");
        w.on_open_action_triggered();
    }
    QTreeWidget* tree() { return w.findChild<QTreeWidget*>("treeWidget"); }
    QTreeWidgetItem* rootRow() { return tree()->topLevelItem(0); }
    QTreeWidgetItem* row(CItem* node)
    {
        for (const auto& entry : MainWindowProbe::treeItems(w))
            if (entry.second == node)
                return entry.first;
        return nullptr;
    }
    void select(QTreeWidgetItem* row)
    {
        tree()->clearSelection();
        row->setSelected(true);
    }
    // Selects `row` (unless null), lets `edit` change the next dialog and accepts
    // it, runs `action`; with `refused` a box then turns the result down. The
    // text of the last box.
    QString run(
        QTreeWidgetItem* row, Action action, const Edit& edit = [](QDialog*) {}, bool refused = false)
    {
        if (row)
            select(row);
        watcher.answer([edit](QWidget* d) {
            edit(qobject_cast<QDialog*>(d));
            qobject_cast<QDialog*>(d)->accept();
        });
        if (refused)
            watcher.answer(QMessageBox::Ok);
        (w.*action)();
        return watcher.seen().isEmpty() ? QString() : watcher.seen().last().text;
    }
    QString refused(
        QTreeWidgetItem* row, Action action, const Edit& edit = [](QDialog*) {})
    {
        return run(row, action, edit, true);
    }
    Edit rename(const QString& name)
    {
        return [name](QDialog* d) { requireChild<QLineEdit>(d, "nameEdit")->setText(name); };
    }
};

} // namespace

// The channel, device and group editors, and the tree commands that run them,
// without a server.
class ItemCommandsTest : public QObject
{
    Q_OBJECT

private slots:
    void channelDeviceAndGroupDialogs()
    {
        CChannelInfo channel;
        channel.Init();
        auto* com = dynamic_cast<CPortIO_COMInfo*>(channel.Port);
        com->ComNo = 5;
        com->BaudRate = 19200;
        com->Parity = 2;
        channel.TypeProtocol = 1;

        // The stored protocol is not shown: a serial channel opens on RTU (0).
        ChannelSetupDialog dialog(&channel);
        dialog.Init();
        QList<QString> info;
        connect(&dialog, &ChannelSetupDialog::signalInfoChannel, [&](QList<QString> l, bool) { info = l; });
        requireChild<QLineEdit>(&dialog, "nameEdit")->clear();
        requireChild<QComboBox>(&dialog, "echoBox")->setCurrentIndex(1);
        dialog.accept();
        QCOMPARE(info, (QList<QString>{"Channel_0", "0", "500", "3", "0", "0", "5", "19200", "8", "1", "2",
                                       "1", "0", "0"}));

        // A change of type replaces the port at once; Cancel doesn't bring it back.
        ChannelSetupDialog switching(&channel);
        switching.Init();
        requireChild<QComboBox>(&switching, "typeBox")->setCurrentIndex(1);
        switching.reject();
        auto* tcp = dynamic_cast<CPortIO_TCPInfo*>(channel.Port);
        QVERIFY(channel.TypeChannel == 1 && tcp);

        tcp->IP = 0x0100000a; // 10.0.0.1
        ChannelSetupDialog tcpDialog(&channel);
        tcpDialog.Init();
        connect(&tcpDialog, &ChannelSetupDialog::signalInfoChannel,
                [&](QList<QString> l, bool) { info = l; });
        requireChild<QLineEdit>(&tcpDialog, "ipEdit")->setText("10.0.0.300");
        requireChild<QSpinBox>(&tcpDialog, "tcpPortBox")->setValue(1502);
        tcpDialog.accept();
        // A part above 255 keeps the old address, and the list carries it.
        QCOMPARE(info.mid(5), (QList<QString>{"2", QString::number(0x0100000a), "1502", "5000"}));

        // Device numbers travel as character codes, 0 included.
        CDeviceInfo device;
        device.SetName("Pump");
        DeviceSetupDialog deviceDialog(&device);
        deviceDialog.Init();
        connect(&deviceDialog, &DeviceSetupDialog::signalInfoDevice,
                [&](QList<QString> l, bool) { info = l; });
        requireChild<QLineEdit>(&deviceDialog, "nameEdit")->clear();
        requireChild<QSpinBox>(&deviceDialog, "addressBox")->setValue(0);
        requireChild<QComboBox>(&deviceDialog, "exchangeBox")->setCurrentIndex(0);
        requireChild<QComboBox>(&deviceDialog, "emulationBox")->setCurrentIndex(1);
        requireChild<QSpinBox>(&deviceDialog, "maxRegsBox")->setValue(65);
        deviceDialog.accept();
        QCOMPARE(info.mid(0, 6),
                 (QList<QString>{"Pump", QString(QChar(0)), "0", "1", "A", QString(QChar(2000))}));
        QCOMPARE(info.size(), 7);

        // The rate's limit follows the unit and the rate is kept within it;
        // a stored rate out of range is shown clamped.
        CGroupInfo group;
        group.UpdateRate = 1000;
        GroupSetupDialog groupDialog(&group);
        groupDialog.Init();
        auto* rate = requireChild<QSpinBox>(&groupDialog, "updateRateBox");
        auto* unit = requireChild<QComboBox>(&groupDialog, "mu_UpdateRateBox");
        QCOMPARE(rate->value(), 999);
        rate->setValue(500);
        unit->setCurrentIndex(3);
        QCOMPARE(rate->value(), 24);
        unit->setCurrentIndex(2);
        connect(&groupDialog, &GroupSetupDialog::signalInfoGroup, [&](QList<QString> l, bool) { info = l; });
        groupDialog.accept();
        QCOMPARE(info, (QList<QString>{"Group_0", "24", "2"}));

        group.UpdateRate = 0;
        GroupSetupDialog zero(&group);
        zero.Init();
        QCOMPARE(requireChild<QSpinBox>(&zero, "updateRateBox")->value(), 1);
    }

    void addChannelDeviceAndGroup()
    {
        Session s;
        MainWindow& w = s.w;
        MainWindowProbe::dirty(w) = false;

        // Cancelled: the node goes, the two entries of the list stay.
        s.watcher.answer([](QWidget* d) { qobject_cast<QDialog*>(d)->reject(); });
        w.on_add_channel_action_triggered();
        QCOMPARE(s.root.size(), 2u);
        QCOMPARE(MainWindowProbe::infoChannel(w), (QList<QString>{"Каналы", "1"}));

        s.run(nullptr, &MainWindow::on_add_channel_action_triggered,
              [](QDialog* d) { requireChild<QSpinBox>(d, "comNoBox")->setValue(7); });
        CItem* added = at(&s.root, "Channel_2");
        QVERIFY(added && comNo(added) == 7u && s.row(added)->isSelected());
        QVERIFY(MainWindowProbe::dirty(w));

        // The next channel proposes the port after the last one; port 1 is taken.
        int proposed = 0;
        const auto propose = [&proposed](const char* box, int set) {
            return [&proposed, box, set](QDialog* d) {
                proposed = requireChild<QSpinBox>(d, box)->value();
                if (set >= 0)
                    requireChild<QSpinBox>(d, box)->setValue(set);
            };
        };
        QCOMPARE(s.refused(nullptr, &MainWindow::on_add_channel_action_triggered, propose("comNoBox", 1)),
                 QString("Добавление канала завершилось неудачно, обнаружен дубликат"));
        QCOMPARE(proposed, 8);
        QCOMPARE(s.root.size(), 3u);

        // A device from a group row goes into the channel, behind the last address.
        CItem* channel0 = at(&s.root, "Channel_0");
        CItem* device0 = at(channel0, "Device_0");
        s.run(s.row(at(device0, "Group_0")), &MainWindow::on_add_device_action_triggered,
              propose("addressBox", 255));
        QCOMPARE(proposed, 2);
        QVERIFY(at(channel0, "Device_1"));
        s.run(nullptr, &MainWindow::on_add_device_action_triggered, propose("addressBox", -1));
        QCOMPARE(proposed, 0); // 255 wraps
        QCOMPARE(s.refused(nullptr, &MainWindow::on_add_device_action_triggered, propose("addressBox", 1)),
                 QString("Добавление устройства завершилось неудачно, обнаружен дубликат"));
        QCOMPARE(channel0->size(), 3u);

        // Groups: a new one enters the group map; a taken name is refused.
        s.run(s.row(device0), &MainWindow::on_add_group_action_triggered);
        QCOMPARE(s.groups["Channel_0.Device_0.Group_1"], at(device0, "Group_1"));
        QCOMPARE(s.refused(nullptr, &MainWindow::on_add_group_action_triggered, s.rename("Group_0")),
                 QString("Добавление группы завершилось неудачно, обнаружен дубликат"));
        QCOMPARE(device0->size(), 2u);
        QCOMPARE(s.watcher.unexpectedCount(), 0);
    }

    void editRenamesTheGroupKeys()
    {
        Session s;
        auto& groups = s.groups;
        CItem* channel0 = at(&s.root, "Channel_0");
        CItem* channel1 = at(&s.root, "Channel_1");
        CItem* device0 = at(channel0, "Device_0");
        CItem* group0 = groups["Channel_0.Device_0.Group_0"];
        const Action edit = &MainWindow::on_edit_action_triggered;

        // A channel "AA" with a group of its own: renaming "A" captures its key.
        s.run(s.row(channel0), edit, s.rename("A"));
        QCOMPARE(s.row(channel0)->text(0), QString("A"));
        s.run(s.row(channel1), edit, s.rename("AA"));
        s.run(s.row(channel1), &MainWindow::on_add_device_action_triggered);
        s.run(s.row(at(channel1, "Device_1")), &MainWindow::on_add_group_action_triggered);
        CItem* otherGroup = groups["AA.Device_1.Group_1"];
        QVERIFY(otherGroup);
        s.run(s.row(channel0), edit, s.rename("B"));
        QCOMPARE(groups["B.Device_0.Group_0"], group0);
        QCOMPARE(groups["B.Device_1.Group_1"], otherGroup);

        s.run(s.row(device0), edit, s.rename("Pump"));
        s.run(s.row(group0), edit, s.rename("Fast"));
        QCOMPARE(groups["B.Pump.Fast"], group0);

        // Cancel: nothing moves.
        s.select(s.row(group0));
        s.watcher.answer([](QWidget* d) { qobject_cast<QDialog*>(d)->reject(); });
        s.w.on_edit_action_triggered();
        QCOMPARE(groups["B.Pump.Fast"], group0);

        // Refused edits restore what they name: the COM number of a channel,
        // the name of a group; the channel keeps its new name.
        auto* taken = new CChannelInfo;
        taken->SetName("C");
        taken->Init();
        dynamic_cast<CPortIO_COMInfo*>(taken->Port)->ComNo = 9;
        s.root.AppendChild(taken);
        QCOMPARE(s.refused(s.row(channel0), edit,
                           [](QDialog* d) {
                               requireChild<QLineEdit>(d, "nameEdit")->setText("D");
                               requireChild<QSpinBox>(d, "comNoBox")->setValue(9);
                           }),
                 QString("Изменения канала завершилось неудачно, обнаружен дубликат"));
        QCOMPARE(comNo(channel0), 1u);
        QCOMPARE(channel0->GetName(), std::string("D"));

        s.run(s.row(device0), &MainWindow::on_add_group_action_triggered, s.rename("Slow"));
        // The refused channel edit kept its new name but left the old keys.
        QCOMPARE(groups.count("D.Pump.Fast"), size_t(0));
        CItem* second = groups.at("D.Pump.Slow");
        QCOMPARE(s.refused(s.row(second), edit, s.rename("Fast")),
                 QString("Изменения группы завершилось неудачно, обнаружен дубликат"));
        QCOMPARE(second->GetName(), std::string("Slow"));
        QCOMPARE(s.watcher.unexpectedCount(), 0);
    }

    void copyPasteAndDelete()
    {
        Session s;
        CItem* serial = at(&s.root, "Channel_0");
        CItem* tcp = at(&s.root, "Channel_1");
        CItem* device0 = at(serial, "Device_0");
        CItem* group0 = at(device0, "Group_0");
        auto copyPaste = [&](CItem* source, QTreeWidgetItem* target) {
            s.select(s.row(source));
            s.w.on_copy_action_triggered();
            s.select(target);
            s.w.on_paste_action_triggered();
        };

        // A serial channel moves on to the next free port and keeps a plain
        // name; pasted from a device row, the host is still the root.
        copyPaste(serial, s.rootRow());
        CItem* first = at(&s.root, "Channel_2");
        QVERIFY(first && comNo(first) == 2u);
        QCOMPARE(first->GetItemsCount(itTag), 3u);
        QCOMPARE(s.groups.count("Channel_2.Device_0.Group_0"), size_t(1));
        copyPaste(serial, s.row(device0));
        QCOMPARE(comNo(at(&s.root, "Channel_3")), 3u);
        s.w.on_paste_action_triggered(); // nothing left to paste
        QCOMPARE(s.root.size(), 4u);

        copyPaste(tcp, s.rootRow());
        copyPaste(tcp, s.rootRow());
        QVERIFY(at(&s.root, "Channel_1_Copy1") && at(&s.root, "Channel_1_Copy2"));
        copyPaste(device0, s.row(group0));
        copyPaste(device0, s.row(serial));
        QVERIFY(at(serial, "Device_0_Copy1") && at(serial, "Device_0_Copy2"));
        QVERIFY(!MainWindowProbe::dirty(s.w));

        // A delete asks first; "Нет" keeps the group.
        s.select(s.row(group0));
        QString informative;
        s.watcher.answer([&](QWidget* box) {
            informative = qobject_cast<QMessageBox*>(box)->informativeText();
            ModalWatcher::pressButton(box, QMessageBox::No);
        });
        s.w.on_delete_action_triggered();
        QCOMPARE(s.watcher.seen().last().title, QString("Удаление"));
        QCOMPARE(s.watcher.seen().last().text, QString("Внимание!"));
        QCOMPARE(informative, QString("Вы действительно хотите удалить выбранную группу?"));
        QCOMPARE(device0->size(), 1u);
        s.watcher.answer(QMessageBox::Yes);
        s.w.on_delete_action_triggered();
        QCOMPARE(device0->size(), 0u);
        QCOMPARE(s.groups.count("Channel_0.Device_0.Group_0"), size_t(0));
        QCOMPARE(s.row(device0)->childCount(), 0);

        // The root row goes without a question and takes no node with it.
        s.select(s.rootRow());
        s.w.on_delete_action_triggered();
        QCOMPARE(s.tree()->topLevelItemCount(), 0);
        QCOMPARE(s.root.size(), 6u);
        QCOMPARE(s.watcher.unexpectedCount(), 0);
    }
};

QTEST_MAIN(ItemCommandsTest)
#include "tst_items.moc"
