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
// tag adds: the program has to finish the series in its own tree, stay usable
// and keep its data.
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

        // 500 tags asked for; the gateway is killed once it has taken 20. From the lost session on,
        // the rest of the series is added here only: the busy dialog closes by itself, with no box
        // (the watcher fails the test on one) and with no call waiting on the dead gateway.
        CItem* group = s.node("Channel_0.Device_0.Group_0");
        const uint before = group->size();
        s.select(group);
        s.accept([](QWidget* d) { requireChild<QWidget>(d, "spinBox_5")->setProperty("value", 500); });
        QString printed;
        QElapsedTimer sinceKill;
        bool waited = false;
        QTimer monitor;
        connect(&monitor, &QTimer::timeout, &s.w, [&] {
            printed += QString::fromUtf8(gateway.readAll());
            if (!sinceKill.isValid() && printed.count("Метод addNode: Good") >= 20) {
                gateway.kill();
                sinceKill.start();
            } else if (sinceKill.isValid() && sinceKill.hasExpired(60000)) {
                waited = true;
                monitor.stop();
                emit s.w.signalCloseProgressBar(0);
            }
        });
        monitor.start(20);
        s.w.on_add_tag_action_triggered();
        monitor.stop();
        QVERIFY2(sinceKill.isValid() && !waited, "the series waited on the dead gateway");
        QTRY_VERIFY_WITH_TIMEOUT(!MainWindowProbe::connected(s.w), 5000);
        gateway.waitForFinished(5000);
        printed += QString::fromUtf8(gateway.readAll());
        const QStringList warnings = CapturedLog::takeWarnings();
        QVERIFY2(warnings.filter("завершилось неудачно").isEmpty(), qPrintable(warnings.join("\n")));

        // Every tag is here, those the gateway took and the rest; a local paste still works.
        const uint accepted = printed.count("Метод addNode: Good");
        QVERIFY2(accepted >= 20 && accepted < 500, qPrintable(QString::number(accepted)));
        QCOMPARE(group->size(), before + 500);
        QVERIFY(MainWindowProbe::dirty(s.w));
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
