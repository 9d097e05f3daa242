// Tag commands.
#include "app/mainwindow.h"

#include "ui_mainwindow.h"

void MainWindow::slotTagAdd(int, int)
{
}

void MainWindow::on_add_tag_action_triggered()
{
}

void MainWindow::tag_copy_action_triggered()
{
}

void MainWindow::tag_paste_action_triggered()
{
}

void MainWindow::tag_edit_action_triggered()
{
}

void MainWindow::tag_delete_action_triggered()
{
}

void MainWindow::slotInfoTag(QList<QString>, bool)
{
}

void MainWindow::slotInfoCountTag(int)
{
}
