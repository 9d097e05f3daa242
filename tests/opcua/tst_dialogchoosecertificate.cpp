#include "dialogs/dialogchoosecertificate.h"
#include "opcua/opcuawrapper.h"
#include "tests/common/modalwatcher.h"
#include "tests/opcua/testopcuaserver.h"

#include <QFile>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <thread>

namespace {

QString editText(QWidget* dialog, const char* name)
{
    auto* edit = dialog->findChild<QLineEdit*>(name);
    return edit ? edit->text() : QString("<no %1>").arg(name);
}

void click(QWidget* dialog, const char* name)
{
    if (auto* button = dialog->findChild<QPushButton*>(name))
        button->click();
}

// The file system model of the chooser loads in the background, so the name is typed, as a user would.
void typeAndAccept(QFileDialog* chooser, const QString& path)
{
    if (auto* edit = chooser->findChild<QLineEdit*>("fileNameEdit"))
        edit->setText(path);
    static_cast<QDialog*>(chooser)->accept();
}

} // namespace

class TstDialogChooseCertificate : public QObject
{
    Q_OBJECT
private slots:
    void layoutAndTexts();
    void incompleteInputStaysOpenThenCancel();
    void presetPathsConfirmed();
    void choosersFillOrKeepTheFields();
    void chooserHookRunsDialogForWorker();
};

void TstDialogChooseCertificate::layoutAndTexts()
{
    DialogChooseCertificate dialog(nullptr);
    QCOMPARE(dialog.windowTitle(), QString("Настройка сертификатов"));
    QCOMPARE(dialog.findChild<QPushButton*>("pushButton")->text(), QString("ОК"));
    QCOMPARE(dialog.findChild<QPushButton*>("pushButton_2")->text(), QString("Отмена"));
    for (const char* name : {"certFileButton", "keyFileButton", "clientCertButton"})
        QCOMPARE(dialog.findChild<QPushButton*>(name)->text(), QString("..."));
    QStringList captions;
    for (QLabel* label : dialog.findChildren<QLabel*>())
        captions << label->text();
    captions.sort();
    QCOMPARE(captions,
             QStringList({"Каталог доверенных сертификатов клиентов", "Файл приватного ключа сервера (*.pem)",
                          "Файл сертификата сервера (*.der)"}));
    QVERIFY(dialog.certificatePath.isEmpty() && dialog.keyPath.isEmpty() && dialog.trustPath.isEmpty());
}

void TstDialogChooseCertificate::incompleteInputStaysOpenThenCancel()
{
    ModalWatcher watcher;
    DialogChooseCertificate dialog(nullptr);
    dialog.setPaths("/c.der", "", "/trust");
    bool stillOpen = false;
    watcher.answer([&](QWidget* w) {
        click(w, "pushButton"); // returns once the warning has been answered
        stillOpen = w->isVisible();
        click(w, "pushButton_2");
    });
    watcher.answer(QMessageBox::Ok);
    QCOMPARE(dialog.exec(), int(QDialog::Rejected));
    QVERIFY(stillOpen);
    QCOMPARE(watcher.seen().size(), 2);
    QCOMPARE(watcher.seen().at(1).title, QString("Внимание"));
    QCOMPARE(watcher.seen().at(1).text, QString("Заполните все поля"));
    // What was copied stays, and the empty field tells the caller to give up.
    QCOMPARE(dialog.certificatePath, QString("/c.der"));
    QVERIFY(dialog.keyPath.isEmpty());
    QCOMPARE(dialog.trustPath, QString("/trust"));
}

void TstDialogChooseCertificate::presetPathsConfirmed()
{
    ModalWatcher watcher;
    DialogChooseCertificate dialog(nullptr);
    dialog.setPaths("/p/Сертификат.der", "/p/key.pem", "/p/trust");
    QStringList shown;
    watcher.answer([&](QWidget* w) {
        shown << editText(w, "certFileEdit") << editText(w, "keyFileEdit") << editText(w, "clientCertEdit");
        click(w, "pushButton");
    });
    QCOMPARE(dialog.exec(), int(QDialog::Accepted));
    QCOMPARE(shown, QStringList({"/p/Сертификат.der", "/p/key.pem", "/p/trust"}));
    QCOMPARE(dialog.certificatePath, QString("/p/Сертификат.der"));
    QCOMPARE(dialog.keyPath, QString("/p/key.pem"));
    QCOMPARE(dialog.trustPath, QString("/p/trust"));
    QCOMPARE(watcher.unexpectedCount(), 0);
}

