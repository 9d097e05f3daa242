#pragma once

#include "app/mainwindow.h"
#include "tests/common/modalwatcher.h"

class QTreeWidget;
class QTreeWidgetItem;

// The main window shown with a configuration opened through its open command, the
// watcher that answers its boxes, and the selections the commands act on.
struct Session
{
    explicit Session(const QString& config);

    // The node at a full name ("Channel_0.Device_0"), or null.
    CItem* node(const QString& fullName);
    QTreeWidget* tree();
    // The tree row of a node; null stands for the root row.
    QTreeWidgetItem* row(CItem* node);
    void select(CItem* node);
    // Selects whole rows of the tag table.
    void selectRows(const QList<int>& rows);
    // Queues a handler that lets `edit` change the next dialog, then accepts it.
    void accept(const std::function<void(QWidget*)>& edit = {});
    static std::function<void(QWidget*)> rename(const QString& name);

    ModalWatcher watcher;
    MainWindow w;
};
