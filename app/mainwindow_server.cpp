// Starting and stopping the gateway process, and what it prints.
#include "app/mainwindow.h"

#include "app/logging.h"
#include "app/serveroutputdialog.h"
#include "opcua/opcuawrapper.h"
#include "ui_mainwindow.h"

#include <QLabel>
#include <QMessageBox>
#include <QProcess>

namespace {

const int kProcessWait = 30000;

} // namespace

void MainWindow::on_run_server_action_triggered() {}

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
    m_serverOutput += QString::fromUtf8(m_serverProcess->readAllStandardOutput());
}

void MainWindow::on_showOutput_action_triggered()
{
    if (m_serverProcess->state() != QProcess::Running) {
        QMessageBox::warning(this, "Ошибка", "Сервер не запущен!");
        VLOG_WARNING().noquote() << "Сервер не запущен!";
        return;
    }
    ServerOutputDialog dialog(this);
    dialog.Init(m_serverOutput);
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
}
