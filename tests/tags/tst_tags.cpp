#include "app/mainwindow.h"
#include "dialogs/tagsetupdialog.h"
#include "model/dataginfo.h"
#include "model/emuldata_sin.h"
#include "model/transform_linescaledata.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"
#include "views/tablemodelmonitoring.h"
#include "views/tablemodelvariable.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTabWidget>
#include <QTableView>
#include <QTreeWidget>
#include <QtTest>

namespace {

template <typename T> T* child(QWidget* w, const char* name)
{
    T* found = w->findChild<T*>(name);
    if (!found)
        qFatal("no widget %s", name);
    return found;
}

QComboBox* combo(QWidget* w, const char* name)
{
    return child<QComboBox>(w, name);
}

// Catches what the dialog hands to its caller.
struct Received
{
    QList<QString> info;
    int count = -1;
    bool flag = false;
};

void listen(TagSetupDialog& dialog, Received& got)
{
    QObject::connect(&dialog, &TagSetupDialog::signalInfoTag, [&got](QList<QString> info, bool flag) {
        got.info = info;
        got.flag = flag;
    });
    QObject::connect(&dialog, &TagSetupDialog::signalInfoCountTag, [&got](int count) { got.count = count; });
}

} // namespace

class TagsTest : public QObject
{
    Q_OBJECT

private:
    static QTreeWidget* tree(MainWindow& w) { return w.findChild<QTreeWidget*>("treeWidget"); }
    static QTableView* table(MainWindow& w) { return w.findChild<QTableView*>("tableView"); }

    // The worked example with its three tags, group row selected.
    static CItem* openExample(MainWindow& w, ModalWatcher& watcher)
    {
        watcher.answerFile(QString(VELMORA_TEST_DATA) + "/worked_example.cfg");
        w.on_open_action_triggered();
        QTreeWidgetItem* groupRow = tree(w)->topLevelItem(0)->child(0)->child(0)->child(0);
        tree(w)->setCurrentItem(groupRow);
        return MainWindowProbe::groups(w).at("Channel_0.Device_0.Group_0");
    }

