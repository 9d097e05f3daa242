// Item commands on channels, devices and groups. While connected, each change
// goes to the server as well; the order of the local and the server steps
// differs per command and decides what is left behind when one of them fails.
#include "app/mainwindow.h"

#include "app/logging.h"
#include "dialogs/channelsetupdialog.h"
#include "dialogs/devicesetupdialog.h"
#include "dialogs/groupsetupdialog.h"
#include "model/cchannelinfo.h"
#include "model/dataconversion.h"
#include "model/deviceinfo.h"
#include "model/groupinfo.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"
#include "opcua/opcuawrapper.h"
#include "ui_mainwindow.h"
#include "views/tablemodelmonitoring.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QSet>
#include <QTreeWidgetItemIterator>

#include <algorithm>

namespace {

const char* const kServerParent = "Каналы";

void warn(QWidget* parent, const QString& text, bool log)
{
    QMessageBox::warning(parent, "Внимание", text);
    if (log)
        VLOG_WARNING().noquote() << text;
}

QString fullName(CItem* item)
{
    std::string name;
    item->GetFullName(name);
    return QString::fromStdString(name);
}

QString shortName(const CItem* item)
{
    return QString::fromStdString(item->GetName());
}

// The serial number of a port and the TCP address share one place in the port
// record; the channel commands read and write that place whatever the port is.
uint32_t* portNumber(CChannelInfo* channel)
{
    if (!channel || !channel->Port)
        return nullptr;
    if (auto* com = dynamic_cast<CPortIO_COMInfo*>(channel->Port))
        return &com->ComNo;
    if (auto* tcp = dynamic_cast<CPortIO_TCPInfo*>(channel->Port))
        return &tcp->IP;
    return nullptr;
}

// AppendChild answers true also when the name is taken and the child stays out.
bool isInserted(CItem* parent, CItem* child)
{
    return parent->FindChildByName(child->GetName().c_str()) == child;
}

// Takes a node out of its parent after a refusal, or frees it if it never got in.
void dropChild(CItem* parent, CItem* child)
{
    if (!parent->DeleteChild(child))
        delete child;
}

// The local half of an add. AppendChild refuses a child only on a broken
// link; a child that duplicates a sibling, or whose name is taken, stays out
// and is freed. failed opens each message: "Добавление … завершилось неудачно, ".
bool insertChecked(QWidget* window, CItem* parent, CItem* child, QList<QString>& info, const QString& failed,
                   const QString& notAppended)
{
    const bool appended = parent->AppendChild(child);
    if (appended && parent->HasChildDublicate(child, nullptr)) {
        warn(window, failed + "обнаружен дубликат", false);
        info.clear();
        dropChild(parent, child);
        return false;
    }
    if (!appended || !isInserted(parent, child)) {
        warn(window, failed + "не удалось добавить дочерний элемент" + notAppended, true);
        info.clear();
        delete child;
        return false;
    }
    return true;
}

void rekey(std::map<QString, CItem*>& map, const QString& from, const QString& to)
{
    auto entry = map.extract(from);
    if (entry.empty())
        return;
    entry.key() = to;
    map.insert(std::move(entry));
}

} // namespace

void MainWindow::on_add_channel_action_triggered()
{
    QTreeWidgetItem* rootRow = ui->treeWidget->topLevelItem(0);
    if (!rootRow || rootRow->type() != TreeItemRoot)
        return;

    auto* channel = new CChannelInfo;
    channel->SetParent(&m_root);
    channel->IncrementName(&m_root);
    channel->Init();
    if (!m_root.empty()) {
        uint32_t* last = portNumber(static_cast<CChannelInfo*>(m_root.rbegin()->second));
        uint32_t* next = portNumber(channel);
        if (last && next)
            *next = *last + 1;
    }
    m_infoChannel << kServerParent << "1";

    ChannelSetupDialog dialog(channel, this);
    dialog.Init();
    connect(&dialog, &ChannelSetupDialog::signalInfoChannel, this, &MainWindow::slotInfoChannel);
    if (dialog.exec() != 1) {
        // The list keeps its two entries: the next add appends behind them.
        delete channel;
        return;
    }

    if (!insertChecked(this, &m_root, channel, m_infoChannel, "Добавление канала завершилось неудачно, ", ""))
        return;
    if (m_connected && m_client) {
        if (!m_client->callAddNode(m_infoChannel)) {
            warn(this, "Добавление канала завершилось неудачно, на сервере произошла ошибка", true);
            m_infoChannel.clear();
            m_root.DeleteChild(channel);
            return;
        }
        m_dirty = true;
    }

    selectNewRow(addTreeRow(channel, rootRow));
    m_configOpen = true;
    setEnabledToolbar(TreeItemChannel);
    m_infoChannel.clear();
}

