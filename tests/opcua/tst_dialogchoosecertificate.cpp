#include "dialogs/dialogchoosecertificate.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/modalwatcher.h"
#include "tests/server/gatewayprocess.h"

#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

#include <atomic>
#include <thread>

namespace {

void click(QWidget* dialog, const char* name)
{
    dialog->findChild<QPushButton*>(name)->click();
}

} // namespace

class TstDialogChooseCertificate : public QObject
{
    Q_OBJECT
private slots:
    void okNeedsAllThreeFields();
    void chooserHookRunsDialogForWorker();
};

void TstDialogChooseCertificate::okNeedsAllThreeFields()
{
    ModalWatcher watcher;
    DialogChooseCertificate dialog(nullptr);
    dialog.setPaths("/c.der", "", "/trust");
    bool stillOpen = false;
    watcher.answer([&](QWidget* w) {
        click(w, "clientCertButton"); // a cancelled chooser keeps the text
        click(w, "pushButton");       // returns once the warning has been answered
        stillOpen = w->isVisible();
        click(w, "pushButton_2");
    });
    watcher.answer([](QWidget* w) { qobject_cast<QDialog*>(w)->reject(); });
    watcher.answer(QMessageBox::Ok);
    QCOMPARE(dialog.exec(), int(QDialog::Rejected));
    QVERIFY(stillOpen);
    QCOMPARE(watcher.seen().at(1).title, QString("Открыть каталог"));
    QCOMPARE(watcher.seen().at(2).text, QString("Заполните все поля"));
    // What was copied stays; the empty field tells the caller to give up.
    QCOMPARE(QStringList({dialog.certificatePath, dialog.keyPath, dialog.trustPath}),
             QStringList({"/c.der", "", "/trust"}));
    QCOMPARE(watcher.unexpectedCount(), 0);
}

// The automatic connection asks from a worker thread; the dialog must still run on the GUI thread.
void TstDialogChooseCertificate::chooserHookRunsDialogForWorker()
{
    DialogChooseCertificate::InstallAsCertificateChooser();
    OPCUAWrapper wrapper;
    const QString url = QStringLiteral("opc.tcp://127.0.0.1:%1").arg(GatewayProcess::freePort());
    QCOMPARE(wrapper.findServers(url), 1);
    QSignalSpy log(&wrapper, &OPCUAWrapper::signalSetLogDlgSearchDevice);
    wrapper.pathCertificate = "/known.der";

    ModalWatcher watcher;
    bool onGuiThread = false;
    QString shown;
    watcher.answer([&](QWidget* w) {
        onGuiThread = QThread::currentThread() == qApp->thread();
        shown = w->findChild<QLineEdit*>("certFileEdit")->text();
        click(w, "pushButton_2");
    });
    watcher.answer([](QWidget* w) {
        w->findChild<QLineEdit*>("keyFileEdit")->setText("/chosen/k.pem");
        w->findChild<QLineEdit*>("clientCertEdit")->setText("/chosen/trust");
        click(w, "pushButton");
    });
    std::atomic<int> cancelled{-1}, confirmed{-1};
    std::thread worker([&] {
        cancelled = wrapper.connectToServer(url, "p (Sign)", false, 1, "", "");
        confirmed = wrapper.connectToServer(url, "p (Sign)", false, 2, "u", "p");
    });
    QTRY_VERIFY(confirmed != -1);
    worker.join();
    QVERIFY(onGuiThread);
    QCOMPARE(shown, QString("/known.der"));
    QCOMPARE(cancelled.load(), 1);
    // Confirmed paths (all three filled) are taken over and the connection goes
    // ahead (and fails here).
    QCOMPARE(confirmed.load(), 1);
    QCOMPARE(QStringList({wrapper.pathCertificate, wrapper.pathPrivateKey, wrapper.pathTrustList}),
             QStringList({"/known.der", "/chosen/k.pem", "/chosen/trust"}));
    QCOMPARE(log.size(), 1);
    OPCUAWrapper::SetCertificateChooser(nullptr);
}

QTEST_MAIN(TstDialogChooseCertificate)
#include "tst_dialogchoosecertificate.moc"
