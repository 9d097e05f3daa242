// Tree and property view: rows from nodes, what a selection shows, context
// menus and double clicks.
#include "app/mainwindow.h"

#include "model/channeldata.h"
#include "model/dataginfo.h"
#include "model/devicedata.h"
#include "model/deviceinfo.h"
#include "model/groupdata.h"
#include "ui_mainwindow.h"
#include "views/cliptooltipdelegate.h"
#include "views/tablemodelmonitoring.h"
#include "views/tablemodelvariable.h"

#include <QHeaderView>
#include <QMenu>
#include <QScrollBar>

namespace {

QString groupFullName(CItem* group)
{
    CItem* device = group->GetParent();
    CItem* channel = device->GetParent();
    return QString("%1.%2.%3")
        .arg(QString::fromStdString(channel->GetName()), QString::fromStdString(device->GetName()),
             QString::fromStdString(group->GetName()));
}

QTableWidgetItem* readOnlyCell(const QString& text)
{
    auto* cell = new QTableWidgetItem(text);
    cell->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
    return cell;
}

} // namespace

void ItemInit(CItem* item)
{
    switch (item->GetType()) {
    case itChannel:
    case itGroup:
        break;
    case itDevice:
        static_cast<CDeviceInfo*>(item)->Init();
        break;
    case itTag:
        static_cast<CDATagInfo*>(item)->Init();
        return;
    default:
        return;
    }
    for (auto& child : *item)
        ItemInit(child.second);
}

int MainWindow::CreateTreeItems(CItem* item, QTreeWidgetItem* parent)
{
    QTreeWidgetItem* row = addTreeRow(item, parent);
    // A group's children are tags, which have no rows: a large tree would be
    // walked through all of them for nothing.
    if (row && item->GetType() != itGroup) {
        for (auto& child : *item)
            CreateTreeItems(child.second, row);
    }
    return 0;
}

QTreeWidgetItem* MainWindow::addTreeRow(CItem* item, QTreeWidgetItem* parent)
{
    // One icon object per kind, shared by all rows: a large tree is rebuilt
    // at every open.
    static const QIcon channelIcon(":/res/images/res/channel.png");
    static const QIcon deviceIcon(":/res/images/res/device.png");
    static const QIcon groupIcon(":/res/images/res/group.png");
    int type;
    const QIcon* icon;
    switch (item->GetType()) {
    case itChannel:
        type = TreeItemChannel;
        icon = &channelIcon;
        break;
    case itDevice:
        type = TreeItemDevice;
        icon = &deviceIcon;
        break;
    case itGroup:
        type = TreeItemGroup;
        icon = &groupIcon;
        m_groups[groupFullName(item)] = item;
        break;
    default:
        return nullptr;
    }
    auto* row = new QTreeWidgetItem(parent, type);
    row->setText(0, QString::fromStdString(item->GetName()));
    row->setIcon(0, *icon);
    m_treeItems[row] = item;
    return row;
}

void MainWindow::selectNewRow(QTreeWidgetItem* row)
{
    row->parent()->setExpanded(true);
    ui->treeWidget->clearSelection();
    row->setSelected(true);
}

QTreeWidgetItem* MainWindow::selectedRow() const
{
    const QList<QTreeWidgetItem*> selected = ui->treeWidget->selectedItems();
    return selected.isEmpty() ? nullptr : selected.first();
}

CItem* MainWindow::nodeOf(QTreeWidgetItem* row) const
{
    const auto found = m_treeItems.find(row);
    return found == m_treeItems.end() ? nullptr : found->second;
}

QTreeWidgetItem* MainWindow::createRootRow()
{
    auto* rootRow = new QTreeWidgetItem(TreeItemRoot);
    rootRow->setText(0, "Каналы");
    rootRow->setIcon(0, QIcon(":/res/images/res/channels.png"));
    m_treeItems[rootRow] = &m_root;
    return rootRow;
}

void MainWindow::fillPropertyTable(const StrProps& props)
{
    ui->tableWidget->setRowCount(int(props.size()));
    for (int i = 0; i < int(props.size()); ++i) {
        ui->tableWidget->setItem(i, 0, readOnlyCell(QString::fromStdString(props[i].first)));
        ui->tableWidget->setItem(i, 1, readOnlyCell(QString::fromStdString(props[i].second)));
    }
}

void MainWindow::showPropertiesOnly()
{
    ui->tabWidget->setCurrentIndex(0);
    ui->tabWidget->setTabEnabled(1, false);
    ui->tabWidget->setTabEnabled(2, false);
}

