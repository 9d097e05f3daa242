#include "dialogs/tagsetupdialog.h"
#include "model/dataginfo.h"
#include "model/emuldata_sin.h"
#include "model/transform_linescaledata.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/session.h"
#include "views/tablemodelmonitoring.h"
#include "views/tablemodelvariable.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTabWidget>
#include <QTableView>
#include <QTreeWidget>
#include <QtTest>

namespace {

QComboBox* combo(QWidget* w, const char* name)
{
    return requireChild<QComboBox>(w, name);
}

QSpinBox* spin(QWidget* w, const char* name)
{
    return requireChild<QSpinBox>(w, name);
}

// The worked example open with its group of three tags selected.
struct Tags : Session
{
    Tags() : Session(VELMORA_TEST_DATA "/worked_example.cfg")
    {
        group = node("Channel_0.Device_0.Group_0");
        select(group);
        model = MainWindowProbe::tagModel(w);
    }
    QStringList names()
    {
        QStringList out;
        for (auto& entry : *group)
            out << QString::fromStdString(entry.second->GetName());
        return out;
    }
    // Selects `rows` (unless none), queues `answers` for what comes up, runs `action`.
    void run(const QList<int>& rows, void (MainWindow::*action)(),
             std::initializer_list<QMessageBox::StandardButton> answers = {})
    {
        if (!rows.isEmpty())
            selectRows(rows);
        for (auto answer : answers)
            watcher.answer(answer);
        (w.*action)();
    }
    CItem* group;
    TableModelVariable* model;
};

} // namespace

class TagsTest : public QObject
{
    Q_OBJECT

private slots:
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
        Tags s;
        // Three rows copied give one tag, the first, and a paste can be repeated: Tag_0 reads
        // input register 1, the copies move on to 2 and 3.
        s.run({0, 1, 2}, &MainWindow::tag_copy_action_triggered);
        s.w.tag_paste_action_triggered();
        s.w.tag_paste_action_triggered();
        QCOMPARE(s.names(), (QStringList{"Tag_0", "Tag_1", "Tag_2", "Tag_3", "Tag_4"}));
        QCOMPARE(int(static_cast<CDATagInfo*>(s.node("Channel_0.Device_0.Group_0.Tag_4"))->Addr), 3);
        QCOMPARE(s.model->rowCount(), 5);
        // The pending list isn't cleared by a paste: each one appends.
        QCOMPARE(MainWindowProbe::infoTag(s.w), (QList<QString>{"Channel_0.Device_0.Group_0.Tag_3", "4",
                                                                "Channel_0.Device_0.Group_0.Tag_4", "4"}));
        MainWindowProbe::infoTag(s.w).clear();

