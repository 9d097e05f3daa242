#include "app/mainwindow.h"
#include "dialogs/channelsetupdialog.h"
#include "dialogs/devicesetupdialog.h"
#include "dialogs/groupsetupdialog.h"
#include "model/cchannelinfo.h"
#include "model/deviceinfo.h"
#include "model/groupinfo.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"

#include <QComboBox>
#include <QLineEdit>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTreeWidget>
#include <QtTest>

// The channel, device and group editors, and the tree commands that run them,
// without a server.
class ItemCommandsTest : public QObject
{
    Q_OBJECT

private:
    template <typename T> static T* child(QWidget* w, const char* name)
    {
        T* found = w->findChild<T*>(name);
        if (!found)
            qFatal("no widget %s", name);
        return found;
    }

    static void open(MainWindow& w, ModalWatcher& watcher)
    {
        watcher.answerFile(QString(VELMORA_TEST_DATA) + "/worked_example.cfg");
        w.on_open_action_triggered();
    }

    static QTreeWidget* tree(MainWindow& w) { return w.findChild<QTreeWidget*>("treeWidget"); }
    static QTreeWidgetItem* rootRow(MainWindow& w) { return tree(w)->topLevelItem(0); }

    static void select(MainWindow& w, QTreeWidgetItem* row)
    {
        tree(w)->clearSelection();
        row->setSelected(true);
    }

    static QTreeWidgetItem* rowOf(MainWindow& w, CItem* node)
    {
        for (const auto& entry : MainWindowProbe::treeItems(w))
            if (entry.second == node)
                return entry.first;
        return nullptr;
    }

    static CItem* at(CItem* parent, const char* name) { return parent->FindChildByName(name); }

    // Queues a handler that edits the next setup dialog and accepts it.
    static void fill(ModalWatcher& watcher, std::function<void(QDialog*)> edit)
    {
        watcher.answer([edit](QWidget* w) {
            auto* dialog = qobject_cast<QDialog*>(w);
            edit(dialog);
            dialog->accept();
        });
    }

    static QString lastText(const ModalWatcher& watcher) { return watcher.seen().last().text; }

private slots:
    void channelDialogReadsAndWritesBothPorts()
    {
        CChannelInfo channel;
        channel.Init();
        auto* com = dynamic_cast<CPortIO_COMInfo*>(channel.Port);
        com->ComNo = 5;
        com->BaudRate = 19200;
        com->DataBits = 7;
        com->StopBits = 2;
        com->Parity = 2;
        com->RtsControl = 3;
        channel.TypeProtocol = 1;

        ChannelSetupDialog dialog(&channel);
        dialog.Init();
        // The stored protocol is not shown: a serial channel opens on RTU.
        QCOMPARE(child<QComboBox>(&dialog, "protocolBox")->currentText(), QString("MODBUS RTU"));

        // What Init showed comes back in the list.
        QList<QString> info;
        connect(&dialog, &ChannelSetupDialog::signalInfoChannel, [&](QList<QString> l, bool) { info = l; });
        child<QLineEdit>(&dialog, "nameEdit")->clear();
        child<QComboBox>(&dialog, "echoBox")->setCurrentIndex(1);
        dialog.accept();
        QCOMPARE(info, (QList<QString>{"Channel_0", "0", "500", "3", "0", "0", "5", "19200", "7", "2", "2",
                                       "1", "3", "0"}));
        QCOMPARE(channel.TypeProtocol, 0);
        QVERIFY(com->bEcho);

        // A change of type replaces the port at once; Cancel doesn't bring it back.
        ChannelSetupDialog switching(&channel);
        switching.Init();
        child<QComboBox>(&switching, "typeBox")->setCurrentIndex(1);
        QCOMPARE(child<QStackedWidget>(&switching, "stackedWidget")->currentIndex(), 1);
        switching.reject();
        QCOMPARE(channel.TypeChannel, 1);
        auto* tcp = dynamic_cast<CPortIO_TCPInfo*>(channel.Port);
        QVERIFY(tcp);
        QCOMPARE(tcp->IP_Port, uint16_t(502));

        tcp->IP = 0x0100000a; // 10.0.0.1
        channel.TypeProtocol = 1;
        ChannelSetupDialog tcpDialog(&channel);
        tcpDialog.Init();
        QCOMPARE(child<QComboBox>(&tcpDialog, "protocolBox")->currentText(), QString("MODBUS TCP"));
        QStringList order;
        connect(&tcpDialog, &ChannelSetupDialog::signalIpAddr, [&](QString) { order << "ip"; });
        connect(&tcpDialog, &ChannelSetupDialog::signalInfoChannel, [&](QList<QString> l, bool save) {
            order << "info";
            info = l;
            QVERIFY(save);
        });
        child<QLineEdit>(&tcpDialog, "ipEdit")->setText("10.0.0.300");
        child<QSpinBox>(&tcpDialog, "tcpPortBox")->setValue(1502);
        tcpDialog.accept();
        QCOMPARE(order, (QStringList{"ip", "info"}));
        // A part above 255 keeps the old address, and the list carries it.
        QCOMPARE(tcp->IP, 0x0100000au);
        QCOMPARE(info.mid(5), (QList<QString>{"2", QString::number(0x0100000a), "1502", "5000"}));
        QCOMPARE(channel.TypeProtocol, 2);

        child<QLineEdit>(&tcpDialog, "ipEdit")->setText("192.168.1.20");
        tcpDialog.accept();
        QCOMPARE(QString::fromStdString(tcp->GetIpString()), QString("192.168.1.20"));
    }