    static void selectRows(MainWindow& w, const QList<int>& rows)
    {
        QItemSelectionModel* selection = table(w)->selectionModel();
        selection->clearSelection();
        for (int row : rows)
            selection->select(MainWindowProbe::tagModel(w)->index(row, 0),
                              QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }

    static QStringList childNames(CItem* group)
    {
        QStringList names;
        for (auto& entry : *group)
            names << QString::fromStdString(entry.second->GetName());
        return names;
    }

    static CDATagInfo* tagOf(CItem* group, const char* name)
    {
        return static_cast<CDATagInfo*>(group->FindChildByName(name));
    }

private slots:
    void registerTypeDecidesWhatIsOpen()
    {
        auto* tag = new CDATagInfo;
        TagSetupDialog dialog(tag, false, nullptr);
        dialog.Init();
        QCOMPARE(dialog.windowTitle(), QString("Настройка тега "));
        QCOMPARE(child<QDialogButtonBox>(&dialog, "buttonBox")->button(QDialogButtonBox::Cancel)->text(),
                 QString("Отмена"));
        QCOMPARE(combo(&dialog, "valTypeBox")->count(), 23);
        QCOMPARE(combo(&dialog, "valTypeBox")->itemText(15), QString("Бит8"));
        QVERIFY(!child<QSpinBox>(&dialog, "spinBox_5")->isHidden());

        struct Row
        {
            bool values, write;
            const char* read;
            const char* writeSingle;
            const char* writeGroup;
        };
        const Row rows[] = {
            {false, false, "Чтение (функция 2)", "Запись (-)", "Запись (-)"},
            {false, true, "Чтение (функция 1)", "Запись (функция 5)", "Запись (функция 15)"},
            {true, false, "Чтение (функция 4)", "Запись (-)", "Запись (-)"},
            {true, true, "Чтение (функция 3)", "Запись (функция 6)", "Запись (функция 16)"},
        };
        auto* write = combo(&dialog, "writeBox");
        auto* writeGroup = combo(&dialog, "writeGroupBox");
        auto* writeLabel = child<QLabel>(&dialog, "writelabel");
        for (int type = 3; type >= 0; --type) {
            const Row& r = rows[type];
            combo(&dialog, "regTypeBox")->setCurrentIndex(type);
            QCOMPARE(combo(&dialog, "valTypeBox")->isEnabled(), r.values);
            QCOMPARE(combo(&dialog, "byteOrderBox")->isEnabled(), r.values);
            QVERIFY(combo(&dialog, "readBox")->isEnabled());
            QCOMPARE(child<QLabel>(&dialog, "readlabel")->text(), QString(r.read));
            QCOMPARE(write->isEnabled(), r.write);
            QVERIFY(!child<QSpinBox>(&dialog, "segmentPosBox")->isEnabled());

            writeGroup->setCurrentIndex(0);
            QCOMPARE(writeLabel->text(), QString(r.writeSingle));
            writeGroup->setCurrentIndex(1);
            QCOMPARE(writeLabel->text(), QString(r.writeGroup));
            write->setCurrentIndex(0);
            QVERIFY(!writeGroup->isEnabled());
            write->setCurrentIndex(1);
            QCOMPARE(writeGroup->isEnabled(), r.write);
        }

        // An input keeps an earlier "Да" in writeBox, closed but stored.
        combo(&dialog, "regTypeBox")->setCurrentIndex(2);
        Received got;
        listen(dialog, got);
        dialog.accept();
        QVERIFY(tag->bWrite);
        QCOMPARE(got.info.value(6), QString("1"));

        CDATagInfo* editTag = tag;
        TagSetupDialog edit(editTag, true, nullptr);
        edit.Init();
        QVERIFY(child<QSpinBox>(&edit, "spinBox_5")->isHidden());
        QVERIFY(child<QLabel>(&edit, "label_23")->isHidden());
        delete tag;
    }

    void acceptWritesTheTagAndTheList()
    {
        auto* tag = new CDATagInfo;
        tag->SetName("Tag_5");
        tag->RegType = MRT_HoldingRegister;
        tag->ByteOrder = 3;
        TagSetupDialog dialog(tag, false, nullptr);
        dialog.Init();
        auto* valType = combo(&dialog, "valTypeBox");
        auto* byteOrder = combo(&dialog, "byteOrderBox");
        QCOMPARE(byteOrder->currentText(), QString("DC BA"));
        QCOMPARE(child<QStackedWidget>(&dialog, "transformWidget")->currentIndex(), 0);

        // A list without the stored order falls on the swapped bytes.
        valType->setCurrentIndex(MVT_UInt16);
        QCOMPARE(byteOrder->count(), 2);
        QCOMPARE(byteOrder->currentText(), QString("BA"));
        valType->setCurrentIndex(MVT_Real64);
        QCOMPARE(byteOrder->currentText(), QString("HG FE DC BA"));

        auto* segment = child<QSpinBox>(&dialog, "regsInSegmentBox");
        auto* position = child<QSpinBox>(&dialog, "segmentPosBox");
        QCOMPARE(segment->maximum(), 125);
        segment->setValue(5);
        QVERIFY(position->isEnabled());
        QCOMPARE(position->maximum(), 3);
        position->setValue(3);
        segment->setValue(2);
        QVERIFY(!position->isEnabled());
        QCOMPARE(position->value(), 0);

        // "Бит8" sits where the type table has "Бит7": a bit stores no byte order.
        valType->setCurrentText("Бит8");
        QVERIFY(!byteOrder->isEnabled());
        QCOMPARE(byteOrder->count(), 0);

        child<QLineEdit>(&dialog, "nameEdit")->clear();
        child<QSpinBox>(&dialog, "addrBox")->setValue(40001);
        child<QSpinBox>(&dialog, "spinBox_5")->setValue(250000);
        combo(&dialog, "transformTypeBox")->setCurrentIndex(TT_LineScale);
        QCOMPARE(child<QStackedWidget>(&dialog, "transformWidget")->currentIndex(), 1);
        child<QLineEdit>(&dialog, "srcMinEdit")->setText("-12.5");
        child<QLineEdit>(&dialog, "srcMaxEdit")->setText("много");
        child<QLineEdit>(&dialog, "dstMaxEdit")->setText("1e3");
        combo(&dialog, "emulTypeBox")->setCurrentIndex(ET_Sin);
        QCOMPARE(child<QStackedWidget>(&dialog, "emulWidget")->currentIndex(), 2);
        child<QDoubleSpinBox>(&dialog, "periodBox")->setValue(2.7);

        Received got;
        listen(dialog, got);
        dialog.accept();

        QCOMPARE(got.count, 250000);
        QVERIFY(got.flag);
        const QList<QString> expected{
            "Tag_5", "3", "40001", "15", QString(QChar(0xFF)), "1", "1", "1", "2", "0", "1", "1", "2", "2"};
        QCOMPARE(got.info, expected);
        QCOMPARE(tag->GetName(), std::string("Tag_5"));
        QCOMPARE(int(tag->ValType), 15);
        QCOMPARE(int(tag->ByteOrder), 255);
        QCOMPARE(tag->Addr, uint16_t(40001));
        auto* scale = dynamic_cast<CTransform_LineScaleData*>(tag->Transform);
        QVERIFY(scale);
        QCOMPARE(scale->SrcMin, -12.5f);
        QCOMPARE(scale->SrcMax, 0.0f);
        QCOMPARE(scale->DstMax, 1000.0f);
        auto* sine = dynamic_cast<CEmulData_Sin*>(tag->Emul);
        QVERIFY(sine);
        QCOMPARE(sine->Period, 2u);

        // Opened again, the form shows the records in six digits and the
        // segment position may go up to the segment size itself.
        scale->SrcMin = 1234567.0f;
        tag->RegsInSegment = 10;
        tag->SegmentPos = 4;
        CDATagInfo* again = tag;
        TagSetupDialog reopened(again, true, nullptr);
        reopened.Init();
        QCOMPARE(child<QLineEdit>(&reopened, "srcMinEdit")->text(), QString("1.23457e+06"));
        QCOMPARE(child<QLineEdit>(&reopened, "dstMaxEdit")->text(), QString("1000"));
        QCOMPARE(child<QDoubleSpinBox>(&reopened, "periodBox")->value(), 2.0);
        QCOMPARE(child<QSpinBox>(&reopened, "segmentPosBox")->maximum(), 10);
        QCOMPARE(child<QSpinBox>(&reopened, "segmentPosBox")->value(), 4);
        delete tag;
    }

    void seriesOfTagsFromOneDialog()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        CItem* group = openExample(w, watcher);
        QSignalSpy inserted(MainWindowProbe::tagModel(w), &QAbstractItemModel::rowsInserted);

        // A cancelled add leaves nothing but the two leading list entries.
        watcher.answer([](QWidget* d) { qobject_cast<QDialog*>(d)->reject(); });
        w.on_add_tag_action_triggered();
        QCOMPARE(group->size(), 3u);
        QCOMPARE(MainWindowProbe::infoTag(w), (QList<QString>{"Channel_0.Device_0.Group_0", "4"}));
        MainWindowProbe::infoTag(w).clear();

        watcher.answer([](QWidget* d) {
            QCOMPARE(child<QLineEdit>(d, "nameEdit")->text(), QString("Tag_3"));
            combo(d, "regTypeBox")->setCurrentIndex(MRT_HoldingRegister);
            child<QSpinBox>(d, "addrBox")->setValue(100);
            combo(d, "valTypeBox")->setCurrentText("Бит0");
            child<QSpinBox>(d, "spinBox_5")->setValue(100);
            qobject_cast<QDialog*>(d)->accept();
        });
        w.on_add_tag_action_triggered();
        QCOMPARE(watcher.unexpectedCount(), 0);
        QCOMPARE(watcher.pending(), 0);
        QVERIFY(!QApplication::activeModalWidget());

        QCOMPARE(group->size(), 103u);
        QCOMPARE(MainWindowProbe::tagCount(w), 100);
        QVERIFY(MainWindowProbe::infoTag(w).isEmpty());
        QVERIFY(MainWindowProbe::dirty(w));
        QCOMPARE(w.findChild<QTabWidget*>("tabWidget")->currentIndex(), 1);
        QCOMPARE(MainWindowProbe::tagModel(w)->rowCount(), 103);
        QCOMPARE(inserted.count(), 1);
        QCOMPARE(inserted.first().at(1).toInt(), 1);
        QCOMPARE(inserted.first().at(2).toInt(), 100);

        // Sixteen bits to a register, then the next register.
        for (int i = 0; i < 100; ++i) {
            const std::string name = "Tag_" + std::to_string(3 + i);
            CDATagInfo* tag = tagOf(group, name.c_str());
            QVERIFY2(tag, name.c_str());
            QCOMPARE(int(tag->RegType), int(MRT_HoldingRegister));
            QCOMPARE(int(tag->Addr), 100 + i / 16);
            QCOMPARE(int(tag->ValType), int(MVT_Bit0) + i % 16);
        }
        QCOMPARE(QString::fromStdWString(g_wszModbusValType[tagOf(group, "Tag_18")->ValType]),
                 QString("Бит15"));

        // An edit takes no count: the series length stays for the next add.
        selectRows(w, {0});
        watcher.answer([](QWidget* d) { qobject_cast<QDialog*>(d)->accept(); });
        w.tag_edit_action_triggered();
        QCOMPARE(MainWindowProbe::tagCount(w), 100);
    }

