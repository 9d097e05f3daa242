#include "app/logging.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

// Starts the real program and reads its log, the way a user would find it.
class StartupTest : public QObject
{
    Q_OBJECT

private:
    static QString logPath() { return logFolderPath() + "VelmoraGui.log"; }

    static QStringList logLines()
    {
        QFile f(logPath());
        if (!f.open(QIODevice::ReadOnly | QIODevice::Text))
            return {};
        return QString::fromUtf8(f.readAll()).split('\n', Qt::SkipEmptyParts);
    }

private slots:
    void twoStartsAppendTwoLines()
    {
        QFile::remove(logPath());
        const QRegularExpression started(
            R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} Info: Приложение запущено$)");
        for (int run = 1; run <= 2; ++run) {
            QProcess p;
            p.start(QString(VELMORA_BIN_DIR) + "/velmora", {});
            QVERIFY(p.waitForStarted());
            QTRY_COMPARE_WITH_TIMEOUT(logLines().filter(started).size(), run, 20000);
            p.terminate();
            QVERIFY(p.waitForFinished(10000));
        }
    }

    void handlerWritesCategoryAndTextAndSmallFilesStay()
    {
        QDir().mkpath(logFolderPath());
        QFile::remove(logPath());
        openLogFile();
        QtMessageHandler old = qInstallMessageHandler(messageHandler);
        VLOG_WARNING().noquote() << "Не удалось сохранить файл конфигурации";
        VLOG_INFO().noquote() << "строка 2";
        qInstallMessageHandler(old);
        rotateLogFile();
        QVERIFY(m_logFile->isOpen());
        m_logFile->close();

        const QStringList lines = logLines();
        QCOMPARE(lines.size(), 2);
        QVERIFY(lines[0].endsWith(" Warning: Не удалось сохранить файл конфигурации"));
        QVERIFY(lines[1].endsWith(" Info: строка 2"));
        // A small file is not rotated.
        QCOMPARE(QDir(logFolderPath()).entryList(QDir::Files), QStringList{"VelmoraGui.log"});
    }
};

QTEST_GUILESS_MAIN(StartupTest)
#include "tst_startup.moc"
