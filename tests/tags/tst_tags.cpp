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

ModalWatcher::Handler press(QMessageBox::StandardButton button)
{
    return [button](QWidget* box) { ModalWatcher::pressButton(box, button); };
}

// Accepts the dialog after `edit` has changed it.
ModalWatcher::Handler accepting(std::function<void(QWidget*)> edit = [](QWidget*) {})
{
    return [edit](QWidget* d) {
        edit(d);
        qobject_cast<QDialog*>(d)->accept();
    };
}

QStringList childNames(CItem* group)
{
    QStringList names;
    for (auto& entry : *group)
        names << QString::fromStdString(entry.second->GetName());
    return names;
}

// The main window with the worked example and its three tags open, group row selected.
struct Session
{
    ModalWatcher watcher;
    MainWindow w;
    CItem* group;
    TableModelVariable* model;

    Session()
    {
        w.show();
        watcher.answerFile(QString(VELMORA_TEST_DATA) + "/worked_example.cfg");
        w.on_open_action_triggered();
        tree()->setCurrentItem(tree()->topLevelItem(0)->child(0)->child(0)->child(0));
        group = MainWindowProbe::groups(w).at("Channel_0.Device_0.Group_0");
        model = MainWindowProbe::tagModel(w);
    }
    QTreeWidget* tree() { return w.findChild<QTreeWidget*>("treeWidget"); }
    QTableView* table() { return w.findChild<QTableView*>("tableView"); }
    CDATagInfo* tag(const std::string& name)
    {
        return static_cast<CDATagInfo*>(group->FindChildByName(name.c_str()));
    }
    // Selects `rows` (unless none), queues `answers` for what comes up, runs `action`.
    void run(const QList<int>& rows, void (MainWindow::*action)(),
             std::initializer_list<ModalWatcher::Handler> answers)
    {
        QItemSelectionModel* selection = table()->selectionModel();
        if (!rows.isEmpty())
            selection->clearSelection();
        for (int row : rows)
            selection->select(model->index(row, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
        for (const auto& answer : answers)
            watcher.answer(answer);
        (w.*action)();
    }
};

} // namespace

class TagsTest : public QObject
{
    Q_OBJECT

private slots:
    void registerTypeDecidesWhatIsOpen()
    {
        auto* tag = new CDATagInfo;
        TagSetupDialog dialog(tag, false, nullptr);
        dialog.Init();

        // Value type and byte order only for registers, writing only for coils
        // and holding registers, the group write only with writing on.
        auto* write = combo(&dialog, "writeBox");
        auto* writeGroup = combo(&dialog, "writeGroupBox");
        for (int type = 3; type >= 0; --type) {
            combo(&dialog, "regTypeBox")->setCurrentIndex(type);
            const bool values = type >= 2, writable = type % 2;
            QCOMPARE(combo(&dialog, "valTypeBox")->isEnabled(), values);
            QCOMPARE(combo(&dialog, "byteOrderBox")->isEnabled(), values);
            QCOMPARE(write->isEnabled(), writable);
            write->setCurrentIndex(0);
            QVERIFY(!writeGroup->isEnabled());
            write->setCurrentIndex(1);
            QCOMPARE(writeGroup->isEnabled(), writable);
        }
        // The function in the coils' write caption follows the group write.
        combo(&dialog, "regTypeBox")->setCurrentIndex(1);
        auto* writeLabel = requireChild<QLabel>(&dialog, "writelabel");
        writeGroup->setCurrentIndex(0);
        QCOMPARE(writeLabel->text(), QString("Запись (функция 5)"));
        writeGroup->setCurrentIndex(1);
        QCOMPARE(writeLabel->text(), QString("Запись (функция 15)"));

        // An input keeps an earlier "Да" in writeBox, closed but stored.
        combo(&dialog, "regTypeBox")->setCurrentIndex(2);
        dialog.accept();
        QVERIFY(tag->bWrite);
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
        // A list without the stored order falls on the swapped bytes.
        valType->setCurrentIndex(MVT_UInt16);
        QCOMPARE(byteOrder->currentText(), QString("BA"));

        // The position within a segment is open only for segments above two.
        auto* segment = requireChild<QSpinBox>(&dialog, "regsInSegmentBox");
        auto* position = requireChild<QSpinBox>(&dialog, "segmentPosBox");
        segment->setValue(5);
        QCOMPARE(position->maximum(), 3);
        position->setValue(3);
        segment->setValue(2);
        QVERIFY(!position->isEnabled());
        QCOMPARE(position->value(), 0);

        // "Бит8" sits where the type table has "Бит7": a bit stores no byte order.
        valType->setCurrentText("Бит8");
        QVERIFY(!byteOrder->isEnabled());
        requireChild<QLineEdit>(&dialog, "nameEdit")->clear();
        requireChild<QSpinBox>(&dialog, "addrBox")->setValue(40001);
        requireChild<QSpinBox>(&dialog, "spinBox_5")->setValue(250000);
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

        QList<QString> info;
        int count = -1;
        bool save = false;
        connect(&dialog, &TagSetupDialog::signalInfoTag,
                [&](QList<QString> l, bool f) { info = l, save = f; });
        connect(&dialog, &TagSetupDialog::signalInfoCountTag, [&](int n) { count = n; });
        dialog.accept();
        QVERIFY(save && count == 250000);
        QCOMPARE(info, (QList<QString>{"Tag_5", "3", "40001", "15", QString(QChar(0xFF)), "1", "1", "1", "2",
                                       "0", "1", "1", "2", "2"}));
        auto* scale = dynamic_cast<CTransform_LineScaleData*>(tag->Transform);
        QVERIFY(scale && scale->SrcMin == -12.5f && scale->SrcMax == 0.0f && scale->DstMax == 1000.0f);
        auto* sine = dynamic_cast<CEmulData_Sin*>(tag->Emul);
        QVERIFY(sine && sine->Period == 2u);

        // Opened again for an edit, the form has no count of tags to add, shows
        // the records in six digits and lets the segment position go up to the
        // segment size itself.
        scale->SrcMin = 1234567.0f;
        tag->RegsInSegment = 10;
        tag->SegmentPos = 4;
        TagSetupDialog reopened(tag, true, nullptr);
        reopened.Init();
        QVERIFY(requireChild<QSpinBox>(&reopened, "spinBox_5")->isHidden());
        QCOMPARE(requireChild<QLineEdit>(&reopened, "srcMinEdit")->text(), QString("1.23457e+06"));
        QCOMPARE(requireChild<QSpinBox>(&reopened, "segmentPosBox")->maximum(), 10);
        QCOMPARE(requireChild<QSpinBox>(&reopened, "segmentPosBox")->value(), 4);
        delete tag;
    }