    void deviceAndGroupDialogs()
    {
        CDeviceInfo device;
        device.SetName("Pump");
        DeviceSetupDialog deviceDialog(&device);
        deviceDialog.Init();
        QList<QString> info;
        connect(&deviceDialog, &DeviceSetupDialog::signalInfoDevice,
                [&](QList<QString> l, bool) { info = l; });
        child<QLineEdit>(&deviceDialog, "nameEdit")->clear();
        child<QSpinBox>(&deviceDialog, "addressBox")->setValue(0);
        child<QComboBox>(&deviceDialog, "exchangeBox")->setCurrentIndex(0);
        child<QComboBox>(&deviceDialog, "emulationBox")->setCurrentIndex(1);
        child<QSpinBox>(&deviceDialog, "maxRegsBox")->setValue(65);
        deviceDialog.accept();
        // Numbers travel as character codes, 0 included.
        QCOMPARE(info.size(), 7);
        QCOMPARE(info[0], QString("Pump"));
        QCOMPARE(info[1], QString(QChar(0)));
        QCOMPARE(info[2], QString("0"));
        QCOMPARE(info[3], QString("1"));
        QCOMPARE(info[4], QString("A"));
        QCOMPARE(info[5], QString(QChar(2000)));
        QCOMPARE(info[6].size(), 1);
        QCOMPARE(device.Addr, uint8_t(0));
        QVERIFY(!device.bExchange && device.bEmulation);

        CGroupInfo group;
        group.UpdateRate = 1000;
        GroupSetupDialog groupDialog(&group);
        groupDialog.Init();
        auto* rate = child<QSpinBox>(&groupDialog, "updateRateBox");
        auto* unit = child<QComboBox>(&groupDialog, "mu_UpdateRateBox");
        QCOMPARE(rate->value(), 999);
        QCOMPARE(rate->maximum(), 86400000);

        rate->setValue(500);
        unit->setCurrentIndex(3);
        QCOMPARE(rate->value(), 24);
        QCOMPARE(rate->maximum(), 24);
        unit->setCurrentIndex(0);
        QCOMPARE(rate->value(), 24);
        QCOMPARE(rate->maximum(), 86400000);
        unit->setCurrentIndex(2);
        connect(&groupDialog, &GroupSetupDialog::signalInfoGroup, [&](QList<QString> l, bool) { info = l; });
        groupDialog.accept();
        QCOMPARE(info, (QList<QString>{"Group_0", "24", "2"}));
        QCOMPARE(group.UpdateRate, 24u);
        QCOMPARE(group.MU_UpdateRate, 2);

        group.UpdateRate = 0;
        GroupSetupDialog zero(&group);
        zero.Init();
        QCOMPARE(child<QSpinBox>(&zero, "updateRateBox")->value(), 1);
    }

    void addChannelDeviceAndGroup()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        open(w, watcher);
        CTreeItemRoot& root = MainWindowProbe::root(w);
        MainWindowProbe::dirty(w) = false;

        // Cancelled: the node goes, the two entries of the list stay.
        watcher.answer([](QWidget* d) { qobject_cast<QDialog*>(d)->reject(); });
        w.on_add_channel_action_triggered();
        QCOMPARE(root.size(), 2u);
        QCOMPARE(MainWindowProbe::infoChannel(w), (QList<QString>{"Каналы", "1"}));

