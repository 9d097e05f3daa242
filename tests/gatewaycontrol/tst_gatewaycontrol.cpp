#include "app/mainwindow.h"
#include "config/csvimporter.h"
#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"
#include "views/tablemodelmonitoring.h"

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QSpinBox>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <QTreeWidget>
#include <QtTest>

// One working day of an engineer, end to end with the bundled gateway started from the menu (this
// test runs from the program's own folder, beside server/server): open the plant, start the
// gateway, add a tag on the running gateway, watch it live, stop the gateway and save.
class GatewayControlTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    static void trigger(MainWindow& w, const char* action) { w.findChild<QAction*>(action)->trigger(); }
    static QString statusText(MainWindow& w) { return w.statusBar()->findChild<QLabel*>()->text(); }

private slots:
    void initTestCase()
    {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    }

    void openStartAddWatchStopSave()
    {
        const QString plant = m_dir.filePath("plant.cfg");
        QVERIFY(QFile::copy(QString(VELMORA_EXAMPLES) + "/plant.cfg", plant));
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        watcher.answerFile(plant);
        trigger(w, "open_action");
        const uint tagsBefore = MainWindowProbe::root(w).GetItemsCount(itTag);
        QVERIFY(tagsBefore >= 300);

        const quint16 port = GatewayProcess::freePort();
        watcher.answer([port](QWidget* dialog) {
            dialog->findChild<QSpinBox*>("portBox")->setValue(port);
            QMetaObject::invokeMethod(dialog, "accept");
        });
        trigger(w, "run_server_action");
        QCOMPARE(statusText(w), QString("Сервер не запущен Сервер запущен"));
        QVERIFY(MainWindowProbe::connected(w) && MainWindowProbe::client(w)->connected);
        // The start used the open file: no reload.
        QCOMPARE(MainWindowProbe::configPath(w), plant);

        // What the gateway printed is kept and shown.
        QTRY_VERIFY_WITH_TIMEOUT(MainWindowProbe::serverOutput(w).contains(QString::number(port)), 10000);
        QString shown;
        watcher.answer([&shown](QWidget* dialog) {
            shown = dialog->findChild<QTextBrowser*>("textBrowser")->toPlainText();
            QMetaObject::invokeMethod(dialog, "accept");
        });
        trigger(w, "showOutput_action");
        QCOMPARE(shown, MainWindowProbe::serverOutput(w));

        // Starting again asks about a restart; No leaves the gateway alone.
        watcher.answer(QMessageBox::No);
        trigger(w, "run_server_action");
        QCOMPARE(watcher.seen().last().text,
                 QString("Сервер уже запущен, перезапустить с новыми настройками?"));
        QVERIFY(MainWindowProbe::connected(w));

        // A new tag in the boilers' analog group, on the running gateway too.
        auto* tree = w.findChild<QTreeWidget*>("treeWidget");
        const auto groups = tree->findItems("Аналоговые", Qt::MatchExactly | Qt::MatchRecursive);
        QVERIFY(!groups.isEmpty());
        tree->setCurrentItem(groups.first());
        watcher.answer([](QWidget* dialog) {
            dialog->findChild<QLineEdit*>("nameEdit")->setText("Новый_тег");
            QMetaObject::invokeMethod(dialog, "accept");
        });
        trigger(w, "add_tag_action");
        QTRY_COMPARE(MainWindowProbe::root(w).GetItemsCount(itTag), tagsBefore + 1);

        // Watch the group: every tag arrives with good quality, the new one too,
        // which it only can if the running gateway has its node.
        trigger(w, "monitoring_action");
        TableModelMonitoring* model = MainWindowProbe::monitoringModel(w);
        QVERIFY(MainWindowProbe::monitoring(w) && model->rowCount() >= 8);
        for (int r = 0; r < model->rowCount(); ++r)
            QTRY_COMPARE_WITH_TIMEOUT(model->data(model->index(r, 2)).toString(), QString("Good"), 10000);
        trigger(w, "monitoring_action");

        watcher.answer(QMessageBox::Ok);
        trigger(w, "stop_server_action");
        QCOMPARE(watcher.seen().last().text, QString("Сервер успешно остановлен!"));
        QCOMPARE(statusText(w), QString(" Сервер не запущен"));
        QVERIFY(!MainWindowProbe::connected(w) && !MainWindowProbe::client(w));
        QVERIFY(MainWindowProbe::serverOutput(w).isEmpty());

        const QString saved = m_dir.filePath("plant-evening.cfg");
        watcher.answerFile(saved);
        trigger(w, "save_action");
        QVERIFY(!MainWindowProbe::dirty(w));
        CTreeItemRoot reread;
        QVERIFY(CCsvLoader(&reread).Load(saved.toStdString(), false));
        QCOMPARE(reread.GetItemsCount(itTag), tagsBefore + 1);
        QCOMPARE(watcher.unexpectedCount(), 0);
    }
};

QTEST_MAIN(GatewayControlTest)
#include "tst_gatewaycontrol.moc"
