// Item commands on channels, devices and groups.
#include "app/mainwindow.h"

#include "ui_mainwindow.h"

void MainWindow::on_add_channel_action_triggered()
{
}

void MainWindow::on_edit_action_triggered()
{
}

void MainWindow::on_delete_action_triggered()
{
}

void MainWindow::on_copy_action_triggered()
{
}

void MainWindow::on_paste_action_triggered()
{
}

void MainWindow::on_add_device_action_triggered()
{
}

void MainWindow::on_add_group_action_triggered()
{
}

void MainWindow::slotInfoChannel(QList<QString>, bool)
{
}

void MainWindow::slotInfoDevice(QList<QString>, bool)
{
}

void MainWindow::slotInfoGroup(QList<QString>, bool)
{
}
