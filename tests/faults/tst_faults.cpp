#include "app/mainwindow.h"
#include "config/configwriter.h"
#include "config/csvimporter.h"
#include "config/scrambler.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"
#include "tests/common/testfiles.h"

#include <QtTest>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

const QString kPlant = QString(VELMORA_EXAMPLES) + "/plant.cfg";
const QString kSmall = QString(VELMORA_EXAMPLES) + "/small.cfg";

// Child modes of this program. "save": saves the plant and the small tree over
// the target in turn, for ever, and is killed with SIGKILL by a thread of its
// own after the given microseconds. "load": reads a file, 0 when it fails.
int childMain(const QString& mode, const QString& path, int delay)
{
    CTreeItemRoot trees[2];
    if (mode == "load")
        return CCsvLoader(&trees[0]).Load(path.toStdString(), path.endsWith(".csv")) ? 1 : 0;
    CCsvLoader(&trees[0]).Load(kPlant.toStdString(), false);
    CCsvLoader(&trees[1]).Load(kSmall.toStdString(), false);
    std::thread([delay] {
        usleep(delay);
        kill(getpid(), SIGKILL);
    }).detach();
    for (int i = 0;; ++i)
        CConfigWriter::Save(trees[i % 2], path, false);
}

} // namespace

// Huge lines, interrupted saves and a full disk: the program answers, stays
// within its memory, never crashes and never loses the file it had.
class FaultsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    static int runChild(const QStringList& args)
    {
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), QStringList{"--child"} + args);
        if (!child.waitForFinished(20000))
            child.kill();
        return child.exitStatus() == QProcess::CrashExit ? -1 : child.exitCode();
    }