        int listed = 0;
        fill(watcher, [&](QDialog* d) {
            child<QSpinBox>(d, "comNoBox")->setValue(7);
            listed = MainWindowProbe::infoChannel(w).size();
        });
        w.on_add_channel_action_triggered();
        QCOMPARE(listed, 4); // appended behind the stale pair
        QCOMPARE(root.size(), 3u);
        auto* added = static_cast<CChannelInfo*>(at(&root, "Channel_2"));
        QVERIFY(added);
        QCOMPARE(dynamic_cast<CPortIO_COMInfo*>(added->Port)->ComNo, 7u);
        QTreeWidgetItem* row = rowOf(w, added);
        QVERIFY(row && row->parent() == rootRow(w) && row->isSelected());
        QCOMPARE(row->type(), int(TreeItemChannel));
        QVERIFY(MainWindowProbe::infoChannel(w).isEmpty());
        QVERIFY(MainWindowProbe::dirty(w));

        // The next channel proposes the port after the last one; port 1 is taken.
        int proposed = 0;
        fill(watcher, [&](QDialog* d) {
            proposed = child<QSpinBox>(d, "comNoBox")->value();
            child<QSpinBox>(d, "comNoBox")->setValue(1);
        });
        watcher.answer(QMessageBox::Ok);
        w.on_add_channel_action_triggered();
        QCOMPARE(proposed, 8);
        QCOMPARE(lastText(watcher), QString("Добавление канала завершилось неудачно, обнаружен дубликат"));
        QCOMPARE(root.size(), 3u);
        QVERIFY(MainWindowProbe::infoChannel(w).isEmpty());

        // A device from a group row goes into the channel, behind the last address.
        CItem* channel0 = at(&root, "Channel_0");
        CItem* device0 = at(channel0, "Device_0");
        select(w, rowOf(w, at(device0, "Group_0")));
        fill(watcher, [&](QDialog* d) {
            proposed = child<QSpinBox>(d, "addressBox")->value();
            child<QSpinBox>(d, "addressBox")->setValue(255);
        });
        w.on_add_device_action_triggered();
        QCOMPARE(proposed, 2);
        auto* device1 = static_cast<CDeviceInfo*>(at(channel0, "Device_1"));
        QVERIFY(device1 && rowOf(w, device1)->parent() == rowOf(w, channel0));
        fill(watcher, [&](QDialog* d) { proposed = child<QSpinBox>(d, "addressBox")->value(); });
        w.on_add_device_action_triggered();
        QCOMPARE(proposed, 0); // 255 wraps
        QCOMPARE(channel0->size(), 3u);

        fill(watcher, [](QDialog* d) { child<QSpinBox>(d, "addressBox")->setValue(1); });
        watcher.answer(QMessageBox::Ok);
        w.on_add_device_action_triggered();
        QCOMPARE(lastText(watcher),
                 QString("Добавление устройства завершилось неудачно, обнаружен дубликат"));
        QCOMPARE(channel0->size(), 3u);

        // Groups: a new one enters the group map; a taken name is refused.
        select(w, rowOf(w, device0));
        fill(watcher, [](QDialog*) {});
        w.on_add_group_action_triggered();
        CItem* group1 = at(device0, "Group_1");
        QVERIFY(group1);
        QCOMPARE(MainWindowProbe::groups(w)["Channel_0.Device_0.Group_1"], group1);
        QVERIFY(rowOf(w, group1)->isSelected());

        fill(watcher, [](QDialog* d) { child<QLineEdit>(d, "nameEdit")->setText("Group_0"); });
        watcher.answer(QMessageBox::Ok);
        w.on_add_group_action_triggered();
        QCOMPARE(lastText(watcher), QString("Добавление группы завершилось неудачно, обнаружен дубликат"));
        QCOMPARE(device0->size(), 2u);
        QVERIFY(MainWindowProbe::infoGroup(w).isEmpty());
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    void editRenamesTheGroupKeys()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        open(w, watcher);
        CTreeItemRoot& root = MainWindowProbe::root(w);
        auto& groups = MainWindowProbe::groups(w);
        CItem* channel0 = at(&root, "Channel_0");
        CItem* channel1 = at(&root, "Channel_1");
        CItem* group0 = groups["Channel_0.Device_0.Group_0"];