    void pasteAndSeriesOfTags()
    {
        Session s;
        // Three rows copied give one tag, the first, and a paste can be repeated:
        // Tag_0 reads input register 1, the copies move on to 2 and 3.
        s.run({0, 1, 2}, &MainWindow::tag_copy_action_triggered, {});
        s.w.tag_paste_action_triggered();
        s.w.tag_paste_action_triggered();
        QCOMPARE(childNames(s.group), (QStringList{"Tag_0", "Tag_1", "Tag_2", "Tag_3", "Tag_4"}));
        QCOMPARE(int(s.tag("Tag_3")->Addr), 2);
        QCOMPARE(int(s.tag("Tag_4")->Addr), 3);
        QCOMPARE(s.model->rowCount(), 5);
        // The pending list isn't cleared by a paste: each one appends.
        QCOMPARE(MainWindowProbe::infoTag(s.w), (QList<QString>{"Channel_0.Device_0.Group_0.Tag_3", "4",
                                                                "Channel_0.Device_0.Group_0.Tag_4", "4"}));
        MainWindowProbe::infoTag(s.w).clear();

        // A cancelled add leaves nothing but the two leading list entries.
        QSignalSpy inserted(s.model, &QAbstractItemModel::rowsInserted);
        s.run({}, &MainWindow::on_add_tag_action_triggered,
              {[](QWidget* d) { qobject_cast<QDialog*>(d)->reject(); }});
        QCOMPARE(s.group->size(), 5u);
        QCOMPARE(MainWindowProbe::infoTag(s.w), (QList<QString>{"Channel_0.Device_0.Group_0", "4"}));
        MainWindowProbe::infoTag(s.w).clear();

        s.run({}, &MainWindow::on_add_tag_action_triggered, {accepting([](QWidget* d) {
                  QCOMPARE(requireChild<QLineEdit>(d, "nameEdit")->text(), QString("Tag_5"));
                  combo(d, "regTypeBox")->setCurrentIndex(MRT_HoldingRegister);
                  requireChild<QSpinBox>(d, "addrBox")->setValue(100);
                  combo(d, "valTypeBox")->setCurrentText("Бит0");
                  requireChild<QSpinBox>(d, "spinBox_5")->setValue(100);
              })});
        QVERIFY(!QApplication::activeModalWidget());
        QCOMPARE(s.group->size(), 105u);
        QVERIFY(MainWindowProbe::dirty(s.w));
        QCOMPARE(inserted.count(), 1); // always from row 1, in one go
        QCOMPARE(inserted.first().mid(1), (QList<QVariant>{1, 100}));

        // Sixteen bits to a register, Бит0 to Бит15, then the next register.
        for (int i = 0; i < 100; ++i) {
            const CDATagInfo* tag = s.tag("Tag_" + std::to_string(5 + i));
            QVERIFY2(tag && tag->RegType == MRT_HoldingRegister, qPrintable(QString::number(i)));
            QCOMPARE(int(tag->Addr), 100 + i / 16);
            QCOMPARE(QString::fromStdWString(g_wszModbusValType[tag->ValType]), QString("Бит%1").arg(i % 16));
        }

        // An edit takes no count: the series length stays for the next add.
        s.run({0}, &MainWindow::tag_edit_action_triggered, {accepting()});
        QCOMPARE(MainWindowProbe::tagCount(s.w), 100);
        QCOMPARE(s.watcher.unexpectedCount(), 0);
    }

