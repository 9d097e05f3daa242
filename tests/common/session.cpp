#include "tests/common/session.h"

#include "tests/common/mainwindowprobe.h"
#include "views/tablemodelvariable.h"

#include <QDialog>
#include <QLineEdit>
#include <QTableView>
#include <QTreeWidget>

Session::Session(const QString& config)
{
    w.show();
    watcher.answerFile(config);
    w.on_open_action_triggered();
}

CItem* Session::node(const QString& fullName)
{
    CItem* at = &MainWindowProbe::root(w);
    for (const QString& name : fullName.split('.'))
        at = at ? at->FindChildByName(name.toUtf8().constData()) : nullptr;
    return at;
}

QTreeWidget* Session::tree()
{
    return requireChild<QTreeWidget>(&w, "treeWidget");
}

QTreeWidgetItem* Session::row(CItem* node)
{
    if (!node)
        return tree()->topLevelItem(0);
    for (const auto& entry : MainWindowProbe::treeItems(w))
        if (entry.second == node)
            return entry.first;
    return nullptr;
}

void Session::select(CItem* node)
{
    tree()->clearSelection();
    tree()->setCurrentItem(row(node));
}

void Session::selectRows(const QList<int>& rows)
{
    QItemSelectionModel* selection = requireChild<QTableView>(&w, "tableView")->selectionModel();
    selection->clearSelection();
    for (int r : rows)
        selection->select(MainWindowProbe::tagModel(w)->index(r, 0),
                          QItemSelectionModel::Select | QItemSelectionModel::Rows);
}

void Session::accept(const std::function<void(QWidget*)>& edit)
{
    watcher.answer([edit](QWidget* d) {
        if (edit)
            edit(d);
        if (auto* dialog = qobject_cast<QDialog*>(d))
            dialog->accept();
    });
}

std::function<void(QWidget*)> Session::rename(const QString& name)
{
    return [name](QWidget* d) { requireChild<QLineEdit>(d, "nameEdit")->setText(name); };
}
