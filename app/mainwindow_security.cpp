// Certificates and users.
#include "app/mainwindow.h"

#include "ui_mainwindow.h"

void MainWindow::on_create_certiifcates_triggered()
{
}

void MainWindow::on_action_addUsers_triggered()
{
}
