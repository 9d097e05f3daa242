#include "dialogs/channelsetupdialog.h"
#include "dialogs/devicesetupdialog.h"
#include "dialogs/groupsetupdialog.h"
#include "dialogs/tagsetupdialog.h"
#include "model/cchannelinfo.h"
#include "model/dataginfo.h"
#include "model/deviceinfo.h"
#include "model/emuldata_sin.h"
#include "model/groupinfo.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"
#include "model/transform_linescaledata.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/session.h"
#include "views/tablemodelmonitoring.h"
#include "views/tablemodelvariable.h"

#include <QtTest>
#include <QtWidgets>

namespace {

QComboBox* combo(QWidget* w, const char* name)
{
    return requireChild<QComboBox>(w, name);
}

QSpinBox* spin(QWidget* w, const char* name)
{
    return requireChild<QSpinBox>(w, name);
}

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

using Action = void (MainWindow::*)();

// The worked example open with its group of three tags selected.
struct Editing : Session
{
    Editing() : Session(VELMORA_TEST_DATA "/worked_example.cfg"), group(node("Channel_0.Device_0.Group_0"))
    {
        select(group);
    }
    CTreeItemRoot& root() { return MainWindowProbe::root(w); }
    std::map<QString, CItem*>& groups() { return MainWindowProbe::groups(w); }
    TableModelVariable* model() { return MainWindowProbe::tagModel(w); }
    QStringList names()
    {
        QStringList out;
        for (auto& entry : *group)
            out << QString::fromStdString(entry.second->GetName());
        return out;
    }
    // Runs an item command on `on` with its dialog edited and accepted; with `refused` a box then
    // turns the result down. The text of the last box.
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
    // Runs a tag command on rows of the table (unless none), answering its boxes.
    void onRows(const QList<int>& rows, Action action,
                std::initializer_list<QMessageBox::StandardButton> answers = {})
    {
        if (!rows.isEmpty())
            selectRows(rows);
        for (auto answer : answers)
            watcher.answer(answer);
        (w.*action)();
    }
    CItem* group;
};

} // namespace