    void sortedTableEditsByNameButDeletesByPosition()
    {
        Session s;
        s.model->sort(0, Qt::DescendingOrder);
        QString shown;
        s.run({0}, &MainWindow::tag_edit_action_triggered, {accepting([&shown](QWidget* d) {
                  shown = requireChild<QLineEdit>(d, "nameEdit")->text();
                  requireChild<QLineEdit>(d, "nameEdit")->setText("A_renamed");
              })});
        QCOMPARE(shown, QString("Tag_2"));
        QCOMPARE(childNames(s.group), (QStringList{"A_renamed", "Tag_0", "Tag_1"}));

        // Row 0 of the sorted table shows Tag_1; copy and delete reach the
        // first child, A_renamed.
        s.model->sort(0, Qt::DescendingOrder);
        s.run({0}, &MainWindow::tag_copy_action_triggered, {});
        QCOMPARE(MainWindowProbe::clipboard(s.w).front()->GetName(), std::string("A_renamed"));
        s.model->sort(0, Qt::DescendingOrder);
        s.run({0}, &MainWindow::tag_delete_action_triggered, {press(QMessageBox::Yes)});
        QCOMPARE(s.watcher.seen().last().title, QString("Удаление"));
        QCOMPARE(childNames(s.group), (QStringList{"Tag_0", "Tag_1"}));
        // The copied tag is gone with it; a paste has nothing to clone.
        QVERIFY(MainWindowProbe::clipboard(s.w).empty());
    }

