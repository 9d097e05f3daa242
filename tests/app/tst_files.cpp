#include "app/mainwindow.h"
#include "config/scrambler.h"
#include "dialogs/tagsetupdialog.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/session.h"
#include "tests/common/testfiles.h"
#include "views/tablemodelvariable.h"

#include <QtTest>
#include <QtWidgets>

namespace {

const QString kPlant = QString(VELMORA_EXAMPLES) + "/plant.cfg";

QString example(const char* name)
{
    return QString(VELMORA_TEST_DATA) + "/" + name;
}

// The informative text of the next question box, answered with No.
ModalWatcher::Handler recordQuestion(QString& into)
{
    return [&into](QWidget* box) {
        into = qobject_cast<QMessageBox*>(box)->informativeText();
        ModalWatcher::pressButton(box, QMessageBox::No);
    };
}

} // namespace

// The file commands driven through the real file dialogs and busy dialog, and
// the window's tables and keys on the plant example.
class FileCommandsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    static QTreeWidget* tree(MainWindow& w) { return requireChild<QTreeWidget>(&w, "treeWidget"); }

    static QString rootProperty(MainWindow& w, int row)
    {
        tree(w)->topLevelItem(0)->setSelected(false);
        tree(w)->topLevelItem(0)->setSelected(true);
        QTableWidgetItem* cell = requireChild<QTableWidget>(&w, "tableWidget")->item(row, 1);
        return cell ? cell->text() : QString();
    }

