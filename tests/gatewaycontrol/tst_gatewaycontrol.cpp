#include "app/mainwindow.h"
#include "gatewayprocess.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/mainwindowprobe.h"
#include "tests/common/modalwatcher.h"

#include <QLabel>
#include <QSpinBox>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTextBrowser>
#include <QtTest>

// Starts the bundled gateway from the menu command, the way a user does:
// this test runs from the program's own folder, beside server/server.
class GatewayControlTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    static QString statusText(MainWindow& w) { return w.statusBar()->findChild<QLabel*>()->text(); }

private slots:
    void startConnectShowStop()
    {
        const QString config = m_dir.filePath("worked_example.cfg");
        QVERIFY(QFile::copy(QString(VELMORA_TEST_DATA) + "/worked_example.cfg", config));
        ModalWatcher watcher;
        MainWindow w;
        w.show();
        MainWindowProbe::configPath(w) = config;
        const quint16 port = GatewayProcess::freePort();

        watcher.answer([port](QWidget* dialog) {
            dialog->findChild<QSpinBox*>("portBox")->setValue(port);
            QMetaObject::invokeMethod(dialog, "accept");
        });
        w.on_run_server_action_triggered();
        QCOMPARE(statusText(w), QString("Сервер не запущен Сервер запущен"));
        QVERIFY(MainWindowProbe::connected(w) && MainWindowProbe::client(w) &&
                MainWindowProbe::client(w)->connected);
        // The start used the open file: no reload, and the parameters are in its tail.
        QCOMPARE(MainWindowProbe::configPath(w), config);

        // What the gateway printed is kept and shown.
        QTRY_VERIFY_WITH_TIMEOUT(MainWindowProbe::serverOutput(w).contains(QString::number(port)), 10000);
        QString shown;
        watcher.answer([&shown](QWidget* dialog) {
            shown = dialog->findChild<QTextBrowser*>("textBrowser")->toPlainText();
            QMetaObject::invokeMethod(dialog, "accept");
        });
        w.on_showOutput_action_triggered();
        QCOMPARE(shown, MainWindowProbe::serverOutput(w));

        // Starting again asks about a restart; No leaves the gateway alone.
        watcher.answer(QMessageBox::No);
        w.on_run_server_action_triggered();
        QCOMPARE(watcher.seen().last().text,
                 QString("Сервер уже запущен, перезапустить с новыми настройками?"));
        QVERIFY(MainWindowProbe::connected(w));

        watcher.answer(QMessageBox::Ok);
        w.on_stop_server_action_triggered();
        QCOMPARE(watcher.seen().last().text, QString("Сервер успешно остановлен!"));
        QCOMPARE(statusText(w), QString(" Сервер не запущен"));
        QVERIFY(!MainWindowProbe::connected(w) && !MainWindowProbe::client(w));
        QVERIFY(MainWindowProbe::serverOutput(w).isEmpty());
        QCOMPARE(watcher.unexpectedCount(), 0);
    }
};

QTEST_MAIN(GatewayControlTest)
#include "tst_gatewaycontrol.moc"