void MainWindow::on_add_device_action_triggered()
{
    QTreeWidgetItem* channelRow = selectedRow();
    if (channelRow && channelRow->type() == TreeItemDevice)
        channelRow = channelRow->parent();
    else if (channelRow && channelRow->type() == TreeItemGroup)
        channelRow = channelRow->parent() ? channelRow->parent()->parent() : nullptr;
    CItem* channel = nodeOf(channelRow);
    if (!channel || channel->GetType() != itChannel)
        return;

    auto* device = new CDeviceInfo;
    device->SetParent(channel);
    device->IncrementName(channel);
    device->Init();
    if (!channel->empty())
        device->Addr = uint8_t(static_cast<CDeviceInfo*>(channel->rbegin()->second)->Addr + 1);
    m_infoDevice << shortName(channel) << "2";

    DeviceSetupDialog dialog(device, this);
    dialog.Init();
    connect(&dialog, &DeviceSetupDialog::signalInfoDevice, this, &MainWindow::slotInfoDevice);
    if (dialog.exec() != 1) {
        delete device;
        return;
    }

    if (!insertChecked(this, channel, device, m_infoDevice, "Добавление устройства завершилось неудачно, ",
                       " в канал"))
        return;
    if (m_connected && m_client) {
        if (!m_client->callAddNode(m_infoDevice)) {
            warn(this, "Добавление устройства завершилось неудачно, на сервере произошла ошибка", true);
            m_infoDevice.clear();
            channel->DeleteChild(device);
            return;
        }
        m_dirty = true;
    }

    selectNewRow(addTreeRow(device, channelRow));
    m_infoDevice.clear();
}

void MainWindow::on_add_group_action_triggered()
{
    QTreeWidgetItem* deviceRow = selectedRow();
    if (deviceRow && deviceRow->type() == TreeItemGroup)
        deviceRow = deviceRow->parent();
    CItem* device = nodeOf(deviceRow);
    if (!device || device->GetType() != itDevice)
        return;

    auto* group = new CGroupInfo;
    group->SetParent(device);
    group->IncrementName(device);
    group->Init();
    m_infoGroup << fullName(device) << "3";

    GroupSetupDialog dialog(group, this);
    dialog.Init();
    connect(&dialog, &GroupSetupDialog::signalInfoGroup, this, &MainWindow::slotInfoGroup);
    if (dialog.exec() != 1) {
        delete group;
        return;
    }

    // Here the server hears of the group before it is checked locally; a
    // local refusal below leaves the server's group in place.
    if (m_connected && m_client) {
        if (!m_client->callAddNode(m_infoGroup)) {
            warn(this, "Добавление группы завершилось неудачно, на сервере произошла ошибка", true);
            m_infoGroup.clear();
            delete group;
            return;
        }
        m_dirty = true;
    }
    if (!insertChecked(this, device, group, m_infoGroup, "Добавление группы завершилось неудачно, ",
                       " в устройство"))
        return;

    selectNewRow(addTreeRow(group, deviceRow));
    m_infoGroup.clear();
}