private slots:
    void tablesAndKeysOfTheMaximisedWindow()
    {
        Session s(kPlant);
        auto* tags = requireChild<QTableView>(&s.w, "tableView");
        auto* values = requireChild<QTableView>(&s.w, "tableView_2");
        requireChild<QTabWidget>(&s.w, "tabWidget")->setCurrentIndex(1);
        // Another group's tags start at their names, however far the last ones were scrolled.
        s.select(MainWindowProbe::groups(s.w).begin()->second);
        tags->horizontalScrollBar()->setValue(tags->horizontalScrollBar()->maximum());
        QVERIFY(tags->horizontalScrollBar()->value() > 0);
        s.select(MainWindowProbe::groups(s.w).rbegin()->second);
        QCOMPARE(tags->horizontalScrollBar()->value(), 0);
        s.w.showMaximized();
        for (const auto& [name, group] : MainWindowProbe::groups(s.w)) {
            s.select(group);
            QVERIFY(tags->model()->rowCount() > 0);
            // Every name is whole, or tells itself in a tooltip (below).
            for (int r = 0; r < tags->model()->rowCount(); ++r) {
                const QModelIndex index = tags->model()->index(r, 0);
                QVERIFY2(tags->columnWidth(0) >= tags->sizeHintForIndex(index).width(),
                         qPrintable(index.data().toString()));
            }
            for (QTableView* table : {tags, values}) {
                QHeaderView* header = table->horizontalHeader();
                for (int c = 0; c < header->count(); ++c)
                    QVERIFY2(header->sectionSize(c) >= header->sectionSizeHint(c), qPrintable(name));
                QVERIFY(table->rowHeight(0) < 2 * table->fontMetrics().height());
            }
        }

        // A name cut by the user's narrow column shows whole in its tooltip; a
        // cell that fits shows none.
        const QModelIndex first = tags->model()->index(0, 0);
        tags->setColumnWidth(0, 30);
        QHelpEvent cut(QEvent::ToolTip, tags->visualRect(first).center(),
                       tags->viewport()->mapToGlobal(tags->visualRect(first).center()));
        QApplication::sendEvent(tags->viewport(), &cut);
        QTRY_COMPARE(QToolTip::text(), first.data().toString());
        tags->resizeColumnToContents(0);
        QApplication::sendEvent(tags->viewport(), &cut);
        QTRY_VERIFY(QToolTip::text().isEmpty());

        // Delete in the table is the tag command's question, in the tree the
        // group's; Ctrl+C and Ctrl+V in the table copy a tag. The window manager's
        // part: the window active again after each box.
        auto focus = [&s](QWidget* widget) {
            s.w.activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(&s.w));
            widget->setFocus();
        };
        CItem* group = MainWindowProbe::groups(s.w).begin()->second;
        s.select(group);
        focus(tags);
        s.selectRows({0});
        QString asked;
        s.watcher.answer(recordQuestion(asked));
        QTest::keyClick(tags, Qt::Key_Delete);
        QCOMPARE(asked, QString("Вы действительно хотите удалить выбранные теги?"));
        const uint before = group->size();
        focus(tags);
        QTest::keyClick(tags, Qt::Key_C, Qt::ControlModifier);
        QTest::keyClick(tags, Qt::Key_V, Qt::ControlModifier);
        QVERIFY(group->size() == before + 1 && tags->model()->rowCount() == int(before + 1));
        focus(s.tree());
        s.watcher.answer(recordQuestion(asked));
        QTest::keyClick(s.tree(), Qt::Key_Delete);
        QCOMPARE(asked, QString("Вы действительно хотите удалить выбранную группу?"));
    }

    void tagDialogTabsInVisualOrder()
    {
        // Tab follows the focus chain, skipping what is hidden or disabled.
        CDATagInfo* tag = nullptr;
        TagSetupDialog dialog(tag, false);
        const QStringList visual =
            QString("nameEdit regTypeBox addrBox valTypeBox byteOrderBox readBox writeBox writeGroupBox "
                    "regsInSegmentBox segmentPosBox transformTypeBox srcMinEdit srcMaxEdit dstMinEdit "
                    "dstMaxEdit factorEdit emulTypeBox constEdit periodBox spinBox_5 buttonBox")
                .split(' ');
        QStringList order{"nameEdit"};
        QWidget* start = requireChild<QWidget>(&dialog, "nameEdit");
        for (QWidget* at = start->nextInFocusChain(); at != start; at = at->nextInFocusChain())
            if (visual.contains(at->objectName()))
                order << at->objectName();
        QCOMPARE(order, visual);
    }

    void openSaveExportImportAndTheirFailures()
    {
        Session s(example("worked_example.cfg"));
        MainWindow& w = s.w;
        ModalWatcher& watcher = s.watcher;
        QVERIFY(MainWindowProbe::configOpen(w) && !MainWindowProbe::dirty(w));
        QTreeWidgetItem* root = s.tree()->topLevelItem(0);
        QVERIFY(root->isExpanded() && root->child(0)->child(0)->child(0)->type() == TreeItemGroup);
        QCOMPARE(rootProperty(w, 0), example("worked_example.cfg"));
        QCOMPARE(rootProperty(w, 1), QString("2"));

        // A channel forces the read-only properties; a group opens the tag table,
        // and its tag count cell shows no text: the count is its item type.
        auto* tabs = requireChild<QTabWidget>(&w, "tabWidget");
        auto* props = requireChild<QTableWidget>(&w, "tableWidget");
        s.select(s.node("Channel_0"));
        QVERIFY(!tabs->isTabEnabled(1));
        QCOMPARE(props->item(0, 1)->flags(), Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        s.select(s.node("Channel_0.Device_0.Group_0"));
        QVERIFY(tabs->isTabEnabled(1));
        QCOMPARE(props->item(3, 0)->text(), QString("Кол-во тегов"));
        QVERIFY(props->item(3, 1)->text().isEmpty() && props->item(3, 1)->type() == 3);
        QCOMPARE(MainWindowProbe::tagModel(w)->index(0, 0).data().toString(), QString("Tag_0"));

        const QByteArray plainText = readFile(example("worked_example.csv"));
        MainWindowProbe::dirty(w) = true;
        const QString csv = m_dir.filePath("exported.csv");
        watcher.answerFile(csv);
        w.on_action_export_conf_triggered();
        QVERIFY(MainWindowProbe::dirty(w)); // an export doesn't count as a save
        QCOMPARE(readFile(csv), plainText);
        const QString cfg = m_dir.filePath("saved.cfg");
        watcher.answerFile(cfg);
        w.on_save_action_triggered();
        QVERIFY(!MainWindowProbe::dirty(w));
        QCOMPARE(CScrambler::Decode(readFile(cfg)).toUtf8(), plainText);

        // The plain form comes back through import.
        watcher.answerFile(csv);
        w.on_action_import_conf_triggered();
        QCOMPARE(MainWindowProbe::root(w).GetItemsCount(itTag), 3u);
        QCOMPARE(MainWindowProbe::configPath(w), csv);

        // A cancelled open keeps the path; a cancelled save forgets it, and the
        // root row shows that at its next refresh.
        watcher.answerFile(QString());
        w.on_open_action_triggered();
        QCOMPARE(MainWindowProbe::configPath(w), csv);
        watcher.answerFile(QString());
        w.on_save_action_triggered();
        QCOMPARE(rootProperty(w, 0), QString());

        // A bad file: the code-7 box, and the window shows what the reader managed (the first channel,
        // its device lost) and says so, with nothing of the old tree left to paste.
        s.select(s.node("Channel_0.Device_0.Group_0"));
        w.on_copy_action_triggered();
        const QByteArray partial = plainText.left(plainText.indexOf("DEVICE"));
        const QString bad = writeFile(m_dir.filePath("bad.csv"), partial + "GROUP;1;2;3\n;Group_0;50;мс\n");
        QVERIFY(!bad.isEmpty());
        watcher.answerFile(bad);
        watcher.answer(QMessageBox::Ok);
        w.on_action_import_conf_triggered();
        QCOMPARE(watcher.seen().last().text, QString("Ошибка заполнения дерева, не верный формат файла."));
        root = s.tree()->topLevelItem(0);
        QVERIFY(root->childCount() == 1 && root->child(0)->childCount() == 0 &&
                MainWindowProbe::root(w).size() == 1 && MainWindowProbe::clipboard(w).empty());
        QCOMPARE(MainWindowProbe::readStatusLabel(w)->text(),
                 QString(" Файл прочитан не полностью: bad.csv"));
        QVERIFY(!MainWindowProbe::dirty(w));
        s.select(s.node("Channel_0"));
        QCOMPARE(props->item(0, 1)->text(), QString("Channel_0"));

        // What is shown is what a save writes; after it the file on show is whole.
        const QString written = m_dir.filePath("partial.csv");
        watcher.answerFile(written);
        w.on_action_export_conf_triggered();
        QCOMPARE(readFile(written), partial);
        QVERIFY(MainWindowProbe::readStatusLabel(w)->text().isEmpty());
    }
};

QTEST_MAIN(FileCommandsTest)
#include "tst_files.moc"
