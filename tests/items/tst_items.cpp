#include "dialogs/channelsetupdialog.h"
#include "dialogs/devicesetupdialog.h"
#include "dialogs/groupsetupdialog.h"
#include "model/cchannelinfo.h"
#include "model/deviceinfo.h"
#include "model/groupinfo.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/session.h"

#include <QComboBox>
#include <QLineEdit>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTreeWidget>
#include <QtTest>

namespace {

unsigned comNo(CItem* channel)
{
    return dynamic_cast<CPortIO_COMInfo*>(static_cast<CChannelInfo*>(channel)->Port)->ComNo;
}

// Accepts a setup dialog; the list it handed on.
template <typename Dialog, typename Signal> QList<QString> accepted(Dialog& dialog, Signal signal)
{
    QSignalSpy spy(&dialog, signal);
    dialog.accept();
    return spy.isEmpty() ? QList<QString>() : spy.first().first().value<QList<QString>>();
}

template <typename T> void setValue(QWidget* d, const char* name, int value)
{
    if constexpr (std::is_same_v<T, QSpinBox>)
        requireChild<QSpinBox>(d, name)->setValue(value);
    else
        requireChild<QComboBox>(d, name)->setCurrentIndex(value);
}

using Action = void (MainWindow::*)();

// The worked example open; runs commands whose dialog is edited and accepted.
struct Items : Session
{
    Items() : Session(VELMORA_TEST_DATA "/worked_example.cfg") {}
    CTreeItemRoot& root() { return MainWindowProbe::root(w); }
    std::map<QString, CItem*>& groups() { return MainWindowProbe::groups(w); }
    // With `refused` a box then turns the result down; the text of the last box.
    QString run(CItem* on, Action action, const std::function<void(QWidget*)>& edit = {},
                bool refused = false)
    {
        select(on);
        accept(edit);
        if (refused)
            watcher.answer(QMessageBox::Ok);
        (w.*action)();
        return watcher.seen().last().text;
    }
};

} // namespace

