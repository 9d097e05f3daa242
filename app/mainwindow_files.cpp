// File commands: open, save, import, export.
#include "app/mainwindow.h"

#include "ui_mainwindow.h"

void MainWindow::on_open_action_triggered()
{
}

void MainWindow::on_save_action_triggered()
{
}

void MainWindow::on_action_export_conf_triggered()
{
}

void MainWindow::on_action_import_conf_triggered()
{
}
