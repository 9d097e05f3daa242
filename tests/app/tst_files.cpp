#include "app/mainwindow.h"
#include "config/scrambler.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"
#include "views/tablemodelvariable.h"

#include <QAction>
#include <QFileDialog>
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

    static void choose(ModalWatcher& watcher, const QString& path) { watcher.answerFile(path); }

    static QTreeWidget* tree(MainWindow& w) { return w.findChild<QTreeWidget*>("treeWidget"); }

    static QString rootProperty(MainWindow& w, int row)
    {
        tree(w)->topLevelItem(0)->setSelected(false);
        tree(w)->topLevelItem(0)->setSelected(true);
        QTableWidgetItem* cell = w.findChild<QTableWidget*>("tableWidget")->item(row, 1);
        return cell ? cell->text() : QString();
    }

    static void open(MainWindow& w, ModalWatcher& watcher, const QString& path, bool plain = false)
    {
        choose(watcher, path);
        if (plain)
            w.on_action_import_conf_triggered();
        else
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
        QCOMPARE(watcher.unexpectedCount(), 0);

        QTreeWidgetItem* root = tree(w)->topLevelItem(0);
        QCOMPARE(root->text(0), QString("Каналы"));
        QVERIFY(root->isExpanded());
        QCOMPARE(root->childCount(), 2);
        QTreeWidgetItem* channel = root->child(0);
        QCOMPARE(channel->text(0), QString("Channel_0"));
        QCOMPARE(channel->type(), int(TreeItemChannel));
        QTreeWidgetItem* device = channel->child(0);
        QCOMPARE(device->type(), int(TreeItemDevice));
        QTreeWidgetItem* group = device->child(0);
        QCOMPARE(group->type(), int(TreeItemGroup));
        QVERIFY(!group->icon(0).isNull());
        QVERIFY(MainWindowProbe::configOpen(w));
        QVERIFY(!MainWindowProbe::dirty(w));
        QVERIFY(MainWindowProbe::groups(w).count("Channel_0.Device_0.Group_0"));

        QCOMPARE(rootProperty(w, 0), example("worked_example.cfg"));
        QCOMPARE(rootProperty(w, 1), QString("2"));

        // A channel forces the properties tab; a group opens the tag table.
        auto* tabs = w.findChild<QTabWidget*>("tabWidget");
        tree(w)->setCurrentItem(channel);
        QCOMPARE(tabs->currentIndex(), 0);
        QVERIFY(!tabs->isTabEnabled(1));
        auto* props = w.findChild<QTableWidget*>("tableWidget");
        QVERIFY(props->rowCount() > 3);
        QCOMPARE(props->item(0, 1)->flags(), Qt::ItemIsEnabled | Qt::ItemIsSelectable);

        tree(w)->setCurrentItem(group);
        QVERIFY(tabs->isTabEnabled(1));
        QVERIFY(tabs->isTabEnabled(2));
        QCOMPARE(tabs->currentIndex(), 0);
        // The tag count cell shows no text: the count is its item type.
        QCOMPARE(props->item(3, 0)->text(), QString("Кол-во тегов"));
        QCOMPARE(props->item(3, 1)->text(), QString());
        QCOMPARE(props->item(3, 1)->type(), 3);
        QCOMPARE(MainWindowProbe::tagModel(w)->rowCount(), 3);
        QCOMPARE(MainWindowProbe::tagModel(w)->index(0, 0).data().toString(), QString("Tag_0"));
    }

    void saveScramblesAndExportStaysPlain()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        open(w, watcher, example("worked_example.cfg"));

        MainWindowProbe::dirty(w) = true;
        const QString csv = m_dir.filePath("exported.csv");
        choose(watcher, csv);
        w.on_action_export_conf_triggered();
        QVERIFY(MainWindowProbe::dirty(w)); // an export doesn't count as a save
        QVERIFY(!MainWindowProbe::plainFormat(w));
        QCOMPARE(readAll(csv), readAll(example("worked_example.csv")));

        const QString cfg = m_dir.filePath("saved.cfg");
        choose(watcher, cfg);
        w.on_save_action_triggered();
        QVERIFY(!MainWindowProbe::dirty(w));
        const QByteArray scrambled = readAll(cfg);
        QVERIFY(scrambled.startsWith(CScrambler::Encode("CHANNEL;")));
        QCOMPARE(CScrambler::Decode(scrambled).toUtf8(), readAll(example("worked_example.csv")));

        // The plain form comes back through import.
        open(w, watcher, csv, true);
        QCOMPARE(MainWindowProbe::root(w).GetItemsCount(itTag), 3u);
        QCOMPARE(MainWindowProbe::configPath(w), csv);
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    void cancelledDialogs()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        open(w, watcher, example("worked_example.cfg"));

        choose(watcher, QString());
        w.on_open_action_triggered();
        QCOMPARE(MainWindowProbe::configPath(w), example("worked_example.cfg"));

        // A cancelled save forgets the path; the root row shows it at its next refresh.
        choose(watcher, QString());
        w.on_save_action_triggered();
        QVERIFY(MainWindowProbe::configPath(w).isEmpty());
        QCOMPARE(rootProperty(w, 0), QString());
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    void badFileAndMissingFolder()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        open(w, watcher, example("worked_example.cfg"));
        const int rowsBefore = tree(w)->topLevelItem(0)->childCount();

        const QString bad = m_dir.filePath("bad.csv");
        QFile f(bad);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n;Channel_0;COM-порт;MODBUS "
                "RTU;500;3;0;1;9600;8;1;Нет;Нет;"
                "Нет;Нет\nGROUP;1;2;3\n;Group_0;50;мс\n");
        f.close();
        choose(watcher, bad);
        watcher.answer(QMessageBox::Ok);
        w.on_action_import_conf_triggered();
        QCOMPARE(watcher.seen().last().text, QString("Ошибка заполнения дерева, не верный формат файла."));
        // The old rows stay in view; the tree holds what the reader managed.
        QCOMPARE(tree(w)->topLevelItem(0)->childCount(), rowsBefore);
        QCOMPARE(MainWindowProbe::root(w).size(), 1u);
        // Their nodes are gone: selecting one shows nothing and doesn't crash.
        tree(w)->setCurrentItem(tree(w)->topLevelItem(0)->child(1));
        QCOMPARE(w.findChild<QTableWidget*>("tableWidget")->item(0, 0), nullptr);

        // A folder that doesn't exist: the plain writer can't tell, the
        // scrambling pass can, and the flag stays.
        MainWindowProbe::dirty(w) = true;
        MainWindowProbe::configPath(w) = m_dir.filePath("missing/x.cfg");
        QCOMPARE(w.saveConfig(), 2);
        MainWindowProbe::plainFormat(w) = true;
        QCOMPARE(w.saveConfig(), 0);
        MainWindowProbe::plainFormat(w) = false;
        QVERIFY(MainWindowProbe::dirty(w));
    }
};

QTEST_MAIN(FileCommandsTest)
#include "tst_files.moc"