// The editors of the four levels and the item and tag commands that run them, without a server.
class EditingTest : public QObject
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
        combo(&dialog, "echoBox")->setCurrentIndex(1);
        QCOMPARE(accepted(dialog, &ChannelSetupDialog::signalInfoChannel),
                 (QList<QString>{"Channel_0", "0", "500", "3", "0", "0", "5", "9600", "8", "1", "2", "1", "0",
                                 "0"}));

        // A change of type replaces the port at once; Cancel doesn't bring it back.
        ChannelSetupDialog switching(&channel);
        switching.Init();
        combo(&switching, "typeBox")->setCurrentIndex(1);
        switching.reject();
        auto* tcp = dynamic_cast<CPortIO_TCPInfo*>(channel.Port);
        QVERIFY(channel.TypeChannel == 1 && tcp);

        // A part above 255 keeps the old address, and the list carries it.
        tcp->IP = 0x0100000a; // 10.0.0.1
        ChannelSetupDialog tcpDialog(&channel);
        tcpDialog.Init();
        requireChild<QLineEdit>(&tcpDialog, "ipEdit")->setText("10.0.0.300");
        spin(&tcpDialog, "tcpPortBox")->setValue(1502);
        QCOMPARE(accepted(tcpDialog, &ChannelSetupDialog::signalInfoChannel).mid(5),
                 (QList<QString>{"2", QString::number(0x0100000a), "1502", "5000"}));

        // Device numbers travel as character codes, 0 included.
        CDeviceInfo device;
        DeviceSetupDialog deviceDialog(&device);
        deviceDialog.Init();
        spin(&deviceDialog, "addressBox")->setValue(0);
        combo(&deviceDialog, "exchangeBox")->setCurrentIndex(0);
        combo(&deviceDialog, "emulationBox")->setCurrentIndex(1);
        spin(&deviceDialog, "maxRegsBox")->setValue(65);
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
        combo(&groupDialog, "mu_UpdateRateBox")->setCurrentIndex(3);
        QCOMPARE(rate->value(), 24);
        combo(&groupDialog, "mu_UpdateRateBox")->setCurrentIndex(2);
        QCOMPARE(accepted(groupDialog, &GroupSetupDialog::signalInfoGroup),
                 (QList<QString>{"Group_0", "24", "2"}));
    }

    void addChannelDeviceAndGroup()
    {
        Editing s;
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
    }

    void editRenamesTheGroupKeys()
    {
        Editing s;
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
    }

    void copyPasteAndDelete()
    {
        Editing s;
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
    }

    void setupDialog()
    {
        auto* tag = new CDATagInfo;
        tag->SetName("Tag_5");
        tag->RegType = MRT_HoldingRegister;
        tag->ByteOrder = 3;
        TagSetupDialog dialog(tag, false, nullptr);
        dialog.Init();
        QComboBox *regType = combo(&dialog, "regTypeBox"), *valType = combo(&dialog, "valTypeBox");
        QComboBox *byteOrder = combo(&dialog, "byteOrderBox"), *write = combo(&dialog, "writeBox");
        QComboBox* writeGroup = combo(&dialog, "writeGroupBox");
        QCOMPARE(byteOrder->currentText(), QString("DC BA"));
        // A list without the stored order falls on the swapped bytes.
        valType->setCurrentIndex(MVT_UInt16);
        QCOMPARE(byteOrder->currentText(), QString("BA"));

        // Value type and byte order only for registers, writing only for coils and holding
        // registers, the group write only with writing on.
        for (int type = 3; type >= 0; --type) {
            regType->setCurrentIndex(type);
            const bool values = type >= 2, writable = type % 2;
            QVERIFY(valType->isEnabled() == values && byteOrder->isEnabled() == values);
            QCOMPARE(write->isEnabled(), writable);
            write->setCurrentIndex(0);
            QVERIFY(!writeGroup->isEnabled());
            write->setCurrentIndex(1);
            QCOMPARE(writeGroup->isEnabled(), writable);
        }
        // The function in the coils' write caption follows the group write.
        regType->setCurrentIndex(MRT_Coil);
        auto* writeLabel = requireChild<QLabel>(&dialog, "writelabel");
        writeGroup->setCurrentIndex(0);
        QCOMPARE(writeLabel->text(), QString("Запись (функция 5)"));
        writeGroup->setCurrentIndex(1);
        QCOMPARE(writeLabel->text(), QString("Запись (функция 15)"));

        // The position within a segment is open only for segments above two.
        regType->setCurrentIndex(MRT_HoldingRegister);
        QSpinBox *segment = spin(&dialog, "regsInSegmentBox"), *position = spin(&dialog, "segmentPosBox");
        segment->setValue(5);
        QCOMPARE(position->maximum(), 3);
        position->setValue(3);
        segment->setValue(2);
        QVERIFY(!position->isEnabled() && position->value() == 0);

        // "Бит8" sits where the type table has "Бит7": a bit stores no byte order.
        valType->setCurrentText("Бит8");
        QVERIFY(!byteOrder->isEnabled());
        requireChild<QLineEdit>(&dialog, "nameEdit")->clear();
        spin(&dialog, "addrBox")->setValue(40001);
        spin(&dialog, "spinBox_5")->setValue(250000);
        combo(&dialog, "transformTypeBox")->setCurrentIndex(TT_LineScale);
        requireChild<QLineEdit>(&dialog, "srcMinEdit")->setText("-12.5");
        requireChild<QLineEdit>(&dialog, "srcMaxEdit")->setText("много");
        requireChild<QLineEdit>(&dialog, "dstMaxEdit")->setText("1e3");
        combo(&dialog, "emulTypeBox")->setCurrentIndex(ET_Sin);
        requireChild<QDoubleSpinBox>(&dialog, "periodBox")->setValue(2.7);
        // No caption or field of the holding register's form is cut short.
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        for (QWidget* widget : dialog.findChildren<QWidget*>())
            if (widget->isVisible() && (qobject_cast<QLabel*>(widget) || qobject_cast<QComboBox*>(widget) ||
                                        qobject_cast<QAbstractSpinBox*>(widget)))
                QVERIFY2(widget->width() >= widget->minimumSizeHint().width(),
                         qPrintable(widget->objectName()));

        QSignalSpy info(&dialog, &TagSetupDialog::signalInfoTag);
        QSignalSpy count(&dialog, &TagSetupDialog::signalInfoCountTag);
        dialog.accept();
        QCOMPARE(count.value(0), QVariantList{250000});
        QCOMPARE(info.value(0), (QVariantList{QStringList{"Tag_5", "3", "40001", "15", QString(QChar(0xFF)),
                                                          "1", "1", "1", "2", "0", "1", "1", "2", "2"},
                                              true}));
        auto* scale = dynamic_cast<CTransform_LineScaleData*>(tag->Transform);
        QVERIFY(scale && scale->SrcMin == -12.5f && scale->SrcMax == 0.0f && scale->DstMax == 1000.0f);
        auto* sine = dynamic_cast<CEmulData_Sin*>(tag->Emul);
        QVERIFY(sine && sine->Period == 2u);

        // Opened for an edit, the form has no count of tags to add, shows the records in six
        // digits and lets the segment position go up to the segment size itself.
        scale->SrcMin = 1234567.0f;
        tag->RegType = MRT_HoldingRegister;
        tag->RegsInSegment = 10;
        tag->SegmentPos = 4;
        TagSetupDialog reopened(tag, true, nullptr);
        reopened.Init();
        QVERIFY(spin(&reopened, "spinBox_5")->isHidden());
        QCOMPARE(requireChild<QLineEdit>(&reopened, "srcMinEdit")->text(), QString("1.23457e+06"));
        QVERIFY(spin(&reopened, "segmentPosBox")->maximum() == 10 &&
                spin(&reopened, "segmentPosBox")->value() == 4);
        // An input keeps an earlier "Да" in writeBox, closed but stored.
        tag->RegType = MRT_Coil;
        tag->bWrite = true;
        TagSetupDialog input(tag, true, nullptr);
        input.Init();
        combo(&input, "regTypeBox")->setCurrentIndex(MRT_InputRegister);
        input.accept();
        QVERIFY(tag->bWrite);

        delete tag;
    }

    void pasteAndSeriesOfTags()
    {
        Editing s;
        // Three rows copied give one tag, the first, and a paste can be repeated: Tag_0 reads
        // input register 1, the copies move on to 2 and 3.
        s.onRows({0, 1, 2}, &MainWindow::tag_copy_action_triggered);
        s.w.tag_paste_action_triggered();
        s.w.tag_paste_action_triggered();
        QCOMPARE(s.names(), (QStringList{"Tag_0", "Tag_1", "Tag_2", "Tag_3", "Tag_4"}));
        QCOMPARE(int(static_cast<CDATagInfo*>(s.node("Channel_0.Device_0.Group_0.Tag_4"))->Addr), 3);
        QCOMPARE(s.model()->rowCount(), 5);
        // The pending list isn't cleared by a paste: each one appends.
        QCOMPARE(MainWindowProbe::infoTag(s.w), (QList<QString>{"Channel_0.Device_0.Group_0.Tag_3", "4",
                                                                "Channel_0.Device_0.Group_0.Tag_4", "4"}));
        MainWindowProbe::infoTag(s.w).clear();

        // A cancelled add leaves nothing but the two leading list entries.
        QSignalSpy inserted(s.model(), &QAbstractItemModel::rowsInserted);
        s.watcher.answer([](QWidget* d) { qobject_cast<QDialog*>(d)->reject(); });
        s.w.on_add_tag_action_triggered();
        QCOMPARE(MainWindowProbe::infoTag(s.w), (QList<QString>{"Channel_0.Device_0.Group_0", "4"}));
        MainWindowProbe::infoTag(s.w).clear();

        // Sixteen bits to a register, Бит0 to Бит15, then the next register; all rows in one notice.
        s.accept([](QWidget* d) {
            QCOMPARE(requireChild<QLineEdit>(d, "nameEdit")->text(), QString("Tag_5"));
            combo(d, "regTypeBox")->setCurrentIndex(MRT_HoldingRegister);
            spin(d, "addrBox")->setValue(100);
            combo(d, "valTypeBox")->setCurrentText("Бит0");
            spin(d, "spinBox_5")->setValue(100);
        });
        s.w.on_add_tag_action_triggered();
        QVERIFY(!QApplication::activeModalWidget() && MainWindowProbe::dirty(s.w));
        QCOMPARE(s.group->size(), 105u);
        QCOMPARE(inserted.size(), 1);
        QCOMPARE(inserted.first().mid(1), (QList<QVariant>{1, 100}));
        for (int i = 0; i < 100; ++i) {
            const auto* tag =
                static_cast<CDATagInfo*>(s.group->FindChildByName(("Tag_" + std::to_string(5 + i)).c_str()));
            QVERIFY2(tag && tag->RegType == MRT_HoldingRegister && tag->Addr == 100 + i / 16 &&
                         tag->ValType == MVT_Bit0 + i % 16,
                     qPrintable(QString::number(i)));
        }

        // An edit takes no count: the series length stays for the next add.
        s.accept();
        s.onRows({0}, &MainWindow::tag_edit_action_triggered);
        QCOMPARE(MainWindowProbe::tagCount(s.w), 100);
    }

    void sortedTableEditsByNameButDeletesByPosition()
    {
        Editing s;
        s.model()->sort(0, Qt::DescendingOrder);
        QString shown;
        s.accept([&shown](QWidget* d) {
            shown = requireChild<QLineEdit>(d, "nameEdit")->text();
            requireChild<QLineEdit>(d, "nameEdit")->setText("A_renamed");
        });
        s.onRows({0}, &MainWindow::tag_edit_action_triggered);
        QCOMPARE(shown, QString("Tag_2"));
        QCOMPARE(s.names(), (QStringList{"A_renamed", "Tag_0", "Tag_1"}));

        // Row 0 of the sorted table shows Tag_1; copy and delete reach the first child, A_renamed,
        // and the copied tag is gone with it.
        s.model()->sort(0, Qt::DescendingOrder);
        s.onRows({0}, &MainWindow::tag_copy_action_triggered);
        QCOMPARE(MainWindowProbe::clipboard(s.w).front()->GetName(), std::string("A_renamed"));
        s.model()->sort(0, Qt::DescendingOrder);
        s.onRows({0}, &MainWindow::tag_delete_action_triggered, {QMessageBox::Yes});
        QCOMPARE(s.watcher.seen().last().title, QString("Удаление"));
        QCOMPARE(s.names(), (QStringList{"Tag_0", "Tag_1"}));
        QVERIFY(MainWindowProbe::clipboard(s.w).empty());
    }

    void deleteNotifiesRowsAndMovesFocus()
    {
        Editing s;
        for (int i = 3; i < 10; ++i) {
            auto* tag = new CDATagInfo;
            tag->SetName("Tag_" + std::to_string(i));
            s.group->AppendChild(tag);
        }
        s.w.on_treeWidget_itemSelectionChanged();
        QSignalSpy removed(s.model(), &QAbstractItemModel::rowsRemoved);
        QSignalSpy removedLive(MainWindowProbe::monitoringModel(s.w), &QAbstractItemModel::rowsRemoved);
        auto ranges = [](QSignalSpy& spy) {
            QList<QPair<int, int>> out;
            for (const QList<QVariant>& call : spy)
                out << qMakePair(call.at(1).toInt(), call.at(2).toInt());
            spy.clear();
            return out;
        };

        // Gaps go one row at a time from the back, in both tables; a run goes in one call.
        s.onRows({3, 5, 7}, &MainWindow::tag_delete_action_triggered, {QMessageBox::Yes});
        QCOMPARE(s.names(), (QStringList{"Tag_0", "Tag_1", "Tag_2", "Tag_4", "Tag_6", "Tag_8", "Tag_9"}));
        const QList<QPair<int, int>> oneByOne{{7, 7}, {5, 5}, {3, 3}};
        QVERIFY(ranges(removed) == oneByOne && ranges(removedLive) == oneByOne);
        s.onRows({3, 4, 5}, &MainWindow::tag_delete_action_triggered, {QMessageBox::Yes});
        QCOMPARE(s.names(), (QStringList{"Tag_0", "Tag_1", "Tag_2", "Tag_9"}));
        QCOMPARE(ranges(removed), (QList<QPair<int, int>>{{3, 5}}));
        s.onRows({0}, &MainWindow::tag_delete_action_triggered, {QMessageBox::No});
        QCOMPARE(s.group->size(), 4u);

        // With the last tag gone the focus moves to the tree. The box has left the window
        // inactive; its focus child is what counts.
        requireChild<QTabWidget>(&s.w, "tabWidget")->setCurrentIndex(1);
        s.w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&s.w));
        auto* table = requireChild<QTableView>(&s.w, "tableView");
        table->setFocus();
        QTRY_VERIFY(table->hasFocus());
        s.onRows({0, 1, 2, 3}, &MainWindow::tag_delete_action_triggered, {QMessageBox::Yes});
        QVERIFY(s.model()->rowCount() == 0 && s.w.focusWidget() == s.tree());
    }
};

QTEST_MAIN(EditingTest)
#include "tst_editing.moc"