    void sortedTableEditsByNameButDeletesByPosition()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        CItem* group = openExample(w, watcher);
        TableModelVariable* model = MainWindowProbe::tagModel(w);

        model->sort(0, Qt::DescendingOrder);
        QCOMPARE(model->index(0, 0).data().toString(), QString("Tag_2"));
        selectRows(w, {0});
        QString shown;
        watcher.answer([&shown](QWidget* d) {
            shown = child<QLineEdit>(d, "nameEdit")->text();
            child<QLineEdit>(d, "nameEdit")->setText("A_renamed");
            qobject_cast<QDialog*>(d)->accept();
        });
        w.tag_edit_action_triggered();
        QCOMPARE(shown, QString("Tag_2"));
        QVERIFY(!group->FindChildByName("Tag_2"));
        QVERIFY(group->FindChildByName("A_renamed"));
        QCOMPARE(childNames(group), (QStringList{"A_renamed", "Tag_0", "Tag_1"}));
        QVERIFY(MainWindowProbe::infoTag(w).isEmpty());

        // Row 0 of the sorted table shows Tag_1; copy and delete reach the
        // first child, A_renamed.
        model->sort(0, Qt::DescendingOrder);
        QCOMPARE(model->index(0, 0).data().toString(), QString("Tag_1"));
        selectRows(w, {0});
        w.tag_copy_action_triggered();
        QCOMPARE(MainWindowProbe::clipboard(w).size(), size_t(1));
        QCOMPARE(MainWindowProbe::clipboard(w).front()->GetName(), std::string("A_renamed"));