        auto rename = [&](CItem* node, const QString& name) {
            select(w, rowOf(w, node));
            fill(watcher, [name](QDialog* d) { child<QLineEdit>(d, "nameEdit")->setText(name); });
            w.on_edit_action_triggered();
        };

        rename(channel0, "A");
        QCOMPARE(rowOf(w, channel0)->text(0), QString("A"));
        QCOMPARE(groups.count("Channel_0.Device_0.Group_0"), size_t(0));
        QCOMPARE(groups["A.Device_0.Group_0"], group0);
        QVERIFY(MainWindowProbe::infoChannel(w).isEmpty());

        // A channel "AA" with a group of its own: renaming "A" captures its key.
        rename(channel1, "AA");
        select(w, rowOf(w, channel1));
        fill(watcher, [](QDialog*) {});
        w.on_add_device_action_triggered();
        select(w, rowOf(w, at(channel1, "Device_1")));
        fill(watcher, [](QDialog*) {});
        w.on_add_group_action_triggered();
        CItem* otherGroup = groups["AA.Device_1.Group_1"];
        QVERIFY(otherGroup);
        rename(channel0, "B");
        QCOMPARE(groups["B.Device_0.Group_0"], group0);
        QCOMPARE(groups.count("AA.Device_1.Group_1"), size_t(0));
        QCOMPARE(groups["B.Device_1.Group_1"], otherGroup);

        CItem* device0 = at(channel0, "Device_0");
        rename(device0, "Pump");
        QCOMPARE(groups["B.Pump.Group_0"], group0);
        QCOMPARE(rowOf(w, device0)->text(0), QString("Pump"));

        rename(group0, "Fast");
        QCOMPARE(groups["B.Pump.Fast"], group0);
        QCOMPARE(groups.count("B.Pump.Group_0"), size_t(0));

        // Cancel: the list ends empty and nothing moves.
        select(w, rowOf(w, group0));
        watcher.answer([](QWidget* d) { qobject_cast<QDialog*>(d)->reject(); });
        w.on_edit_action_triggered();
        QVERIFY(MainWindowProbe::infoGroup(w).isEmpty());
        QCOMPARE(groups["B.Pump.Fast"], group0);

        // Refused edits restore what they name: the COM number of a channel,
        // the name of a group; the channel keeps its new name.
        auto* serial = static_cast<CChannelInfo*>(channel0);
        auto* added = new CChannelInfo;
        added->SetName("C");
        added->Init();
        dynamic_cast<CPortIO_COMInfo*>(added->Port)->ComNo = 9;
        root.AppendChild(added);
        select(w, rowOf(w, channel0));
        fill(watcher, [](QDialog* d) {
            child<QLineEdit>(d, "nameEdit")->setText("D");
            child<QSpinBox>(d, "comNoBox")->setValue(9);
        });
        watcher.answer(QMessageBox::Ok);
        w.on_edit_action_triggered();
        QCOMPARE(lastText(watcher), QString("Изменения канала завершилось неудачно, обнаружен дубликат"));
        QCOMPARE(dynamic_cast<CPortIO_COMInfo*>(serial->Port)->ComNo, 1u);
        QCOMPARE(serial->GetName(), std::string("D"));
        QVERIFY(MainWindowProbe::infoChannel(w).isEmpty());

        select(w, rowOf(w, device0));
        fill(watcher, [](QDialog* d) { child<QLineEdit>(d, "nameEdit")->setText("Slow"); });
        w.on_add_group_action_triggered();
        // The refused channel edit kept its new name but left the old keys.
        QCOMPARE(groups.count("D.Pump.Fast"), size_t(0));
        CItem* second = groups["D.Pump.Slow"];
        QVERIFY(second);
        select(w, rowOf(w, second));
        fill(watcher, [](QDialog* d) { child<QLineEdit>(d, "nameEdit")->setText("Fast"); });
        watcher.answer(QMessageBox::Ok);
        w.on_edit_action_triggered();
        QCOMPARE(lastText(watcher), QString("Изменения группы завершилось неудачно, обнаружен дубликат"));
        QCOMPARE(second->GetName(), std::string("Slow"));
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    void deleteAsksFirst()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        open(w, watcher);
        auto& groups = MainWindowProbe::groups(w);
        CItem* group0 = groups["Channel_0.Device_0.Group_0"];
        CItem* device0 = group0->GetParent();
        QTreeWidgetItem* row = rowOf(w, group0);
        select(w, row);

