// Tree and property view: selection, context menus, double clicks.
#include "app/mainwindow.h"

#include "ui_mainwindow.h"

void MainWindow::on_treeWidget_itemSelectionChanged()
{
}

void MainWindow::on_treeWidget_customContextMenuRequested(const QPoint&)
{
}

void MainWindow::tableWidget_2_customContextMenuRequested(const QPoint&)
{
}

void MainWindow::slotEditItemTableDoubleClick()
{
}

void MainWindow::slotEditTagTableDoubleClick()
{
}