void TstDialogChooseCertificate::choosersFillOrKeepTheFields()
{
    QTemporaryDir dir;
    const QString certFile = dir.filePath("client.der");
    QFile file(certFile);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();

    ModalWatcher watcher;
    DialogChooseCertificate dialog(nullptr);
    dialog.setPaths("", "/old/key.pem", "");
    QStringList filters;
    watcher.answer([&](QWidget* w) {
        auto* chooser = qobject_cast<QFileDialog*>(w);
        QVERIFY(chooser);
        filters = chooser->nameFilters();
        typeAndAccept(chooser, certFile);
    });
    click(&dialog, "certFileButton");
    QCOMPARE(filters, QStringList({"Файл сертификата сервера MODBUS (*.der)", "Все файлы (*.*)"}));
    QCOMPARE(editText(&dialog, "certFileEdit"), certFile);

    watcher.answer([](QWidget* w) { qobject_cast<QDialog*>(w)->reject(); });
    click(&dialog, "keyFileButton");
    QCOMPARE(editText(&dialog, "keyFileEdit"), QString("/old/key.pem"));

    bool dirsOnly = false;
    watcher.answer([&](QWidget* w) {
        auto* chooser = qobject_cast<QFileDialog*>(w);
        QVERIFY(chooser);
        dirsOnly =
            chooser->fileMode() == QFileDialog::Directory && chooser->testOption(QFileDialog::ShowDirsOnly);
        typeAndAccept(chooser, dir.path());
    });
    click(&dialog, "clientCertButton");
    QVERIFY(dirsOnly);
    QCOMPARE(QDir(editText(&dialog, "clientCertEdit")), QDir(dir.path()));
    QCOMPARE(watcher.seen().at(0).title, QString("Открыть файл"));
    QCOMPARE(watcher.seen().at(2).title, QString("Открыть каталог"));
}

// The automatic connection asks from a worker thread; the dialog must still come up on the GUI thread.
void TstDialogChooseCertificate::chooserHookRunsDialogForWorker()
{
    DialogChooseCertificate::InstallAsCertificateChooser();
    OPCUAWrapper wrapper;
    const QString url = QStringLiteral("opc.tcp://127.0.0.1:%1").arg(TestOpcUaServer::freePort());
    QCOMPARE(wrapper.findServers(url), 1);
    QSignalSpy log(&wrapper, &OPCUAWrapper::signalSetLogDlgSearchDevice);

    ModalWatcher watcher;
    bool onGuiThread = false;
    QString shownCert;
    watcher.answer([&](QWidget* w) {
        onGuiThread = w->thread() == qApp->thread();
        shownCert = editText(w, "certFileEdit");
        click(w, "pushButton_2");
    });
    wrapper.pathCertificate = "/known.der";
    std::atomic<int> result{-1};
    std::thread worker([&] {
        result = wrapper.connectToServer(url, "http://opcfoundation.org/UA/SecurityPolicy#Basic256 (Sign)",
                                         false, 1, "", "");
    });
    QTRY_VERIFY(result != -1);
    worker.join();
    QCOMPARE(result.load(), 1);
    QVERIFY(onGuiThread);
    QCOMPARE(shownCert, QString("/known.der"));
    QCOMPARE(log.size(), 0);

    // Confirmed paths are taken over and the connection goes ahead (and fails here).
    watcher.answer([](QWidget* w) {
        w->findChild<QLineEdit*>("certFileEdit")->setText("/chosen/c.der");
        w->findChild<QLineEdit*>("keyFileEdit")->setText("/chosen/k.pem");
        w->findChild<QLineEdit*>("clientCertEdit")->setText("/chosen/trust");
        click(w, "pushButton");
    });
    result = -1;
    std::thread second([&] { result = wrapper.connectToServer(url, "x (None)", false, 2, "u", "p"); });
    QTRY_VERIFY(result != -1);
    second.join();
    QCOMPARE(result.load(), 1);
    QCOMPARE(wrapper.pathCertificate, QString("/chosen/c.der"));
    QCOMPARE(wrapper.pathTrustList, QString("/chosen/trust"));
    QTRY_VERIFY(!log.isEmpty());
    QVERIFY(log.last().first().toString().startsWith("Не удалось подключиться к конечной точке. Код ошибки"));
    QCOMPARE(watcher.unexpectedCount(), 0);
    OPCUAWrapper::SetCertificateChooser(nullptr);
}

QTEST_MAIN(TstDialogChooseCertificate)
#include "tst_dialogchoosecertificate.moc"
