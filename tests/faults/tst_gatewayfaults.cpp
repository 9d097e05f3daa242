#include "app/mainwindow.h"
#include "config/csvimporter.h"
#include "gatewayprocess.h"
#include "model/treeitemroot.h"
#include "tests/common/capturedlog.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/session.h"

#include <QAction>
#include <QtTest>

#include <csignal>
#include <sys/prctl.h>

// The gateway dies under a connected program in the middle of a long series of
// tag adds: the program has to tell so in its own words, stay usable and keep
// its data.
class GatewayFaultsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { CapturedLog::install(); }

    void gatewayGoneDuringASeriesAndAfter()
    {
        QTemporaryDir dir;
        const QString config = dir.filePath("plant.cfg");
        QVERIFY(QFile::copy(QString(VELMORA_TEST_DATA) + "/worked_example.cfg", config));
        // A gateway of its own, so that it can be killed outright.
        QProcess gateway;
        const QString url = QString("opc.tcp://127.0.0.1:%1").arg(GatewayProcess::freePort());
        gateway.setProcessChannelMode(QProcess::MergedChannels);
        gateway.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
        gateway.start(GatewayProcess::program(),
                      {config, url.section(':', -1), "info", "true", QString(), QString(), QString()});
        QTRY_VERIFY_WITH_TIMEOUT(GatewayProcess::answers(url), 15000);
        Session s(config);
        s.watcher.answerConnect(url);
        s.w.findChild<QAction*>("action")->trigger();
        QVERIFY(MainWindowProbe::connected(s.w) && MainWindowProbe::client(s.w));

        // 500 tags asked for; the gateway is killed once it has taken 20. The
        // worker stops at the first refused call and the busy dialog stays open:
        // the test closes it half a second after the failure is logged.
        CItem* group = s.node("Channel_0.Device_0.Group_0");
        s.select(group);
        s.accept([](QWidget* d) { requireChild<QWidget>(d, "spinBox_5")->setProperty("value", 500); });
        s.watcher.answer(QMessageBox::Ok);
        QString printed;
        QStringList warnings;
        QElapsedTimer sinceKill, sinceFailure;
        bool stayedOpen = false;
        QTimer monitor;
        connect(&monitor, &QTimer::timeout, &s.w, [&] {
            printed += QString::fromUtf8(gateway.readAll());
            warnings += CapturedLog::takeWarnings();
            if (!sinceKill.isValid() && printed.count("Метод addNode: Good") >= 20) {
                gateway.kill();
                sinceKill.start();
            } else if (sinceKill.isValid() && !sinceFailure.isValid() &&
                       (warnings.contains("Изменения канала завершилось неудачно") ||
                        warnings.contains(
                            "Добавление тега завершилось неудачно, на сервере произошла ошибка"))) {
                sinceFailure.start();
            } else if (sinceKill.isValid() && ((sinceFailure.isValid() && sinceFailure.hasExpired(500)) ||
                                               sinceKill.hasExpired(60000))) {
                QWidget* modal = QApplication::activeModalWidget();
                stayedOpen = modal && modal->objectName() == "ProgressBar";
                monitor.stop();
                emit s.w.signalCloseProgressBar(0);
            }
        });
        monitor.start(20);
        s.w.on_add_tag_action_triggered();
        QVERIFY2(sinceFailure.isValid(), "the series never gave up on the dead gateway");
        QVERIFY(stayedOpen);
        gateway.waitForFinished(5000);
        printed += QString::fromUtf8(gateway.readAll());
        s.watcher.clear(); // a refused exchange call is told in a box, a refused add only in the log

        // The tags the gateway accepted stay here, but for one whose answer may
        // never have come, plus one appended before a refused exchange call; a
        // local paste still works.
        const uint accepted = printed.count("Метод addNode: Good");
        QVERIFY2(accepted >= 20 && accepted < 500, qPrintable(QString::number(accepted)));
        QVERIFY(group->size() >= 2 + accepted && group->size() <= 4 + accepted);
        s.select(s.node("Channel_0"));
        s.w.on_copy_action_triggered();
        s.w.on_paste_action_triggered();

        // The file keeps the whole tree.
        const QString saved = dir.filePath("saved.cfg");
        s.watcher.answerFile(saved);
        s.w.on_save_action_triggered();
        QVERIFY(!MainWindowProbe::dirty(s.w));
        CTreeItemRoot reloaded;
        QVERIFY(CCsvLoader(&reloaded).Load(saved.toStdString(), false));
        QCOMPARE(reloaded.size(), 3u);
        QCOMPARE(reloaded.GetItemsCount(itTag), MainWindowProbe::root(s.w).GetItemsCount(itTag));
    }
};

QTEST_MAIN(GatewayFaultsTest)
#include "tst_gatewayfaults.moc"
