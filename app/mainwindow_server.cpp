// Starting and stopping the gateway process, and what it prints.
#include "app/mainwindow.h"

#include "app/logging.h"
#include "app/serveroutputdialog.h"
#include "config/runparameters.h"
#include "dialogs/runpreparedialog.h"
#include "opcua/opcuawrapper.h"
#include "opcua/searchopcuaserver.h"
#include "ui_mainwindow.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QLabel>
#include <QMessageBox>
#include <QProcess>

namespace {

const int kProcessWait = 30000;

} // namespace

void MainWindow::on_run_server_action_triggered()
{
    if (m_dirty && askQuestion("Перед запуском сервера cохранить изменения настроек?",
                               QMessageBox::Ok | QMessageBox::Cancel) == QMessageBox::Ok)
        on_save_action_triggered();
    if (m_serverProcess->state() == QProcess::Running) {
        if (askQuestion("Сервер уже запущен, перезапустить с новыми настройками?",
                        QMessageBox::Ok | QMessageBox::No) != QMessageBox::Ok)
            return;
        on_stop_server_action_triggered();
    }

    RunPrepareDialog prepare(this);
    connect(&prepare, &RunPrepareDialog::signalRunServer, this, &MainWindow::slotRunServer);
    prepare.Init(m_configPath, m_derPath, m_pemPath, m_trustDir);
    if (prepare.exec() != 1)
        return;

    const QString program = QCoreApplication::applicationDirPath() + "/server/server";
    if (!QFileInfo::exists(program)) {
        QMessageBox::warning(this, "Ошибка", "При запуске сервера произошла ошибка! Файл сервера не найден");
        VLOG_WARNING().noquote() << "При запуске сервера произошла ошибка! Файл сервера не найден";
        return;
    }
    const QList<QString> arguments = prepare.parameters().mid(0, 7);
    if (saveParametrsStartServer(prepare.parameters()) != 0)
        VLOG_WARNING().noquote() << "Не удалось записать параметры запуска в файл " + arguments.value(0);

    m_serverProcess->start(program, arguments, QIODevice::ReadWrite);
    m_serverProcess->waitForStarted(kProcessWait);
    if (m_serverProcess->state() != QProcess::Running) {
        QMessageBox::warning(this, "Ошибка", "При запуске сервера произошла ошибка!");
        VLOG_WARNING().noquote() << "При запуске сервера произошла ошибка!";
        return;
    }

    auto* search = new SearchOPCUAServer(m_dialogConnected, this, {}, {}, nullptr);
    connect(search, &SearchOPCUAServer::signalDisconnect, this, &MainWindow::slotDisconnect);
    search->setPathCerts(m_derPath, m_pemPath, m_trustDir);
    m_client = search->getOPCUAWrapper();
    connectClientValues();
    m_foundServers = search->getServersDlg();
    m_foundEndpoints = search->getEndpointsDlg();
    const QString port = prepare.port();
    runBusy([search, port, this] { search->autoConnect(port, m_connected); }, search);
    refreshDiagnostics();

    VLOG_INFO().noquote() << "Сервер успешно запущен! Настройки сохранены в файл " + arguments.value(0);
    // A gateway that died on its own left the loss on the status line; this
    // start replaces it as a stop would have.
    clearConnectionLoss(" Сервер не запущен");
    m_statusLabel->setText(m_statusLabel->text() + " Сервер запущен");
    if (arguments.value(0) != m_configPath) {
        m_configPath = arguments.value(0);
        const QString path = m_configPath;
        runBusy([this, path] { openCSVFile(path); });
    }
    VLOG_INFO().noquote() << "Успешно подключились к серверу!";
}

int MainWindow::saveParametrsStartServer(QList<QString> args)
{
    return CRunParameters::Save(args);
}

void MainWindow::slotRunServer(QString dirTrust, QString der, QString pem)
{
    m_derPath = der;
    m_pemPath = pem;
    m_trustDir = dirTrust;
}

void MainWindow::slotServerOutput()
{
    if (m_serverProcess->state() != QProcess::Running)
        return;
    m_serverOutput.append(m_serverProcess->readAllStandardOutput());
}

void MainWindow::on_showOutput_action_triggered()
{
    if (m_serverProcess->state() != QProcess::Running) {
        QMessageBox::warning(this, "Ошибка", "Сервер не запущен!");
        VLOG_WARNING().noquote() << "Сервер не запущен!";
        return;
    }
    ServerOutputDialog dialog(this);
    dialog.Init(m_serverOutput.shown());
    dialog.exec();
}

void MainWindow::on_stop_server_action_triggered()
{
    if (m_serverProcess->state() != QProcess::Running) {
        QMessageBox::warning(this, "Внимание", "Сервер уже остановлен");
        VLOG_WARNING().noquote() << "Сервер уже остановлен!";
        return;
    }
    if (m_monitoring)
        on_monitoring_action_triggered();
    // An automatic connection leaves the flag down: the process is killed under it.
    if (m_dialogConnected) {
        m_client->disconnectToServer();
        m_client->autoConnecting = false;
    }
    m_dialogConnected = false;

    m_serverProcess->kill();
    m_serverProcess->waitForFinished(kProcessWait);
    if (m_serverProcess->state() == QProcess::Running) {
        QMessageBox::warning(this, "Ошибка", "При остановке сервера произошла ошибка!");
        VLOG_WARNING().noquote() << "При остановке сервера произошла ошибка!";
        return;
    }
    QMessageBox::information(this, "Успешно", "Сервер успешно остановлен!");
    VLOG_INFO().noquote() << "Сервер успешно остановлен!";

    m_monitoring = false;
    m_client = nullptr;
    m_connected = false;
    m_statusLabel->clear();
    m_statusLabel->setText(" Сервер не запущен");
    m_serverOutput.clear();
    refreshDiagnostics();
}
