#include "app/guithread.h"
#include "app/logging.h"
#include "app/mainwindow.h"
#include "app/qttranslation.h"
#include "dialogs/dialogchoosecertificate.h"
#include "model/usernotifier.h"

#include <QApplication>
#include <QDir>
#include <QMessageBox>
#include <QMetaType>
#include <QStringList>

int main(int argc, char* argv[])
{
    qRegisterMetaType<QStringList>("QStringList");

    // The log comes before the application object so that even Qt's start-up
    // messages reach the file.
    QDir().mkpath(logFolderPath());
    openLogFile();
    qInstallMessageHandler(messageHandler);

    QApplication app(argc, argv);
    installQtTranslation(app);
    MainWindow window;
    // Boxes that the model and file code raise, shown over the window on the GUI thread.
    CUserNotifier::Install([&window](const QString& title, const QString& text) {
        GuiThread::run([&] { QMessageBox::warning(&window, title, text); });
    });
    // A secured connection asks for its certificate files through this dialog,
    // on the GUI thread whichever thread connects.
    DialogChooseCertificate::InstallAsCertificateChooser();
    window.show();
    VLOG_INFO().noquote() << "Приложение запущено";
    return app.exec();
}