    void deleteNotifiesRowsAndMovesFocus()
    {
        Session s;
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
        const auto remove = [&s](const QList<int>& rows, QMessageBox::StandardButton answer) {
            s.run(rows, &MainWindow::tag_delete_action_triggered, {press(answer)});
        };

        // Gaps go one row at a time from the back, in both tables; a run goes in one call.
        remove({3, 5, 7}, QMessageBox::Yes);
        QCOMPARE(childNames(s.group),
                 (QStringList{"Tag_0", "Tag_1", "Tag_2", "Tag_4", "Tag_6", "Tag_8", "Tag_9"}));
        const QList<QPair<int, int>> oneByOne{{7, 7}, {5, 5}, {3, 3}};
        QCOMPARE(ranges(removed), oneByOne);
        QCOMPARE(ranges(removedLive), oneByOne);
        remove({3, 4, 5}, QMessageBox::Yes);
        QCOMPARE(childNames(s.group), (QStringList{"Tag_0", "Tag_1", "Tag_2", "Tag_9"}));
        QCOMPARE(ranges(removed), (QList<QPair<int, int>>{{3, 5}}));
        remove({0}, QMessageBox::No); // "Нет" keeps everything
        QCOMPARE(s.group->size(), 4u);

        // With the last tag gone the focus moves to the tree. The box has left
        // the window inactive; its focus child is what counts.
        requireChild<QTabWidget>(&s.w, "tabWidget")->setCurrentIndex(1);
        s.w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&s.w));
        s.table()->setFocus();
        QTRY_VERIFY(s.table()->hasFocus());
        remove({0, 1, 2, 3}, QMessageBox::Yes);
        QCOMPARE(s.model->rowCount(), 0);
        QCOMPARE(s.w.focusWidget(), s.tree());
        QCOMPARE(s.watcher.unexpectedCount(), 0);
    }

    // A client that is not connected refuses every call, as a server that
    // answers with an error would.
    void refusingServer()
    {
        OPCUAWrapper client; // outlives the window, which still points at it
        Session s;
        MainWindowProbe::connected(s.w) = true;
        MainWindowProbe::client(s.w) = &client;

        // The worker stops at the refused exchange stop: its box comes up on
        // the GUI thread and the busy dialog stays; only the test ends it here.
        s.watcher.answer(accepting([](QWidget* d) { requireChild<QSpinBox>(d, "spinBox_5")->setValue(5); }));
        s.watcher.answer([&s](QWidget* box) {
            ModalWatcher::pressButton(box, QMessageBox::Ok);
            QTimer::singleShot(50, &s.w, [&s] { emit s.w.signalCloseProgressBar(0); });
        });
        s.w.on_add_tag_action_triggered();
        QCOMPARE(s.watcher.seen().last().text, QString("Изменения канала завершилось неудачно"));
        QVERIFY(client.exchangeRunning);
        QCOMPARE(s.group->size(), 4u);

        // A refused edit keeps what the dialog wrote under the old key.
        s.run({0}, &MainWindow::tag_edit_action_triggered,
              {accepting([](QWidget* d) { requireChild<QLineEdit>(d, "nameEdit")->setText("Renamed"); }),
               press(QMessageBox::Ok)});
        QCOMPARE(s.watcher.seen().last().text, QString("Изменение тега завершилось неудачно"));
        QVERIFY(!s.group->FindChildByName("Renamed"));
        QCOMPARE(s.group->begin()->second->GetName(), std::string("Renamed"));

        s.run({1, 2}, &MainWindow::tag_delete_action_triggered,
              {press(QMessageBox::Yes), press(QMessageBox::Ok)});
        QCOMPARE(s.watcher.seen().last().text, QString("Удаление ноды завершилось неудачно"));
        QCOMPARE(s.group->size(), 4u);

        s.run({1}, &MainWindow::tag_copy_action_triggered, {});
        s.run({}, &MainWindow::tag_paste_action_triggered, {press(QMessageBox::Ok)});
        QCOMPARE(s.watcher.seen().last().text,
                 QString("Добавление тега завершилось неудачно, на сервере произошла ошибка"));
        QCOMPARE(s.group->size(), 4u);
        QCOMPARE(s.watcher.unexpectedCount(), 0);
        MainWindowProbe::client(s.w) = nullptr;
        MainWindowProbe::connected(s.w) = false;
    }
};

QTEST_MAIN(TagsTest)
#include "tst_tags.moc"