        QString informative;
        watcher.answer([&](QWidget* box) {
            informative = qobject_cast<QMessageBox*>(box)->informativeText();
            ModalWatcher::pressButton(box, QMessageBox::No);
        });
        w.on_delete_action_triggered();
        QCOMPARE(watcher.seen().last().title, QString("Удаление"));
        QCOMPARE(lastText(watcher), QString("Внимание!"));
        QCOMPARE(informative, QString("Вы действительно хотите удалить выбранную группу?"));
        QCOMPARE(device0->size(), 1u);

        watcher.answer(QMessageBox::Yes);
        w.on_delete_action_triggered();
        QCOMPARE(device0->size(), 0u);
        QCOMPARE(groups.count("Channel_0.Device_0.Group_0"), size_t(0));
        QCOMPARE(MainWindowProbe::treeItems(w).count(row), size_t(0));
        QCOMPARE(rowOf(w, device0)->childCount(), 0);

        // The root row goes without a question and takes no node with it.
        select(w, rootRow(w));
        w.on_delete_action_triggered();
        QCOMPARE(tree(w)->topLevelItemCount(), 0);
        QCOMPARE(MainWindowProbe::root(w).size(), 2u);
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    void copyAndPaste()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        open(w, watcher);
        CTreeItemRoot& root = MainWindowProbe::root(w);
        CItem* serial = at(&root, "Channel_0");
        CItem* tcp = at(&root, "Channel_1");
        auto comNo = [](CItem* c) {
            return dynamic_cast<CPortIO_COMInfo*>(static_cast<CChannelInfo*>(c)->Port)->ComNo;
        };
        auto copyPaste = [&](CItem* source, QTreeWidgetItem* target) {
            select(w, rowOf(w, source));
            w.on_copy_action_triggered();
            select(w, target);
            w.on_paste_action_triggered();
        };

        // A serial channel moves on to the next free port and keeps a plain name.
        copyPaste(serial, rootRow(w));
        CItem* first = at(&root, "Channel_2");
        QVERIFY(first);
        QCOMPARE(comNo(first), 2u);
        QCOMPARE(first->GetItemsCount(itTag), 3u);
        QCOMPARE(rowOf(w, first)->parent(), rootRow(w));
        QCOMPARE(MainWindowProbe::groups(w).count("Channel_2.Device_0.Group_0"), size_t(1));
        QVERIFY(MainWindowProbe::clipboard(w).empty());

        // Pasted from a device row: the host is still the root.
        copyPaste(serial, rowOf(w, at(serial, "Device_0")));
        QCOMPARE(comNo(at(&root, "Channel_3")), 3u);

        // Nothing left to paste.
        w.on_paste_action_triggered();
        QCOMPARE(root.size(), 4u);

        copyPaste(tcp, rootRow(w));
        copyPaste(tcp, rootRow(w));
        QVERIFY(at(&root, "Channel_1_Copy1"));
        QVERIFY(at(&root, "Channel_1_Copy2"));

