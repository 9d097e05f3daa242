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

    // What a fresh reader makes of a file: whether the load succeeds, and
    // the channels and tags it keeps.
    static QString readBack(const QString& path)
    {
        CTreeItemRoot root;
        const bool read = CCsvLoader(&root).Load(path.toStdString(), path.endsWith(".csv"));
        return QString("%1, %2 channels, %3 tags")
            .arg(read ? "read" : "failed")
            .arg(root.size())
            .arg(root.GetItemsCount(itTag));
    }

    // A tmpfs of its own at `folder`, with mount options; false where the
    // test may not mount (not root, or no mount namespace of its own).
    static bool mountTmpfs(const QString& folder, const QString& options)
    {
        QDir().mkpath(folder);
        return QProcess::execute("mount", {"-t", "tmpfs", "-o", options, "tmpfs", folder}) == 0;
    }

private slots:
    void damagedFilesKeepWhatCouldBeRead()
    {
        const QByteArray plain = example("worked_example.csv");
        const QByteArray scrambled = example("worked_example.cfg");
        QVERIFY(!plain.isEmpty() && !scrambled.isEmpty());
        // A .cfg cut in the middle of a character: the rows before the cut stay.
        const QByteArray cut = scrambled.left(scrambled.indexOf(CScrambler::Encode("DEVICE")) + 3);
        QCOMPARE(readBack(write("cut.cfg", cut)), QString("failed, 1 channels, 0 tags"));
        // A byte-order mark makes the first row no keyword: a bad row.
        QVERIFY(readBack(write("bom.csv", "\xEF\xBB\xBF" + plain)).startsWith("failed"));
        // A megabyte on one line, in both forms.
        const QByteArray huge = plain + ";" + QByteArray(1 << 20, 'x') + "\n";
        QCOMPARE(readBack(write("long.csv", huge)), QString("failed, 2 channels, 3 tags"));
        QCOMPARE(readBack(write("long.cfg", CScrambler::Encode(QString::fromUtf8(huge)))),
                 QString("failed, 2 channels, 3 tags"));
        // A million empty rows are skipped, quickly.
        QElapsedTimer t;
        t.start();
        QVERIFY(readBack(write("empty-rows.csv", plain + QByteArray(1000000, '\n') + plain.right(67)))
                    .endsWith(", 3 tags"));
        QVERIFY2(t.elapsed() < 20000, "a million empty rows took too long");
        // Not a configuration at all.
        QByteArray noise(4096, '\0');
        for (int i = 0; i < noise.size(); ++i)
            noise[i] = char((i * 7919) & 0xFF);
        QVERIFY(readBack(write("noise.cfg", noise)).startsWith("failed"));
        QVERIFY(readBack(write("noise.csv", noise)).startsWith("failed"));
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
        QCOMPARE(readBack(m_dir.filePath("roomy.cfg")), QString("read, 2 channels, 3 tags"));
        QCOMPARE(watcher.unexpectedCount(), 0);
    }
    void readOnlyFolderAndTinyDisk()
    {
        const QString readOnly = m_dir.filePath("ro");
        const QString tiny = m_dir.filePath("tiny");
        if (!mountTmpfs(readOnly, "size=64k,ro"))
            QSKIP("no tmpfs can be mounted here");
        QVERIFY(mountTmpfs(tiny, "size=16k"));
        const auto unmount = qScopeGuard([&] {
            QProcess::execute("umount", {readOnly});
            QProcess::execute("umount", {tiny});
        });

        ModalWatcher watcher;
        MainWindow w;
        w.openCSVFile(QString(VELMORA_EXAMPLES) + "/plant.cfg");
        const uint tags = MainWindowProbe::root(w).GetItemsCount(itTag);
        MainWindowProbe::dirty(w) = true;

        // Nothing can be created in a read-only folder: the writer's failure
        // (code 12) and the changes still count as unsaved.
        MainWindowProbe::configPath(w) = readOnly + "/plant.cfg";
        QCOMPARE(w.saveConfig(), 1);
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
        QCOMPARE(readBack(path), QString("read, 2 channels, 3 tags"));
    }
};

QTEST_MAIN(FaultsTest)
#include "tst_faults.moc"
