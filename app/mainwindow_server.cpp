// Starting and stopping the gateway process.
#include "app/mainwindow.h"

#include "ui_mainwindow.h"

void MainWindow::on_run_server_action_triggered()
{
}

void MainWindow::on_showOutput_action_triggered()
{
}

void MainWindow::on_stop_server_action_triggered()
{
}

void MainWindow::slotServerOutput()
{
}

void MainWindow::slotRunServer(QString, QString, QString)
{
}
