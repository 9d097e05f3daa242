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

    static int startedLines()
    {
        QFile f(logPath());
        if (!f.open(QIODevice::ReadOnly | QIODevice::Text))
            return 0;
        return QString::fromUtf8(f.readAll()).count("Info: Приложение запущено");
    }

private slots:
    void twoStartsAppendTwoLines()
    {
        QFile::remove(logPath());
        for (int run = 1; run <= 2; ++run) {
            QProcess p;
            p.start(QString(VELMORA_BIN_DIR) + "/velmora", {});
            QVERIFY(p.waitForStarted());
            QTRY_COMPARE_WITH_TIMEOUT(startedLines(), run, 20000);
            p.terminate();
            QVERIFY(p.waitForFinished(10000));
        }
        QFile f(logPath());
        QVERIFY(f.open(QIODevice::ReadOnly | QIODevice::Text));
        const QStringList lines = QString::fromUtf8(f.readAll()).split('\n', Qt::SkipEmptyParts);
        const QRegularExpression format(
            R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} Info: Приложение запущено$)");
        int matching = 0;
        for (const QString& l : lines)
            matching += format.match(l).hasMatch() ? 1 : 0;
        QCOMPARE(matching, 2);
    }

    void handlerWritesCategoryAndText()
    {
        QDir().mkpath(logFolderPath());
        QFile::remove(logPath());
        openLogFile();
        QtMessageHandler old = qInstallMessageHandler(messageHandler);
        VLOG_WARNING().noquote() << "Не удалось сохранить файл конфигурации";
        VLOG_INFO().noquote() << "строка 2";
        qInstallMessageHandler(old);
        m_logFile->close();

        QFile f(logPath());
        QVERIFY(f.open(QIODevice::ReadOnly | QIODevice::Text));
        const QStringList lines = QString::fromUtf8(f.readAll()).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2);
        QVERIFY(
            QRegularExpression(
                R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} Warning: Не удалось сохранить файл конфигурации$)")
                .match(lines[0])
                .hasMatch());
        QVERIFY(lines[1].endsWith(" Info: строка 2"));
    }

    void rotationLeavesSmallFilesAlone()
    {
        openLogFile();
        QVERIFY(m_logFile->size() < 10485760);
        rotateLogFile();
        QVERIFY(m_logFile->isOpen());
        QCOMPARE(QFileInfo(m_logFile->fileName()).fileName(), QString("VelmoraGui.log"));
        QCOMPARE(QDir(logFolderPath()).entryList(QDir::Files).size(), 1);
    }
};

QTEST_GUILESS_MAIN(StartupTest)
#include "tst_startup.moc"