        model->sort(0, Qt::DescendingOrder);
        selectRows(w, {0});
        watcher.answer(QMessageBox::Yes);
        w.tag_delete_action_triggered();
        QCOMPARE(childNames(group), (QStringList{"Tag_0", "Tag_1"}));
        // The copied tag is gone with it; a paste has nothing to clone.
        QVERIFY(MainWindowProbe::clipboard(w).empty());
        QCOMPARE(watcher.seen().last().title, QString("Удаление"));
    }

    void deleteNotifiesRowsAndMovesFocus()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&w));
        CItem* group = openExample(w, watcher);
        for (int i = 3; i < 10; ++i) {
            auto* tag = new CDATagInfo;
            tag->SetName("Tag_" + std::to_string(i));
            tag->Addr = uint16_t(100 + i);
            group->AppendChild(tag);
        }
        w.on_treeWidget_itemSelectionChanged();
        QSignalSpy removed(MainWindowProbe::tagModel(w), &QAbstractItemModel::rowsRemoved);
        QSignalSpy removedLive(MainWindowProbe::monitoringModel(w), &QAbstractItemModel::rowsRemoved);
        auto ranges = [](QSignalSpy& spy) {
            QList<QPair<int, int>> out;
            for (const QList<QVariant>& call : spy)
                out << qMakePair(call.at(1).toInt(), call.at(2).toInt());
            spy.clear();
            return out;
        };

        // Gaps go one row at a time from the back; a run goes in one call.
        selectRows(w, {3, 5, 7});
        watcher.answer(QMessageBox::Yes);
        w.tag_delete_action_triggered();
        QCOMPARE(childNames(group),
                 (QStringList{"Tag_0", "Tag_1", "Tag_2", "Tag_4", "Tag_6", "Tag_8", "Tag_9"}));
        const QList<QPair<int, int>> oneByOne{{7, 7}, {5, 5}, {3, 3}};
        QCOMPARE(ranges(removed), oneByOne);
        QCOMPARE(ranges(removedLive), oneByOne);

        selectRows(w, {3, 4, 5});
        watcher.answer(QMessageBox::Yes);
        w.tag_delete_action_triggered();
        QCOMPARE(childNames(group), (QStringList{"Tag_0", "Tag_1", "Tag_2", "Tag_9"}));
        QCOMPARE(ranges(removed), (QList<QPair<int, int>>{{3, 5}}));

        // "Нет" keeps everything.
        selectRows(w, {0});
        watcher.answer(QMessageBox::No);
        w.tag_delete_action_triggered();
        QCOMPARE(group->size(), 4u);

        w.findChild<QTabWidget*>("tabWidget")->setCurrentIndex(1);
        w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&w));
        table(w)->setFocus();
        QTRY_VERIFY(table(w)->hasFocus());
        selectRows(w, {0, 1, 2, 3});
        watcher.answer(QMessageBox::Yes);
        w.tag_delete_action_triggered();
        QVERIFY(group->empty());
        QCOMPARE(MainWindowProbe::tagModel(w)->rowCount(), 0);
        // The box has left the window inactive; its focus child is what counts.
        QCOMPARE(w.focusWidget(), tree(w));
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    void pasteRepeatsWithTheNextAddress()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        CItem* group = openExample(w, watcher);
        QSignalSpy inserted(MainWindowProbe::tagModel(w), &QAbstractItemModel::rowsInserted);

        // Three rows copied give one tag: the first.
        selectRows(w, {0, 1, 2});
        w.tag_copy_action_triggered();
        QCOMPARE(MainWindowProbe::clipboard(w).size(), size_t(1));

        w.tag_paste_action_triggered();
        w.tag_paste_action_triggered();
        QCOMPARE(group->size(), 5u);
        CDATagInfo* first = tagOf(group, "Tag_3");
        CDATagInfo* second = tagOf(group, "Tag_4");
        QVERIFY(first && second);
        // Tag_0 reads input register 1; the copies move on to 2 and 3.
        QCOMPARE(int(first->Addr), 2);
        QCOMPARE(int(second->Addr), 3);
        QCOMPARE(int(second->RegType), int(MRT_InputRegister));
        QCOMPARE(inserted.count(), 2);
        QCOMPARE(MainWindowProbe::tagModel(w)->rowCount(), 5);
        // The pending list isn't cleared by a paste: each one appends.
        QCOMPARE(MainWindowProbe::infoTag(w), (QList<QString>{"Channel_0.Device_0.Group_0.Tag_3", "4",
                                                              "Channel_0.Device_0.Group_0.Tag_4", "4"}));
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    // A client that is not connected refuses every call, as a server that
    // answers with an error would.
    void refusingServer()
    {
        ModalWatcher watcher;
        OPCUAWrapper client; // outlives the window, which still points at it
        MainWindow w;
        w.show();
        CItem* group = openExample(w, watcher);
        MainWindowProbe::connected(w) = true;
        MainWindowProbe::client(w) = &client;
        QSignalSpy removed(MainWindowProbe::tagModel(w), &QAbstractItemModel::rowsRemoved);

        // The worker stops at the refused exchange stop: its box comes up on
        // the GUI thread and the busy dialog stays; only the test ends it here.
        watcher.answer([](QWidget* d) {
            child<QSpinBox>(d, "spinBox_5")->setValue(5);
            qobject_cast<QDialog*>(d)->accept();
        });
        watcher.answer([&w](QWidget* box) {
            ModalWatcher::pressButton(box, QMessageBox::Ok);
            QTimer::singleShot(50, &w, [&w] { emit w.signalCloseProgressBar(0); });
        });
        w.on_add_tag_action_triggered();
        QCOMPARE(watcher.seen().last().text, QString("Изменения канала завершилось неудачно"));
        QVERIFY(client.exchangeRunning);
        QCOMPARE(group->size(), 4u);
        QCOMPARE(MainWindowProbe::infoTag(w).size(), 16);
        MainWindowProbe::infoTag(w).clear();

        // A refused edit keeps what the dialog wrote under the old key.
        selectRows(w, {0});
        watcher.answer([](QWidget* d) {
            child<QLineEdit>(d, "nameEdit")->setText("Renamed");
            qobject_cast<QDialog*>(d)->accept();
        });
        watcher.answer(QMessageBox::Ok);
        w.tag_edit_action_triggered();
        QCOMPARE(watcher.seen().last().text, QString("Изменение тега завершилось неудачно"));
        QVERIFY(MainWindowProbe::infoTag(w).isEmpty());
        QVERIFY(!group->FindChildByName("Renamed"));
        QCOMPARE(group->begin()->second->GetName(), std::string("Renamed"));

        selectRows(w, {1, 2});
        watcher.answer(QMessageBox::Yes);
        watcher.answer(QMessageBox::Ok);
        w.tag_delete_action_triggered();
        QCOMPARE(watcher.seen().last().text, QString("Удаление ноды завершилось неудачно"));
        QCOMPARE(group->size(), 4u);
        QCOMPARE(removed.count(), 0);

        selectRows(w, {1});
        w.tag_copy_action_triggered();
        watcher.answer(QMessageBox::Ok);
        w.tag_paste_action_triggered();
        QCOMPARE(watcher.seen().last().text,
                 QString("Добавление тега завершилось неудачно, на сервере произошла ошибка"));
        QCOMPARE(group->size(), 4u);
        QVERIFY(MainWindowProbe::infoTag(w).isEmpty());

        QCOMPARE(watcher.unexpectedCount(), 0);
        MainWindowProbe::client(w) = nullptr;
        MainWindowProbe::connected(w) = false;
    }

    void holdingRegisterFormFitsItsTexts()
    {
        auto* tag = new CDATagInfo;
        tag->RegType = MRT_HoldingRegister;
        tag->Addr = 40;
        tag->TransformType = TT_LineScale;
        tag->Transform = CDATagInfo::New_Transform(TT_LineScale, nullptr);
        TagSetupDialog dialog(tag, false, nullptr);
        dialog.Init();
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));

        // No caption or field is cut short of what it needs.
        for (QWidget* widget : dialog.findChildren<QWidget*>()) {
            if (!widget->isVisible() || widget->inherits("QStackedWidget") ||
                widget->inherits("QDialogButtonBox"))
                continue;
            if (qobject_cast<QLabel*>(widget) || qobject_cast<QComboBox*>(widget) ||
                qobject_cast<QAbstractSpinBox*>(widget))
                QVERIFY2(widget->width() >= widget->minimumSizeHint().width(),
                         qPrintable(widget->objectName()));
        }
        const QString path = QCoreApplication::applicationDirPath() + "/tag-dialog.png";
        QVERIFY(dialog.grab().save(path));
        delete tag;
    }
};

QTEST_MAIN(TagsTest)
#include "tst_tags.moc"