private slots:
    void readerMemoryStaysNearTheFileSize()
    {
        // 20 MB of ";" on one line once took over a gigabyte. The peak is read
        // from a child that does nothing else.
        writeFile(m_dir.filePath("semicolons.csv"), QByteArray(20 << 20, ';'));
        QCOMPARE(runChild({"load", m_dir.filePath("semicolons.csv"), "0"}), 0);
        struct rusage usage;
        getrusage(RUSAGE_CHILDREN, &usage);
        QVERIFY2(usage.ru_maxrss < (4 * 20 + 50) * 1024, qPrintable(QString::number(usage.ru_maxrss)));
    }

    void saveKilledAnywhereLeavesAWholeFile()
    {
        // The target holds the old file throughout, or a whole new one. A kill
        // between the last two steps can leave the whole new text under its
        // pending name as well, which the next save takes away.
        CTreeItemRoot plant, small;
        CCsvLoader(&plant).Load(kPlant.toStdString(), false);
        CCsvLoader(&small).Load(kSmall.toStdString(), false);
        QElapsedTimer saving;
        saving.start();
        QCOMPARE(CConfigWriter::Save(plant, m_dir.filePath("a.cfg"), false), CConfigWriter::Saved);
        const qint64 oneSaveUs = qMax<qint64>(saving.nsecsElapsed() / 1000, 500);
        QCOMPARE(CConfigWriter::Save(small, m_dir.filePath("b.cfg"), false), CConfigWriter::Saved);
        const QByteArray old = readFile(kSmall), a = readFile(m_dir.filePath("a.cfg")),
                         b = readFile(m_dir.filePath("b.cfg"));

        QSet<QString> outcomes;
        const int points = 24;
        for (int i = 0; i < points; ++i) {
            QTemporaryDir dir;
            const QString target = writeFile(dir.filePath("plant.cfg"), old);
            QCOMPARE(runChild({"save", target, QString::number(i * 3 * oneSaveUs / points)}), -1);
            const QByteArray now = readFile(target);
            QVERIFY2(now == old || now == a || now == b, qPrintable(QString("point %1").arg(i)));
            outcomes << (now == old ? "old" : now == a ? "plant" : "small");
            const QByteArray pending = readFile(CConfigWriter::PendingName(target));
            QVERIFY(pending.isEmpty() || pending == a || pending == b);
            QCOMPARE(CConfigWriter::Save(small, target, false), CConfigWriter::Saved);
            QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"plant.cfg"});
        }
        QVERIFY2(outcomes.size() >= 2, "every kill landed in the same place");
    }

    void failedSavesKeepTheOldFileAndTheChanges()
    {
        ModalWatcher watcher;
        MainWindow w;
        w.openCSVFile(kPlant);
        MainWindowProbe::dirty(w) = true;
        const QByteArray old = readFile(kSmall);
        auto save = [&](const QString& path, bool plain = false) {
            MainWindowProbe::configPath(w) = path;
            MainWindowProbe::plainFormat(w) = plain;
            const int result = w.saveConfig();
            MainWindowProbe::plainFormat(w) = false;
            return result;
        };

        // A disk too small for the file: a tmpfs where one can be mounted, else a
        // file size limit, under which writes fail with EFBIG.
        const QString tiny = m_dir.filePath("tiny");
        QDir().mkpath(tiny);
        const bool mounted =
            QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=16k", "tmpfs", tiny}) == 0;
        const auto unmount = qScopeGuard([&] {
            if (mounted)
                QProcess::execute("umount", {tiny});
        });
        const QString full = writeFile(tiny + "/plant.cfg", old);
        struct rlimit was;
        getrlimit(RLIMIT_FSIZE, &was);
        struct rlimit limit = {mounted ? was.rlim_cur : rlim_t(old.size() + 100), was.rlim_max};
        std::signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
        const int fullResult = save(full);
        setrlimit(RLIMIT_FSIZE, &was);
        QCOMPARE(fullResult, 1); // code 12, the writer's failure
        QCOMPARE(readFile(full), old);
        QCOMPARE(QDir(tiny).entryList(QDir::Files | QDir::Hidden), QStringList{"plant.cfg"});

        // A target marked read-only in a writable folder, and a folder that
        // doesn't exist: refused in both forms.
        const QString readOnly = writeFile(m_dir.filePath("ro.cfg"), old);
        QFile::setPermissions(readOnly, QFileDevice::ReadOwner | QFileDevice::ReadGroup);
        QCOMPARE(save(readOnly), 1);
        QCOMPARE(readFile(readOnly), old);
        QCOMPARE(save(m_dir.filePath("missing/x.cfg")), 1);
        QCOMPARE(save(m_dir.filePath("missing/x.csv"), true), 1);
        QVERIFY(MainWindowProbe::dirty(w));

        // Links in a loop are refused and stay links.
        QVERIFY(QFile::link("loop-b.cfg", m_dir.filePath("loop-a.cfg")) &&
                QFile::link("loop-a.cfg", m_dir.filePath("loop-b.cfg")));
        QCOMPARE(save(m_dir.filePath("loop-a.cfg")), 1);
        QVERIFY(QFileInfo(m_dir.filePath("loop-a.cfg")).isSymLink());

        // A symlink is written through: the link stays, its target changes, and
        // keeps its mode and, where the saver may give them, its owner and group
        // (a service account's file saved by root stays the service's).
        const QString real = writeFile(m_dir.filePath("real.cfg"), old);
        struct stat before;
        QVERIFY(::chmod(qPrintable(real), 0640) == 0 && ::stat(qPrintable(real), &before) == 0);
        if (::getuid() == 0) {
            QVERIFY(::chown(qPrintable(real), 65534, 65534) == 0);
            before.st_uid = before.st_gid = 65534;
        }
        QVERIFY(QFile::link(real, m_dir.filePath("link.cfg")));
        QCOMPARE(save(m_dir.filePath("link.cfg")), 0);
        QVERIFY(QFileInfo(m_dir.filePath("link.cfg")).isSymLink());
        struct stat after;
        QVERIFY(::stat(qPrintable(real), &after) == 0 && after.st_ino != before.st_ino);
        QCOMPARE(after.st_mode, before.st_mode);
        QCOMPARE(after.st_uid, before.st_uid);
        QCOMPARE(after.st_gid, before.st_gid);
        CTreeItemRoot saved;
        QVERIFY(CCsvLoader(&saved).Load(real.toStdString(), false));
        QCOMPARE(saved.GetItemsCount(itTag), MainWindowProbe::root(w).GetItemsCount(itTag));
        QVERIFY(!MainWindowProbe::dirty(w));
    }
};

int main(int argc, char** argv)
{
    if (argc > 1 && QByteArray(argv[1]) == "--child")
        return childMain(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3]), atoi(argv[4]));
    QApplication app(argc, argv);
    FaultsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_faults.moc"