        CItem* device0 = at(serial, "Device_0");
        copyPaste(device0, rowOf(w, at(device0, "Group_0")));
        copyPaste(device0, rowOf(w, serial));
        QVERIFY(at(serial, "Device_0_Copy1"));
        QCOMPARE(rowOf(w, at(serial, "Device_0_Copy2"))->parent(), rowOf(w, serial));
        QVERIFY(!MainWindowProbe::dirty(w));
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    // A client that is not connected refuses every call, like a server that
    // answers with an error: each command then shows what it leaves behind.
    void refusingServer()
    {
        ModalWatcher watcher;
        OPCUAWrapper client; // outlives the window, which still points at it
        MainWindow w;
        w.show();
        open(w, watcher);
        MainWindowProbe::connected(w) = true;
        MainWindowProbe::client(w) = &client;
        CTreeItemRoot& root = MainWindowProbe::root(w);
        auto& groups = MainWindowProbe::groups(w);
        CItem* channel0 = at(&root, "Channel_0");
        CItem* device0 = at(channel0, "Device_0");
        CItem* group0 = at(device0, "Group_0");

        select(w, rootRow(w));
        fill(watcher, [](QDialog* d) { child<QSpinBox>(d, "comNoBox")->setValue(4); });
        watcher.answer(QMessageBox::Ok);
        w.on_add_channel_action_triggered();
        QCOMPARE(lastText(watcher),
                 QString("Добавление канала завершилось неудачно, на сервере произошла ошибка"));
        QCOMPARE(root.size(), 2u);
        QCOMPARE(rootRow(w)->childCount(), 2);
        QVERIFY(MainWindowProbe::infoChannel(w).isEmpty());

        select(w, rowOf(w, device0));
        fill(watcher, [](QDialog*) {});
        watcher.answer(QMessageBox::Ok);
        w.on_add_group_action_triggered();
        QCOMPARE(lastText(watcher),
                 QString("Добавление группы завершилось неудачно, на сервере произошла ошибка"));
        QCOMPARE(device0->size(), 1u);

        // A refused delete takes the row away but leaves the node.
        QTreeWidgetItem* groupRow = rowOf(w, group0);
        select(w, groupRow);
        watcher.answer(QMessageBox::Yes);
        watcher.answer(QMessageBox::Ok);
        w.on_delete_action_triggered();
        QCOMPARE(lastText(watcher), QString("Удаление ноды завершилось неудачно"));
        QCOMPARE(rowOf(w, device0)->childCount(), 0);
        QCOMPARE(device0->size(), 1u);
        QCOMPARE(groups.count("Channel_0.Device_0.Group_0"), size_t(1));

        // A refused edit keeps what the dialog wrote and the whole argument list.
        select(w, rowOf(w, device0));
        fill(watcher, [](QDialog* d) {
            child<QLineEdit>(d, "nameEdit")->setText("Pump");
            child<QSpinBox>(d, "addressBox")->setValue(66);
        });
        watcher.answer(QMessageBox::Ok);
        w.on_edit_action_triggered();
        QCOMPARE(lastText(watcher), QString("Изменения устройства завершилось неудачно"));
        const QList<QString> info = MainWindowProbe::infoDevice(w);
        QCOMPARE(info.size(), 9);
        QCOMPARE(info.mid(0, 4), (QList<QString>{"Channel_0.Device_0", "2", "Pump", "B"}));
        QCOMPARE(device0->GetName(), std::string("Pump"));
        QCOMPARE(rowOf(w, device0)->text(0), QString("Device_0"));
        QCOMPARE(groups.count("Channel_0.Device_0.Group_0"), size_t(1));

        select(w, rowOf(w, channel0));
        fill(watcher, [](QDialog*) {});
        watcher.answer(QMessageBox::Ok);
        w.on_edit_action_triggered();
        QCOMPARE(lastText(watcher), QString("Изменения канала завершилось неудачно"));
        QVERIFY(client.exchangeRunning); // set for the stop that never happened
        QCOMPARE(MainWindowProbe::infoChannel(w).size(), 16);

        QCOMPARE(watcher.unexpectedCount(), 0);
        MainWindowProbe::client(w) = nullptr;
        MainWindowProbe::connected(w) = false;
    }

    // Renders the three editors; with VELMORA_SHOTS set they are saved there.
    void dialogsRender()
    {
        CChannelInfo channel;
        channel.Init();
        CChannelInfo tcpChannel;
        tcpChannel.TypeChannel = 1;
        tcpChannel.Init();
        CDeviceInfo device;
        CGroupInfo group;
        ChannelSetupDialog channelDialog(&channel);
        ChannelSetupDialog tcpDialog(&tcpChannel);
        DeviceSetupDialog deviceDialog(&device);
        GroupSetupDialog groupDialog(&group);
        channelDialog.Init();
        tcpDialog.Init();
        deviceDialog.Init();
        groupDialog.Init();
        const QList<QPair<QDialog*, QString>> shots{{&channelDialog, "channel-dialog"},
                                                    {&tcpDialog, "channel-dialog-tcp"},
                                                    {&deviceDialog, "device-dialog"},
                                                    {&groupDialog, "group-dialog"}};
        const QString dir = qEnvironmentVariable("VELMORA_SHOTS");
        for (const auto& shot : shots) {
            shot.first->show();
            QVERIFY(QTest::qWaitForWindowExposed(shot.first));
            const QSize hint = shot.first->sizeHint();
            QVERIFY(shot.first->width() >= hint.width() && shot.first->height() >= hint.height());
            const QPixmap picture = shot.first->grab();
            QVERIFY(!picture.isNull());
            if (!dir.isEmpty())
                QVERIFY(picture.save(dir + "/" + shot.second + ".png"));
            shot.first->hide();
        }
    }
};

QTEST_MAIN(ItemCommandsTest)
#include "tst_items.moc"