void MainWindow::on_edit_action_triggered()
{
    QTreeWidgetItem* row = selectedRow();
    if (!row)
        return;
    CItem* node = nodeOf(row);
    const bool connected = m_connected && m_client;

    // Ends an edit that went through: the row takes the new name from the list.
    auto finish = [this, row](QList<QString>& info) {
        if (info.size() > 2)
            row->setText(0, info.at(2));
        info.clear();
        on_treeWidget_itemSelectionChanged();
    };

    if (node && row->type() == TreeItemGroup) {
        auto* group = static_cast<CGroupInfo*>(node);
        const QString oldFull = fullName(group);
        const std::string oldShort = group->GetName();
        m_infoGroup << oldFull << "3";
        GroupSetupDialog dialog(group, this);
        dialog.Init();
        connect(&dialog, &GroupSetupDialog::signalInfoGroup, this, &MainWindow::slotInfoGroup);
        if (dialog.exec() == 1) {
            if (group->GetParent()->HasChildDublicate(group, nullptr)) {
                warn(this, "Изменения группы завершилось неудачно, обнаружен дубликат", false);
                group->SetName(oldShort);
                m_infoGroup.clear();
                return;
            }
            if (connected) {
                if (!m_client->callEditNode(m_infoGroup)) {
                    // The list keeps its entries; the next group command appends behind them.
                    warn(this, "Изменения группы завершилось неудачно", true);
                    return;
                }
                m_dirty = true;
            }
        }
        rekey(m_groups, oldFull, fullName(group));
        finish(m_infoGroup);
        return;
    }

    if (node && row->type() == TreeItemChannel) {
        auto* channel = static_cast<CChannelInfo*>(node);
        const QString oldName = shortName(channel);
        const uint32_t* number = portNumber(channel);
        const uint32_t oldNumber = number ? *number : 0;
        m_infoChannel << oldName << "1";
        ChannelSetupDialog dialog(channel, this);
        dialog.Init();
        connect(&dialog, &ChannelSetupDialog::signalInfoChannel, this, &MainWindow::slotInfoChannel);
        if (dialog.exec() == 1) {
            if (m_root.HasChildDublicate(channel, nullptr)) {
                warn(this, "Изменения канала завершилось неудачно, обнаружен дубликат", false);
                if (uint32_t* now = portNumber(channel))
                    *now = oldNumber;
                m_infoChannel.clear();
                return;
            }
            if (connected) {
                // The server's exchange is stopped around the edit, so it never
                // polls a channel while that channel changes.
                const QString failed = "Изменения канала завершилось неудачно";
                m_client->exchangeRunning = true;
                if (!m_client->callMethodStartStopExchange()) {
                    warn(this, failed, true);
                    return;
                }
                if (!m_client->callEditNode(m_infoChannel)) {
                    warn(this, failed, true);
                    return;
                }
                m_dirty = true;
                if (!m_client->callMethodStartStopExchange()) {
                    warn(this, failed, true);
                    return;
                }
            }
        }
        const QString newName = shortName(channel);
        for (const QString& key : findKeysContainingSubstring(m_groups, oldName)) {
            QStringList parts = key.split(".");
            parts[0] = newName;
            rekey(m_groups, key, parts.join("."));
        }
        finish(m_infoChannel);
        return;
    }

    if (node && row->type() == TreeItemDevice) {
        auto* device = static_cast<CDeviceInfo*>(node);
        const QString oldFull = fullName(device);
        const uint8_t oldAddr = device->Addr;
        m_infoDevice << oldFull << "2";
        DeviceSetupDialog dialog(device, this);
        dialog.Init();
        connect(&dialog, &DeviceSetupDialog::signalInfoDevice, this, &MainWindow::slotInfoDevice);
        if (dialog.exec() == 1) {
            if (device->GetParent()->HasChildDublicate(device, nullptr)) {
                warn(this, "Изменения устройства завершилось неудачно, обнаружен дубликат", false);
                device->Addr = oldAddr;
                m_infoDevice.clear();
                return;
            }
            if (connected) {
                if (!m_client->callEditNode(m_infoDevice)) {
                    warn(this, "Изменения устройства завершилось неудачно", true);
                    return;
                }
                m_dirty = true;
            }
        }
        const QString newFull = fullName(device);
        for (const QString& key : findKeysContainingSubstring(m_groups, oldFull)) {
            QStringList parts = key.split(".");
            parts.removeFirst();
            if (parts.isEmpty())
                continue;
            parts[0] = newFull;
            rekey(m_groups, key, parts.join("."));
        }
        finish(m_infoDevice);
        return;
    }

    on_treeWidget_itemSelectionChanged();
}

