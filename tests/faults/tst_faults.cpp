#include "app/mainwindow.h"
#include "config/csvimporter.h"
#include "config/runparameters.h"
#include "config/scrambler.h"
#include "dialogs/dialogaddusers.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <sys/resource.h>

// Damaged files and a full disk: the program answers, keeps what it could and
// never crashes.
class FaultsTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    static QByteArray example(const char* name)
    {
        QFile f(QString(VELMORA_TEST_DATA) + "/" + name);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

    QString write(const QString& name, const QByteArray& bytes)
    {
        const QString path = m_dir.filePath(name);
        QFile f(path);
        f.open(QIODevice::WriteOnly | QIODevice::Truncate);
        f.write(bytes);
        return path;
    }

    static bool load(const QString& path, bool plain, CTreeItemRoot& root)
    {
        CCsvLoader loader(&root);
        return loader.Load(path.toStdString(), plain);
    }

    // A tmpfs of its own at `folder`, with mount options; false where the
    // test may not mount (not root, or no mount namespace of its own).
    static bool mountTmpfs(const QString& folder, const QString& options)
    {
        QDir().mkpath(folder);
        return QProcess::execute("mount", {"-t", "tmpfs", "-o", options, "tmpfs", folder}) == 0;
    }

    static void unmount(const QString& folder) { QProcess::execute("umount", {folder}); }

private slots:
    void damagedFilesKeepWhatCouldBeRead()
    {
        const QByteArray plain = example("worked_example.csv");
        const QByteArray scrambled = example("worked_example.cfg");
        QVERIFY(!plain.isEmpty() && !scrambled.isEmpty());

        // A .cfg cut in the middle of a character: the rows before the cut stay.
        {
            CTreeItemRoot root;
            const QString path =
                write("cut.cfg", scrambled.left(scrambled.indexOf(CScrambler::Encode("DEVICE")) + 3));
            QVERIFY(!load(path, false, root));
            QCOMPARE(root.size(), 1u);
        }
        // A byte-order mark makes the first row no keyword: a bad row.
        {
            CTreeItemRoot root;
            QVERIFY(!load(write("bom.csv", "\xEF\xBB\xBF" + plain), true, root));
        }
        // A megabyte on one line, in both forms.
        {
            const QByteArray huge = plain + ";" + QByteArray(1 << 20, 'x') + "\n";
            CTreeItemRoot a;
            QVERIFY(!load(write("long.csv", huge), true, a));
            QCOMPARE(a.GetItemsCount(itTag), 3u);
            CTreeItemRoot b;
            QVERIFY(!load(write("long.cfg", CScrambler::Encode(QString::fromUtf8(huge))), false, b));
            QCOMPARE(b.GetItemsCount(itTag), 3u);
        }
        // A million empty rows are skipped, quickly.
        {
            CTreeItemRoot root;
            const QString path = write("empty-rows.csv", plain + QByteArray(1000000, '\n') + plain.right(67));
            QElapsedTimer t;
            t.start();
            load(path, true, root);
            QVERIFY2(t.elapsed() < 20000, "a million empty rows took too long");
            QCOMPARE(root.GetItemsCount(itTag), 3u);
        }
        // Not a configuration at all.
        {
            CTreeItemRoot root;
            QByteArray noise(4096, '\0');
            for (int i = 0; i < noise.size(); ++i)
                noise[i] = char((i * 7919) & 0xFF);
            QVERIFY(!load(write("noise.cfg", noise), false, root));
            QVERIFY(!load(write("noise.csv", noise), true, root));
        }
    }

    void fullDiskLosesOnlyWhatTheSaveAccepts()
    {
        ModalWatcher watcher;
        MainWindow w;
        const QString source = write("source.cfg", example("worked_example.cfg"));
        w.openCSVFile(source);
        QCOMPARE(MainWindowProbe::root(w).GetItemsCount(itTag), 3u);

        // A file size limit stands in for a full disk: writes past it fail with
        // EFBIG instead of ending the process.
        struct rlimit old;
        getrlimit(RLIMIT_FSIZE, &old);
        struct rlimit small = old;
        small.rlim_cur = 200;
        std::signal(SIGXFSZ, SIG_IGN);
        QCOMPARE(setrlimit(RLIMIT_FSIZE, &small), 0);

        MainWindowProbe::dirty(w) = true;
        MainWindowProbe::configPath(w) = m_dir.filePath("full.cfg");
        const int result = w.saveConfig();
        setrlimit(RLIMIT_FSIZE, &old);

        QCOMPARE(result, 1);                // the writer's failure: code 12
        QVERIFY(MainWindowProbe::dirty(w)); // the user is still asked to save
        // The tree in memory is whole, so a save to a roomier place succeeds.
        MainWindowProbe::configPath(w) = m_dir.filePath("roomy.cfg");
        QCOMPARE(w.saveConfig(), 0);
        CTreeItemRoot again;
        QVERIFY(load(m_dir.filePath("roomy.cfg"), false, again));
        QCOMPARE(again.GetItemsCount(itTag), 3u);
        QCOMPARE(watcher.unexpectedCount(), 0);
    }
    void readOnlyFolderAndTinyDisk()
    {
        const QString readOnly = m_dir.filePath("ro");
        const QString tiny = m_dir.filePath("tiny");
        if (!mountTmpfs(readOnly, "size=64k,ro"))
            QSKIP("no tmpfs can be mounted here");
        QVERIFY(mountTmpfs(tiny, "size=16k"));
        struct Unmount
        {
            QString a, b;
            ~Unmount()
            {
                unmount(a);
                unmount(b);
            }
        } unmountAtEnd{readOnly, tiny};

        ModalWatcher watcher;
        MainWindow w;
        w.openCSVFile(QString(VELMORA_EXAMPLES) + "/plant.cfg");
        const uint tags = MainWindowProbe::root(w).GetItemsCount(itTag);
        MainWindowProbe::dirty(w) = true;

        // Nothing can be created in a read-only folder: the scrambling pass
        // finds no file (code 13) and the changes still count as unsaved.
        MainWindowProbe::configPath(w) = readOnly + "/plant.cfg";
        QCOMPARE(w.saveConfig(), 2);
        QVERIFY(MainWindowProbe::dirty(w));
        QCOMPARE(CRunParameters::Save({readOnly + "/plant.cfg", "4840", "info", "true", "", "", ""}),
                 int(CRunParameters::NotWritten));

        // A disk too small for the file: the writer's own failure (code 12).
        MainWindowProbe::configPath(w) = tiny + "/plant.cfg";
        QCOMPARE(w.saveConfig(), 1);
        QVERIFY(MainWindowProbe::dirty(w));
        QCOMPARE(MainWindowProbe::root(w).GetItemsCount(itTag), tags);
        QCOMPARE(watcher.unexpectedCount(), 0);
    }

    void semicolonInALogin()
    {
        // A ";" in a login splits it: the pairs behind it shift, nothing breaks.
        const QString path = write("users.cfg", example("worked_example.cfg"));
        DialogAddUsers dialog(path);
        dialog.saveUsers("оператор;смена", "1");
        dialog.saveUsers("admin", "2");
        dialog.readFileUsers();
        auto* table = dialog.findChild<QTableWidget*>("tableWidget_users");
        QCOMPARE(table->rowCount(), 2);
        QCOMPARE(table->item(0, 0)->text(), QString("оператор"));
        QCOMPARE(table->item(1, 0)->text(), QString("1"));
        CTreeItemRoot root;
        QVERIFY(load(path, false, root));
        QCOMPARE(root.GetItemsCount(itTag), 3u);
    }
};

QTEST_MAIN(FaultsTest)
#include "tst_faults.moc"