void MainWindow::on_treeWidget_itemSelectionChanged()
{
    refreshDiagnostics();
    ui->tableWidget->clearContents();
    ui->tableWidget->verticalHeader()->setVisible(false);
    ui->tableWidget->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    ui->tableWidget->horizontalHeader()->setStretchLastSection(true);

    for (QTreeWidgetItem* row : ui->treeWidget->selectedItems()) {
        // A row the map doesn't know has no node: it shows nothing.
        CItem* node = nodeOf(row);
        if (!node)
            continue;
        switch (row->type()) {
        case TreeItemRoot:
            setEnabledToolbar(TreeItemRoot);
            ui->tableWidget->setRowCount(2);
            ui->tableWidget->setItem(0, 0, readOnlyCell("Файл конфигурации"));
            ui->tableWidget->setItem(0, 1, readOnlyCell(m_configPath));
            ui->tableWidget->setItem(1, 0, readOnlyCell("Количество каналов"));
            ui->tableWidget->setItem(1, 1, readOnlyCell(QString::number(m_root.size())));
            showPropertiesOnly();
            break;
        case TreeItemChannel:
            setEnabledToolbar(TreeItemChannel);
            fillPropertyTable(CChannelData(node).GetStrProps());
            showPropertiesOnly();
            break;
        case TreeItemDevice:
            setEnabledToolbar(TreeItemDevice);
            fillPropertyTable(CDeviceData(node).GetStrProps());
            showPropertiesOnly();
            break;
        case TreeItemGroup: {
            setEnabledToolbar(TreeItemGroup);
            if (!m_monitoredTreeItem || m_monitoredTreeItem == row)
                ui->monitoring_action->setEnabled(true);
            const StrProps props = CGroupData(node).GetStrProps();
            if (props.empty())
                return;
            fillPropertyTable(props);
            // The tag count is given as the cell's item type, so the cell shows
            // no text; that is how the program has always shown it.
            for (int i = 0; i < int(props.size()); ++i)
                if (props[i].first == "Кол-во тегов")
                    ui->tableWidget->setItem(i, 1, new QTableWidgetItem(int(node->size())));
            const QString name = groupFullName(node);
            m_tagModel->setNameGroup(name);
            m_tagModel->setMapItem(m_groups);
            m_monitoringModel->setNameGroup(name);
            m_monitoringModel->setMapItem(m_groups);
            // Its values are kept from now on, not from the next refresh.
            muteUnshown();
            ui->tableView->reset();
            ui->tableView_2->reset();
            ClipTooltipDelegate::fitColumns(ui->tableView);
            ClipTooltipDelegate::fitColumns(ui->tableView_2);
            // Values and their quality arrive after the fit: keep room for a
            // long number and for the longest usual status name.
            ClipTooltipDelegate::reserveColumn(ui->tableView_2, 1, QStringLiteral("-1234567.123456e-123"));
            ClipTooltipDelegate::reserveColumn(ui->tableView_2, 2, QStringLiteral("BadCommunicationError"));
            // A group shows from its tags' names, wherever the last one was scrolled to.
            ui->tableView->horizontalScrollBar()->setValue(0);
            ui->tableView_2->horizontalScrollBar()->setValue(0);
            ui->tabWidget->setTabEnabled(1, true);
            ui->tabWidget->setTabEnabled(2, true);
            break;
        }
        default:
            break;
        }
    }
}

QList<QString> MainWindow::findKeysContainingSubstring(std::map<QString, CItem*>& map, const QString& sub)
{
    QList<QString> keys;
    for (const auto& entry : map)
        if (entry.first.indexOf(sub) != -1)
            keys << entry.first;
    return keys;
}

void MainWindow::on_treeWidget_customContextMenuRequested(const QPoint& pos)
{
    if (m_monitoring)
        return;
    // Empty space, or a row without a node: no menu.
    QTreeWidgetItem* row = ui->treeWidget->itemAt(pos);
    if (!row || !nodeOf(row))
        return;

    QMenu menu(this);
    switch (row->type()) {
    case TreeItemRoot:
        menu.addAction(QIcon(":/res/images/res/channel_add.png"), "Добавить канал", this,
                       &MainWindow::on_add_channel_action_triggered);
        break;
    case TreeItemChannel:
        menu.addAction(QIcon(":/res/images/res/device_add.png"), "Добавить устройство", this,
                       &MainWindow::on_add_device_action_triggered);
        break;
    case TreeItemDevice:
        menu.addAction(QIcon(":/res/images/res/group_add.png"), "Добавить группу", this,
                       &MainWindow::on_add_group_action_triggered);
        break;
    case TreeItemGroup:
        menu.addAction(QIcon(":/res/images/res/tag_add.png"), "Добавить тег", this,
                       &MainWindow::on_add_tag_action_triggered);
        break;
    default:
        break;
    }
    if (row->type() != TreeItemRoot) {
        menu.addSeparator();
        menu.addAction("Редактировать", this, &MainWindow::on_edit_action_triggered);
        menu.addAction(QIcon(":/res/images/res/delete.png"), "Удалить", this,
                       &MainWindow::on_delete_action_triggered);
        menu.addSeparator();
        menu.addAction("Копировать", QKeySequence("Ctrl+C"), this, &MainWindow::on_copy_action_triggered);
        menu.addAction("Вставить", QKeySequence("Ctrl+V"), this, &MainWindow::on_paste_action_triggered);
    }
    menu.exec(ui->treeWidget->mapToGlobal(pos));
}

void MainWindow::tableWidget_2_customContextMenuRequested(const QPoint& pos)
{
    if (m_monitoring)
        return;
    // Built anew each time and opened with popup, so it deletes itself on close.
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->addAction("Добавить", this, &MainWindow::on_add_tag_action_triggered);
    menu->addSeparator();
    menu->addAction(QIcon(":/res/images/res/tag_add.png"), "Редактировать", this,
                    &MainWindow::tag_edit_action_triggered);
    menu->addAction(QIcon(":/res/images/res/delete.png"), "Удалить", this,
                    &MainWindow::tag_delete_action_triggered);
    menu->addSeparator();
    menu->addAction("Копировать", this, &MainWindow::tag_copy_action_triggered);
    menu->addAction("Вставить", this, &MainWindow::tag_paste_action_triggered);
    menu->popup(ui->tableView->viewport()->mapToGlobal(pos));
}

void MainWindow::slotEditItemTableDoubleClick()
{
    if (!m_monitoring)
        on_edit_action_triggered();
}

void MainWindow::slotEditTagTableDoubleClick()
{
    if (!m_monitoring)
        tag_edit_action_triggered();
}
