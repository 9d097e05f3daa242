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

class TstDialogChooseCertificate : public QObject
{
    Q_OBJECT
private slots:
    void chooserOnGuiThreadNeedsAllThreeFields();
};

// The automatic connection asks from a worker thread; the dialog must still run on the GUI thread.
void TstDialogChooseCertificate::chooserOnGuiThreadNeedsAllThreeFields()
{
    DialogChooseCertificate::InstallAsCertificateChooser();
    OPCUAWrapper wrapper;
    const QString url = QStringLiteral("opc.tcp://127.0.0.1:%1").arg(GatewayProcess::freePort());
    QCOMPARE(wrapper.findServers(url), 1);
    QSignalSpy log(&wrapper, &OPCUAWrapper::signalSetLogDlgSearchDevice);
    wrapper.pathCertificate = "/known.der";
    wrapper.pathTrustList = "/trust";

    auto field = [](QWidget* dialog, const char* name) { return dialog->findChild<QLineEdit*>(name); };
    auto click = [](QWidget* dialog, const char* name) { dialog->findChild<QPushButton*>(name)->click(); };
    ModalWatcher watcher;
    bool onGuiThread = false, stillOpen = false;
    QStringList shown;
    watcher.answer([&](QWidget* w) {
        onGuiThread = QThread::currentThread() == qApp->thread();
        click(w, "clientCertButton"); // a cancelled folder chooser keeps the text
        shown << field(w, "certFileEdit")->text() << field(w, "clientCertEdit")->text();
        click(w, "pushButton"); // the key is missing: returns once the warning has been answered
        stillOpen = w->isVisible();
        click(w, "pushButton_2");
    });
    watcher.answer([](QWidget* w) { qobject_cast<QDialog*>(w)->reject(); });
    watcher.answer(QMessageBox::Ok);
    watcher.answer([&](QWidget* w) {
        field(w, "keyFileEdit")->setText("/chosen/k.pem");
        field(w, "clientCertEdit")->setText("/chosen/trust");
        click(w, "pushButton");
    });
    std::atomic<int> cancelled{-1}, confirmed{-1};
    std::thread worker([&] {
        cancelled = wrapper.connectToServer(url, "p (Sign)", false, 1, "", "");
        confirmed = wrapper.connectToServer(url, "p (Sign)", false, 2, "u", "p");
    });
    QTRY_VERIFY_WITH_TIMEOUT(confirmed != -1, 15000);
    worker.join();
    QVERIFY(onGuiThread && stillOpen);
    QCOMPARE(shown, QStringList({"/known.der", "/trust"}));
    QCOMPARE(watcher.seen().at(1).title, QString("Открыть каталог"));
    QCOMPARE(watcher.seen().at(2).text, QString("Заполните все поля"));
    QCOMPARE(watcher.unexpectedCount(), 0);
    // An empty field makes the caller give up in silence; confirmed paths (all
    // three filled) are taken over and the connection goes ahead (and fails here).
    QCOMPARE(cancelled.load(), 1);
    QCOMPARE(confirmed.load(), 1);
    QCOMPARE(QStringList({wrapper.pathCertificate, wrapper.pathPrivateKey, wrapper.pathTrustList}),
             QStringList({"/known.der", "/chosen/k.pem", "/chosen/trust"}));
    QCOMPARE(log.size(), 1);
    OPCUAWrapper::SetCertificateChooser(nullptr);
}

QTEST_MAIN(TstDialogChooseCertificate)
#include "tst_dialogchoosecertificate.moc"
