#include "app/mainwindow.h"
#include "config/scrambler.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"
#include "views/tablemodelvariable.h"

#include <QTabWidget>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QtTest>

// The four file commands driven through the real file dialogs and busy dialog.
class FileCommandsTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    static QString example(const char* name) { return QString(VELMORA_TEST_DATA) + "/" + name; }

    static QTreeWidget* tree(MainWindow& w) { return w.findChild<QTreeWidget*>("treeWidget"); }

    static QString rootProperty(MainWindow& w, int row)
    {
        tree(w)->topLevelItem(0)->setSelected(false);
        tree(w)->topLevelItem(0)->setSelected(true);
        QTableWidgetItem* cell = w.findChild<QTableWidget*>("tableWidget")->item(row, 1);
        return cell ? cell->text() : QString();
    }

    static void open(MainWindow& w, ModalWatcher& watcher, const QString& path)
    {
        watcher.answerFile(path);
        w.on_open_action_triggered();
    }

    static QByteArray readAll(const QString& path)
    {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

private slots:
    void openShowsTheTreeAndItsTables()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        open(w, watcher, example("worked_example.cfg"));
        QVERIFY(MainWindowProbe::configOpen(w) && !MainWindowProbe::dirty(w));

        QTreeWidgetItem* root = tree(w)->topLevelItem(0);
        QVERIFY(root->isExpanded());
        QTreeWidgetItem* channel = root->child(0);
        QTreeWidgetItem* group = channel->child(0)->child(0);
        QCOMPARE(group->type(), int(TreeItemGroup));
        QVERIFY(!group->icon(0).isNull());
        QCOMPARE(rootProperty(w, 0), example("worked_example.cfg"));
        QCOMPARE(rootProperty(w, 1), QString("2"));

        // A channel forces the read-only properties; a group opens the tag table.
        auto* tabs = w.findChild<QTabWidget*>("tabWidget");
        auto* props = w.findChild<QTableWidget*>("tableWidget");
        tree(w)->setCurrentItem(channel);
        QVERIFY(!tabs->isTabEnabled(1));
        QCOMPARE(props->item(0, 1)->flags(), Qt::ItemIsEnabled | Qt::ItemIsSelectable);

        tree(w)->setCurrentItem(group);
        QVERIFY(tabs->isTabEnabled(1));
        // The tag count cell shows no text: the count is its item type.
        QCOMPARE(props->item(3, 0)->text(), QString("Кол-во тегов"));
        QCOMPARE(props->item(3, 1)->text(), QString());
        QCOMPARE(props->item(3, 1)->type(), 3);
        QCOMPARE(MainWindowProbe::tagModel(w)->index(0, 0).data().toString(), QString("Tag_0"));
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    void saveExportImportAndTheirFailures()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        open(w, watcher, example("worked_example.cfg"));
        const QByteArray plainText = readAll(example("worked_example.csv"));

        MainWindowProbe::dirty(w) = true;
        const QString csv = m_dir.filePath("exported.csv");
        watcher.answerFile(csv);
        w.on_action_export_conf_triggered();
        QVERIFY(MainWindowProbe::dirty(w)); // an export doesn't count as a save
        QCOMPARE(readAll(csv), plainText);

        const QString cfg = m_dir.filePath("saved.cfg");
        watcher.answerFile(cfg);
        w.on_save_action_triggered();
        QVERIFY(!MainWindowProbe::dirty(w));
        const QByteArray scrambled = readAll(cfg);
        QVERIFY(scrambled.startsWith(CScrambler::Encode("CHANNEL;")));
        QCOMPARE(CScrambler::Decode(scrambled).toUtf8(), plainText);

        // The plain form comes back through import.
        watcher.answerFile(csv);
        w.on_action_import_conf_triggered();
        QCOMPARE(MainWindowProbe::root(w).GetItemsCount(itTag), 3u);
        QCOMPARE(MainWindowProbe::configPath(w), csv);

        // A cancelled open keeps the path; a cancelled save forgets it, and the
        // root row shows that at its next refresh.
        open(w, watcher, QString());
        QCOMPARE(MainWindowProbe::configPath(w), csv);
        watcher.answerFile(QString());
        w.on_save_action_triggered();
        QCOMPARE(rootProperty(w, 0), QString());

        // A bad file: the code-7 box, and the old rows stay in view over what
        // the reader managed.
        const QString bad = m_dir.filePath("bad.csv");
        QFile f(bad);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n;Channel_0;COM-порт;MODBUS "
                "RTU;500;3;0;1;9600;8;1;Нет;Нет;"
                "Нет;Нет\nGROUP;1;2;3\n;Group_0;50;мс\n");
        f.close();
        watcher.answerFile(bad);
        watcher.answer(QMessageBox::Ok);
        w.on_action_import_conf_triggered();
        QCOMPARE(watcher.seen().last().text, QString("Ошибка заполнения дерева, не верный формат файла."));
        QCOMPARE(tree(w)->topLevelItem(0)->childCount(), 2);
        QCOMPARE(MainWindowProbe::root(w).size(), 1u);
        // Their nodes are gone: selecting one shows nothing and doesn't crash.
        tree(w)->setCurrentItem(tree(w)->topLevelItem(0)->child(1));
        QCOMPARE(w.findChild<QTableWidget*>("tableWidget")->item(0, 0), nullptr);

        QCOMPARE(watcher.unexpectedCount(), 0);
    }
};

QTEST_MAIN(FileCommandsTest)
#include "tst_files.moc"