        // A cancelled add leaves nothing but the two leading list entries.
        QSignalSpy inserted(s.model, &QAbstractItemModel::rowsInserted);
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
        s.run({0}, &MainWindow::tag_edit_action_triggered);
        QCOMPARE(MainWindowProbe::tagCount(s.w), 100);
        QCOMPARE(s.watcher.unexpectedCount(), 0);
    }

    void sortedTableEditsByNameButDeletesByPosition()
    {
        Tags s;
        s.model->sort(0, Qt::DescendingOrder);
        QString shown;
        s.accept([&shown](QWidget* d) {
            shown = requireChild<QLineEdit>(d, "nameEdit")->text();
            requireChild<QLineEdit>(d, "nameEdit")->setText("A_renamed");
        });
        s.run({0}, &MainWindow::tag_edit_action_triggered);
        QCOMPARE(shown, QString("Tag_2"));
        QCOMPARE(s.names(), (QStringList{"A_renamed", "Tag_0", "Tag_1"}));

        // Row 0 of the sorted table shows Tag_1; copy and delete reach the first child, A_renamed,
        // and the copied tag is gone with it.
        s.model->sort(0, Qt::DescendingOrder);
        s.run({0}, &MainWindow::tag_copy_action_triggered);
        QCOMPARE(MainWindowProbe::clipboard(s.w).front()->GetName(), std::string("A_renamed"));
        s.model->sort(0, Qt::DescendingOrder);
        s.run({0}, &MainWindow::tag_delete_action_triggered, {QMessageBox::Yes});
        QCOMPARE(s.watcher.seen().last().title, QString("Удаление"));
        QCOMPARE(s.names(), (QStringList{"Tag_0", "Tag_1"}));
        QVERIFY(MainWindowProbe::clipboard(s.w).empty());
    }

    void deleteNotifiesRowsAndMovesFocus()
    {
        Tags s;
        for (int i = 3; i < 10; ++i) {
            auto* tag = new CDATagInfo;
            tag->SetName("Tag_" + std::to_string(i));
            s.group->AppendChild(tag);
        }
        s.w.on_treeWidget_itemSelectionChanged();
        QSignalSpy removed(s.model, &QAbstractItemModel::rowsRemoved);
        QSignalSpy removedLive(MainWindowProbe::monitoringModel(s.w), &QAbstractItemModel::rowsRemoved);
        auto ranges = [](QSignalSpy& spy) {
            QList<QPair<int, int>> out;
            for (const QList<QVariant>& call : spy)
                out << qMakePair(call.at(1).toInt(), call.at(2).toInt());
            spy.clear();
            return out;
        };

        // Gaps go one row at a time from the back, in both tables; a run goes in one call.
        s.run({3, 5, 7}, &MainWindow::tag_delete_action_triggered, {QMessageBox::Yes});
        QCOMPARE(s.names(), (QStringList{"Tag_0", "Tag_1", "Tag_2", "Tag_4", "Tag_6", "Tag_8", "Tag_9"}));
        const QList<QPair<int, int>> oneByOne{{7, 7}, {5, 5}, {3, 3}};
        QVERIFY(ranges(removed) == oneByOne && ranges(removedLive) == oneByOne);
        s.run({3, 4, 5}, &MainWindow::tag_delete_action_triggered, {QMessageBox::Yes});
        QCOMPARE(s.names(), (QStringList{"Tag_0", "Tag_1", "Tag_2", "Tag_9"}));
        QCOMPARE(ranges(removed), (QList<QPair<int, int>>{{3, 5}}));
        s.run({0}, &MainWindow::tag_delete_action_triggered, {QMessageBox::No});
        QCOMPARE(s.group->size(), 4u);

        // With the last tag gone the focus moves to the tree. The box has left the window
        // inactive; its focus child is what counts.
        requireChild<QTabWidget>(&s.w, "tabWidget")->setCurrentIndex(1);
        s.w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&s.w));
        auto* table = requireChild<QTableView>(&s.w, "tableView");
        table->setFocus();
        QTRY_VERIFY(table->hasFocus());
        s.run({0, 1, 2, 3}, &MainWindow::tag_delete_action_triggered, {QMessageBox::Yes});
        QVERIFY(s.model->rowCount() == 0 && s.w.focusWidget() == s.tree());
        QCOMPARE(s.watcher.unexpectedCount(), 0);
    }

    // A client that is not connected refuses every call, as a server that answers with an
    // error would. (A series cut short is the gateway fault tests' business.)
    void refusingServer()
    {
        OPCUAWrapper client; // outlives the window, which still points at it
        Tags s;
        MainWindowProbe::connected(s.w) = true;
        MainWindowProbe::client(s.w) = &client;

        // A refused edit keeps what the dialog wrote under the old key.
        s.accept(Session::rename("Renamed"));
        s.run({0}, &MainWindow::tag_edit_action_triggered, {QMessageBox::Ok});
        QCOMPARE(s.watcher.seen().last().text, QString("Изменение тега завершилось неудачно"));
        QVERIFY(!s.group->FindChildByName("Renamed") && s.group->begin()->second->GetName() == "Renamed");

        s.run({1, 2}, &MainWindow::tag_delete_action_triggered, {QMessageBox::Yes, QMessageBox::Ok});
        QCOMPARE(s.watcher.seen().last().text, QString("Удаление ноды завершилось неудачно"));
        s.run({1}, &MainWindow::tag_copy_action_triggered);
        s.run({}, &MainWindow::tag_paste_action_triggered, {QMessageBox::Ok});
        QCOMPARE(s.watcher.seen().last().text,
                 QString("Добавление тега завершилось неудачно, на сервере произошла ошибка"));
        QCOMPARE(s.group->size(), 3u);
        QCOMPARE(s.watcher.unexpectedCount(), 0);
        MainWindowProbe::client(s.w) = nullptr;
        MainWindowProbe::connected(s.w) = false;
    }
};

QTEST_MAIN(TagsTest)
#include "tst_tags.moc"
