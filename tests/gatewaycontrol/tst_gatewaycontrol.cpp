#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/session.h"

#include <QtTest>
#include <QtWidgets>

// The bundled gateway started from the menu on the plant example, as a user does it: this test
// runs from the program's own folder, beside server/server.
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

    void startShowRestartAndStop()
    {
        const QString plant = m_dir.filePath("plant.cfg");
        QVERIFY(QFile::copy(QString(VELMORA_EXAMPLES) + "/plant.cfg", plant));
        Session s(plant);
        ModalWatcher& watcher = s.watcher;
        MainWindow& w = s.w;

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

        watcher.answer(QMessageBox::Ok);
        trigger(w, "stop_server_action");
        QCOMPARE(watcher.seen().last().text, QString("Сервер успешно остановлен!"));
        QCOMPARE(statusText(w), QString(" Сервер не запущен"));
        QVERIFY(!MainWindowProbe::connected(w) && !MainWindowProbe::client(w));
        QVERIFY(MainWindowProbe::serverOutput(w).isEmpty());
    }
};

QTEST_MAIN(GatewayControlTest)
#include "tst_gatewaycontrol.moc"
