// Connection to a server and live monitoring.
#include "app/mainwindow.h"

#include "ui_mainwindow.h"

void MainWindow::on_action_triggered()
{
}

void MainWindow::on_monitoring_action_triggered()
{
}

void MainWindow::slotDataChange(QList<QVariant>)
{
}

void MainWindow::slotDisconnect()
{
}