void MainWindow::on_delete_action_triggered()
{
    if (QApplication::focusWidget() == ui->tableView) {
        tag_delete_action_triggered();
        return;
    }
    QTreeWidgetItem* row = selectedRow();
    if (!row)
        return;
    if (row->type() == TreeItemRoot) {
        // Reached by the Delete key only: the row goes, the tree of nodes stays.
        delete row;
        return;
    }
    // A row the map doesn't know has no node: nothing to ask about.
    CItem* node = nodeOf(row);
    if (!node)
        return;

    QString what;
    switch (row->type()) {
    case TreeItemChannel:
        what = "выбранный канал";
        break;
    case TreeItemDevice:
        what = "выбранное устройство";
        break;
    default:
        what = "выбранную группу";
        break;
    }
    QMessageBox question(this);
    question.setWindowTitle("Удаление");
    question.setText("Внимание!");
    question.setInformativeText(QString("Вы действительно хотите удалить %1?").arg(what));
    question.setIcon(QMessageBox::Question);
    question.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
    question.button(QMessageBox::Yes)->setText("Да");
    question.button(QMessageBox::No)->setText("Нет");
    question.setDefaultButton(QMessageBox::Yes);
    question.setWindowIcon(QIcon(":/res/images/res/delete.png"));
    if (question.exec() != QMessageBox::Yes)
        return;

    const QString name = fullName(node);

    if (m_connected && m_client) {
        if (!m_client->callDeleteNode(QList<QString>{name})) {
            // The row goes, the node stays and is saved again with the next save.
            warn(this, "Удаление ноды завершилось неудачно", true);
            delete row;
            return;
        }
        m_dirty = true;
    }
    if (row->type() == TreeItemGroup) {
        m_groups.erase(name);
        if (m_monitoringModel)
            m_monitoringModel->cleanupOldGroups();
    }
    // A copied node that goes with this one can't be pasted any more.
    m_clipboard.erase(std::remove_if(m_clipboard.begin(), m_clipboard.end(),
                                     [node](CItem* entry) {
                                         for (CItem* up = entry; up; up = up->GetParent())
                                             if (up == node)
                                                 return true;
                                         return false;
                                     }),
                      m_clipboard.end());
    node->Delete();
    if (QTreeWidgetItem* parentRow = row->parent())
        parentRow->removeChild(row);
    delete row;
    m_treeItems.erase(row);
}

void MainWindow::on_copy_action_triggered()
{
    CItem* node = nodeOf(selectedRow());
    if (!node)
        return;
    // Only the pointer is kept; the clone is made by the paste.
    m_clipboard.clear();
    m_clipboard.push_back(node);
}

// A copy of a clipboard entry, appended under host. A single copy that can
// move on to settings of its own (a serial channel to the next free port, a tag
// to the next free address) keeps its name; any other gets "_Copy1", and then
// the next free number.
CItem* MainWindow::pasteCopy(CItem* host, CItem* entry, bool single)
{
    bool ok = true;
    CItem* clone = entry->Copy(ok);
    if (!clone)
        return nullptr;
    bool suffix = true;
    if (single) {
        for (;;) {
            if (!host->HasChildDublicate(clone, nullptr)) {
                suffix = false;
                break;
            }
            if (!clone->MakeNextSettings() || clone->IsDublicate(entry))
                break;
        }
    }
    std::string name = clone->GetName();
    if (suffix && name.find("_Copy") == std::string::npos)
        name += "_Copy1";
    while (host->FindChildByName(name.c_str()))
        name = DataConversion::IncrementName(name);
    clone->SetName(name);
    if (!host->AppendChild(clone)) {
        delete clone;
        return nullptr;
    }
    return clone;
}

void MainWindow::on_paste_action_triggered()
{
    CItem* node = nodeOf(selectedRow());
    if (m_clipboard.empty() || !node)
        return;
    CItem* host = GetHostElement(node, enItemType(m_clipboard.front()->GetType() - 1));
    if (!host)
        return;

    // The map can still hold rows that left the tree; only a live row will do.
    QSet<QTreeWidgetItem*> live;
    for (QTreeWidgetItemIterator it(ui->treeWidget); *it; ++it)
        live.insert(*it);
    QTreeWidgetItem* hostRow = nullptr;
    for (const auto& entry : m_treeItems) {
        if (entry.second == host && live.contains(entry.first)) {
            hostRow = entry.first;
            break;
        }
    }
    if (!hostRow)
        return;

    const bool single = m_clipboard.size() == 1;
    for (CItem* entry : m_clipboard) {
        CItem* clone = pasteCopy(host, entry, single);
        if (!clone)
            continue;
        ItemInit(clone);
        clone->AllChildren(ItemInit);
        CreateTreeItems(clone, hostRow);
    }
    m_clipboard.clear();
}

void MainWindow::slotInfoChannel(QList<QString> info, bool flagSaveEnable)
{
    m_infoChannel.append(info);
    m_dirty = flagSaveEnable;
}

void MainWindow::slotInfoDevice(QList<QString> info, bool flagSaveEnable)
{
    m_infoDevice.append(info);
    m_dirty = flagSaveEnable;
}

void MainWindow::slotInfoGroup(QList<QString> info, bool flagSaveEnable)
{
    m_infoGroup.append(info);
    m_dirty = flagSaveEnable;
}