// The channel, device and group editors, and the tree commands that run them, without a server.
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
        com->Parity = 2;
        channel.TypeProtocol = 1;

        // The stored protocol is not shown: a serial channel opens on RTU (0). An empty name keeps
        // the old one, and echo is set from the dialog only.
        ChannelSetupDialog dialog(&channel);
        dialog.Init();
        requireChild<QLineEdit>(&dialog, "nameEdit")->clear();
        setValue<QComboBox>(&dialog, "echoBox", 1);
        QCOMPARE(accepted(dialog, &ChannelSetupDialog::signalInfoChannel),
                 (QList<QString>{"Channel_0", "0", "500", "3", "0", "0", "5", "9600", "8", "1", "2", "1", "0",
                                 "0"}));

        // A change of type replaces the port at once; Cancel doesn't bring it back.
        ChannelSetupDialog switching(&channel);
        switching.Init();
        setValue<QComboBox>(&switching, "typeBox", 1);
        switching.reject();
        auto* tcp = dynamic_cast<CPortIO_TCPInfo*>(channel.Port);
        QVERIFY(channel.TypeChannel == 1 && tcp);

        // A part above 255 keeps the old address, and the list carries it.
        tcp->IP = 0x0100000a; // 10.0.0.1
        ChannelSetupDialog tcpDialog(&channel);
        tcpDialog.Init();
        requireChild<QLineEdit>(&tcpDialog, "ipEdit")->setText("10.0.0.300");
        setValue<QSpinBox>(&tcpDialog, "tcpPortBox", 1502);
        QCOMPARE(accepted(tcpDialog, &ChannelSetupDialog::signalInfoChannel).mid(5),
                 (QList<QString>{"2", QString::number(0x0100000a), "1502", "5000"}));

        // Device numbers travel as character codes, 0 included.
        CDeviceInfo device;
        DeviceSetupDialog deviceDialog(&device);
        deviceDialog.Init();
        setValue<QSpinBox>(&deviceDialog, "addressBox", 0);
        setValue<QComboBox>(&deviceDialog, "exchangeBox", 0);
        setValue<QComboBox>(&deviceDialog, "emulationBox", 1);
        setValue<QSpinBox>(&deviceDialog, "maxRegsBox", 65);
        QCOMPARE(accepted(deviceDialog, &DeviceSetupDialog::signalInfoDevice),
                 (QList<QString>{"Device_0", QString(QChar(0)), "0", "1", "A", QString(QChar(2000)),
                                 QString(QChar(0))}));

        // The rate's limit follows the unit and the rate is kept within it; a stored rate out of
        // range is shown clamped.
        CGroupInfo group;
        group.UpdateRate = 1000;
        GroupSetupDialog groupDialog(&group);
        groupDialog.Init();
        auto* rate = requireChild<QSpinBox>(&groupDialog, "updateRateBox");
        QCOMPARE(rate->value(), 999);
        rate->setValue(500);
        setValue<QComboBox>(&groupDialog, "mu_UpdateRateBox", 3);
        QCOMPARE(rate->value(), 24);
        setValue<QComboBox>(&groupDialog, "mu_UpdateRateBox", 2);
        QCOMPARE(accepted(groupDialog, &GroupSetupDialog::signalInfoGroup),
                 (QList<QString>{"Group_0", "24", "2"}));
    }

    void addChannelDeviceAndGroup()
    {
        Items s;
        MainWindowProbe::dirty(s.w) = false;
        // Cancelled: the node goes, the two entries of the list stay.
        s.watcher.answer([](QWidget* d) { qobject_cast<QDialog*>(d)->reject(); });
        s.w.on_add_channel_action_triggered();
        QCOMPARE(s.root().size(), 2u);
        QCOMPARE(MainWindowProbe::infoChannel(s.w), (QList<QString>{"Каналы", "1"}));

        // Each new node proposes the settings after the last sibling's; one that clashes is refused.
        int proposed = 0;
        const auto propose = [&proposed](const char* box, int set) {
            return [&proposed, box, set](QWidget* d) {
                proposed = requireChild<QSpinBox>(d, box)->value();
                if (set >= 0)
                    requireChild<QSpinBox>(d, box)->setValue(set);
            };
        };
        s.run(nullptr, &MainWindow::on_add_channel_action_triggered, propose("comNoBox", 7));
        CItem* added = s.node("Channel_2");
        QVERIFY(added && comNo(added) == 7u && s.row(added)->isSelected() && MainWindowProbe::dirty(s.w));
        QCOMPARE(s.run(nullptr, &MainWindow::on_add_channel_action_triggered, propose("comNoBox", 1), true),
                 QString("Добавление канала завершилось неудачно, обнаружен дубликат"));
        QVERIFY(proposed == 8 && s.root().size() == 3u);

        // A device from a group row goes into the channel; address 255 wraps to 0.
        CItem* device0 = s.node("Channel_0.Device_0");
        s.run(s.node("Channel_0.Device_0.Group_0"), &MainWindow::on_add_device_action_triggered,
              propose("addressBox", 255));
        QVERIFY(proposed == 2 && s.node("Channel_0.Device_1"));
        s.run(s.node("Channel_0.Device_1"), &MainWindow::on_add_device_action_triggered,
              propose("addressBox", -1));
        QCOMPARE(proposed, 0);
        QCOMPARE(s.run(device0, &MainWindow::on_add_device_action_triggered, propose("addressBox", 1), true),
                 QString("Добавление устройства завершилось неудачно, обнаружен дубликат"));
        QCOMPARE(s.node("Channel_0")->size(), 3u);

        // A new group enters the group map; a taken name is refused.
        s.run(device0, &MainWindow::on_add_group_action_triggered);
        QCOMPARE(s.groups()["Channel_0.Device_0.Group_1"], s.node("Channel_0.Device_0.Group_1"));
        QCOMPARE(s.run(device0, &MainWindow::on_add_group_action_triggered, Session::rename("Group_0"), true),
                 QString("Добавление группы завершилось неудачно, обнаружен дубликат"));
        QCOMPARE(device0->size(), 2u);
        QCOMPARE(s.watcher.unexpectedCount(), 0);
    }

    void editRenamesTheGroupKeys()
    {
        Items s;
        auto& groups = s.groups();
        CItem* channel0 = s.node("Channel_0");
        CItem* channel1 = s.node("Channel_1");
        CItem* device0 = s.node("Channel_0.Device_0");
        CItem* group0 = groups["Channel_0.Device_0.Group_0"];
        const Action edit = &MainWindow::on_edit_action_triggered;

        // A channel "AA" with a group of its own: renaming "A" captures its key.
        s.run(channel0, edit, Session::rename("A"));
        QCOMPARE(s.row(channel0)->text(0), QString("A"));
        s.run(channel1, edit, Session::rename("AA"));
        s.run(channel1, &MainWindow::on_add_device_action_triggered);
        s.run(channel1->FindChildByName("Device_1"), &MainWindow::on_add_group_action_triggered);
        CItem* otherGroup = groups["AA.Device_1.Group_1"];
        QVERIFY(otherGroup);
        s.run(channel0, edit, Session::rename("B"));
        QVERIFY(groups["B.Device_0.Group_0"] == group0 && groups["B.Device_1.Group_1"] == otherGroup);
        s.run(device0, edit, Session::rename("Pump"));
        s.run(group0, edit, Session::rename("Fast"));
        QCOMPARE(groups["B.Pump.Fast"], group0);
        // Cancel: nothing moves, and the list is left empty.
        s.select(group0);
        s.watcher.answer([](QWidget* d) { qobject_cast<QDialog*>(d)->reject(); });
        s.w.on_edit_action_triggered();
        QVERIFY(groups["B.Pump.Fast"] == group0 && MainWindowProbe::infoGroup(s.w).isEmpty());

        // Refused edits restore what they name: the COM number of a channel, the name of a group;
        // the channel keeps its new name but the keys stay.
        auto* taken = new CChannelInfo;
        taken->SetName("C");
        taken->Init();
        dynamic_cast<CPortIO_COMInfo*>(taken->Port)->ComNo = 9;
        s.root().AppendChild(taken);
        const auto clash = [](QWidget* d) {
            requireChild<QLineEdit>(d, "nameEdit")->setText("D");
            requireChild<QSpinBox>(d, "comNoBox")->setValue(9);
        };
        QCOMPARE(s.run(channel0, edit, clash, true),
                 QString("Изменения канала завершилось неудачно, обнаружен дубликат"));
        QVERIFY(comNo(channel0) == 1u && channel0->GetName() == "D");
        s.run(device0, &MainWindow::on_add_group_action_triggered, Session::rename("Slow"));
        QCOMPARE(groups.count("D.Pump.Fast"), size_t(0));
        CItem* second = groups.at("D.Pump.Slow");
        QCOMPARE(s.run(second, edit, Session::rename("Fast"), true),
                 QString("Изменения группы завершилось неудачно, обнаружен дубликат"));
        QCOMPARE(second->GetName(), std::string("Slow"));
        QCOMPARE(s.watcher.unexpectedCount(), 0);
    }

    void copyPasteAndDelete()
    {
        Items s;
        CItem* serial = s.node("Channel_0");
        CItem* device0 = s.node("Channel_0.Device_0");
        CItem* group0 = s.node("Channel_0.Device_0.Group_0");
        auto copyPaste = [&](CItem* source, CItem* target) {
            s.select(source);
            s.w.on_copy_action_triggered();
            s.select(target);
            s.w.on_paste_action_triggered();
        };

        // A serial channel moves on to the next free port and keeps a plain name; pasted from a
        // device row, the host is still the root. A second paste has nothing left.
        copyPaste(serial, nullptr);
        CItem* first = s.node("Channel_2");
        QVERIFY(first && comNo(first) == 2u && first->GetItemsCount(itTag) == 3u);
        QCOMPARE(s.groups().count("Channel_2.Device_0.Group_0"), size_t(1));
        copyPaste(serial, device0);
        QCOMPARE(comNo(s.node("Channel_3")), 3u);
        s.w.on_paste_action_triggered();
        QCOMPARE(s.root().size(), 4u);

        // A TCP channel and a device take a suffix.
        for (int i = 0; i < 2; ++i) {
            copyPaste(s.node("Channel_1"), nullptr);
            copyPaste(device0, i ? serial : group0);
        }
        QVERIFY(s.node("Channel_1_Copy1") && s.node("Channel_1_Copy2"));
        QVERIFY(s.node("Channel_0.Device_0_Copy1") && s.node("Channel_0.Device_0_Copy2"));
        QVERIFY(!MainWindowProbe::dirty(s.w));

        // A delete asks first; "Нет" keeps the group.
        s.select(group0);
        QString informative;
        s.watcher.answer([&](QWidget* box) {
            informative = qobject_cast<QMessageBox*>(box)->informativeText();
            ModalWatcher::pressButton(box, QMessageBox::No);
        });
        s.w.on_delete_action_triggered();
        QCOMPARE(s.watcher.seen().last().title + s.watcher.seen().last().text, QString("УдалениеВнимание!"));
        QCOMPARE(informative, QString("Вы действительно хотите удалить выбранную группу?"));
        QCOMPARE(device0->size(), 1u);
        s.watcher.answer(QMessageBox::Yes);
        s.w.on_delete_action_triggered();
        QVERIFY(device0->size() == 0u && !s.groups().count("Channel_0.Device_0.Group_0"));
        QCOMPARE(s.row(device0)->childCount(), 0);

        // The root row goes without a question and takes no node with it.
        s.select(nullptr);
        s.w.on_delete_action_triggered();
        QVERIFY(s.tree()->topLevelItemCount() == 0 && s.root().size() == 6u);
        QCOMPARE(s.watcher.unexpectedCount(), 0);
    }
};

QTEST_MAIN(ItemCommandsTest)
#include "tst_items.moc"
