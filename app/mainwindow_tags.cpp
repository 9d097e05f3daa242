// Tag commands. Tags have no tree rows: they are rows of the tag table, whose
// models only hear of inserted and removed rows; the data stays in the tree.
// While connected, each change goes to the server as well.
#include "app/mainwindow.h"

#include "app/guithread.h"
#include "app/logging.h"
#include "app/progressbar.h"
#include "dialogs/tagsetupdialog.h"
#include "model/dataginfo.h"
#include "opcua/opcuawrapper.h"
#include "ui_mainwindow.h"
#include "views/tablemodelmonitoring.h"
#include "views/tablemodelvariable.h"

#include <QAbstractButton>
#include <QMessageBox>

#include <algorithm>

namespace {

void warn(QWidget* parent, const QString& text)
{
    QMessageBox::warning(parent, "Внимание", text);
    VLOG_WARNING().noquote() << text;
}

QString fullName(CItem* item)
{
    std::string name;
    item->GetFullName(name);
    return QString::fromStdString(name);
}

// A table row is the tag's position in its group's child order, whatever
// order the table shows.
CItem* tagAtRow(CItem* group, int row)
{
    if (row < 0 || row >= int(group->size()))
        return nullptr;
    return std::next(group->begin(), row)->second;
}

} // namespace

CItem* MainWindow::selectedGroup()
{
    QTreeWidgetItem* row = selectedRow();
    return row && row->type() == TreeItemGroup ? nodeOf(row) : nullptr;
}

void MainWindow::on_add_tag_action_triggered()
{
    CItem* group = selectedGroup();
    if (!group)
        return;

    auto* tag = new CDATagInfo;
    tag->SetParent(group);
    tag->IncrementName(group);
    tag->Init();
    m_infoTag << fullName(group) << "4";

    TagSetupDialog dialog(tag, false, this);
    dialog.Init();
    connect(&dialog, &TagSetupDialog::signalInfoTag, this, &MainWindow::slotInfoTag);
    connect(&dialog, &TagSetupDialog::signalInfoCountTag, this, &MainWindow::slotInfoCountTag);
    if (dialog.exec() != QDialog::Accepted) {
        // The two leading entries stay; the next add appends behind them.
        delete tag;
        return;
    }

    ProgressBar bar;
    connect(this, &MainWindow::signalSetLabelProgressBar, &bar, &ProgressBar::slotSetLabelProgressBar);
    connect(this, &MainWindow::signalCloseProgressBar, &bar, &ProgressBar::slotCloseProgressBar);
    runInBackground([this, group, tag] { threadAddTags(group, tag); });
    emit signalSetLabelProgressBar("Выполняется добавление тегов, пожалуйста, подождите...");
    bar.exec();
}

void MainWindow::threadAddTags(CItem* group, CDATagInfo* tag)
{
    // The window may learn of a lost session while this runs and let go of the
    // client; the worker keeps its own pointer and asks the client itself.
    OPCUAWrapper* client = m_connected ? m_client : nullptr;
    const QString groupName = fullName(group);
    const QString exchangeFailed = "Изменения канала завершилось неудачно";
    // The worker's boxes are shown on the GUI thread, which waits in the busy
    // dialog meanwhile; the worker waits for the answer.
    auto warnFromWorker = [this](const QString& text) {
        GuiThread::run([this, text] { QMessageBox::warning(this, "Внимание", text); });
        VLOG_WARNING().noquote() << text;
    };

    CDATagInfo* model = nullptr;
    for (int counter = 0;;) {
        if (!group->AppendChild(tag)) {
            VLOG_WARNING().noquote()
                << "Добавление тега завершилось неудачно, не удалось добавить дочерний элемент в группу";
            m_infoTag.clear();
            delete tag;
        } else {
            // The server's exchange stops around each single tag, so it never
            // polls a group while the group changes.
            if (client && client->connected) {
                client->exchangeRunning = true;
                const bool stopped = client->callMethodStartStopExchange();
                const bool added = stopped && client->callAddNode(m_infoTag);
                const bool restarted = added && client->callMethodStartStopExchange();
                // A call that failed on a session lost meanwhile leaves this tag,
                // and the rest of the series, in the tree only.
                if (!restarted && client->connected) {
                    if (stopped && !added) {
                        VLOG_WARNING().noquote()
                            << "Добавление тега завершилось неудачно, на сервере произошла ошибка";
                        m_infoTag.clear();
                        group->DeleteChild(tag);
                        return;
                    }
                    m_dirty = m_dirty || added;
                    warnFromWorker(exchangeFailed);
                    return;
                }
            }
            m_dirty = true;
            m_infoTag.clear();
            model = tag;
        }

        ++counter;
        if (counter >= m_tagCount || !model) {
            emit signalTagAdd(m_tagCount, 0);
            return;
        }

        tag = new CDATagInfo(model);
        tag->SetParent(group);
        tag->Init();
        tag->IncrementName(group);
        tag->MakeNextSettings();

        // Only the gateway's add call reads the list.
        if (client)
            m_infoTag << nextTagInfo(groupName, tag);
    }
}

QList<QString> MainWindow::nextTagInfo(const QString& group, const CDATagInfo* tag)
{
    return {group,
            "4",
            QString::fromStdString(tag->GetName()),
            QString::number(tag->RegType),
            QString::number(tag->Addr),
            QString::number(tag->ValType),
            QString::number(tag->ByteOrder),
            QString::number(tag->bRead ? 1 : 0),
            QString::number(tag->bWrite ? 1 : 0),
            QString::number(tag->bWriteGroup ? 1 : 0),
            QString::number(tag->RegsInSegment),
            QString::number(tag->SegmentPos),
            QString::number(tag->TransformType),
            QString::number(tag->TransformType),
            QString::number(tag->EmulType),
            QString::number(tag->EmulType)};
}

QList<QString> MainWindow::pastedTagInfo(CItem* clone)
{
    return {fullName(clone), "4"};
}

void MainWindow::slotTagAdd(int count, int res)
{
    if (res != 0)
        emit signalCloseProgressBar(res);
    m_tagModel->insertRows(1, count, QModelIndex());
    m_monitoringModel->insertRows(1, count, QModelIndex());
    ui->tabWidget->setCurrentIndex(1);
    on_treeWidget_itemSelectionChanged();
    emit signalCloseProgressBar(res);
}

void MainWindow::tag_edit_action_triggered()
{
    CItem* group = selectedGroup();
    if (!group || !ui->tableView->selectionModel())
        return;
    const QModelIndexList rows = ui->tableView->selectionModel()->selectedRows(0);
    if (rows.isEmpty())
        return;
    // Found by the name shown, so a sorted table still reaches the right tag.
    const QString name = m_tagModel->data(m_tagModel->index(rows.first().row(), 0)).toString();
    auto* tag = static_cast<CDATagInfo*>(group->FindChildByName(name.toUtf8().constData()));
    if (!tag)
        return;
    m_infoTag << fullName(tag) << "4";

    TagSetupDialog dialog(tag, true, this);
    dialog.Init();
    connect(&dialog, &TagSetupDialog::signalInfoTag, this, &MainWindow::slotInfoTag);
    if (dialog.exec() != QDialog::Accepted)
        return;

    if (m_connected && m_client) {
        if (!m_client->callEditNode(m_infoTag)) {
            warn(this, "Изменение тега завершилось неудачно");
            m_infoTag.clear();
            return;
        }
        m_dirty = true;
    }
    m_infoTag.clear();

    // The child map is keyed by name: the tag goes in again under its new
    // name. A name that is taken already leaves it out of the group.
    group->PopChild(tag);
    group->AppendChild(tag);
    if (group->FindChildByName(tag->GetName().c_str()) != tag) {
        m_clipboard.erase(std::remove(m_clipboard.begin(), m_clipboard.end(), tag), m_clipboard.end());
        delete tag;
    }
    // A new name moves the tag in the child order: the tables follow it.
    on_treeWidget_itemSelectionChanged();
}

void MainWindow::tag_delete_action_triggered()
{
    QTreeWidgetItem* row = selectedRow();
    if (!row)
        return;
    if (row->type() != TreeItemGroup) {
        delete row;
        return;
    }
    CItem* group = selectedGroup();
    if (!group || !ui->tableView->selectionModel())
        return;
    const QModelIndexList indexes = ui->tableView->selectionModel()->selectedRows(0);
    if (indexes.isEmpty())
        return;

    QMessageBox question(this);
    question.setWindowTitle("Удаление");
    question.setText("Внимание!");
    question.setInformativeText("Вы действительно хотите удалить выбранные теги?");
    question.setIcon(QMessageBox::Question);
    question.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
    question.button(QMessageBox::Yes)->setText("Да");
    question.button(QMessageBox::No)->setText("Нет");
    question.setDefaultButton(QMessageBox::Yes);
    question.setWindowIcon(QIcon(":/res/images/res/delete.png"));
    if (question.exec() != QMessageBox::Yes)
        return;

    QList<int> rows;
    std::vector<CItem*> doomed;
    for (const QModelIndex& index : indexes) {
        CItem* tag = tagAtRow(group, index.row());
        if (!tag)
            continue;
        if (m_connected && m_client) {
            if (!m_client->callDeleteNode(QList<QString>{fullName(tag)})) {
                // The server keeps its deletions so far; nothing goes locally.
                warn(this, "Удаление ноды завершилось неудачно");
                return;
            }
            m_dirty = true;
        }
        rows << index.row();
        doomed.push_back(tag);
    }
    for (CItem* tag : doomed) {
        m_clipboard.erase(std::remove(m_clipboard.begin(), m_clipboard.end(), tag), m_clipboard.end());
        tag->Delete();
    }

    bool runOfRows = true;
    for (int i = 1; i < rows.size(); ++i)
        if (rows[i] != rows[i - 1] + 1)
            runOfRows = false;
    if (!rows.isEmpty() && runOfRows) {
        m_tagModel->removeRows(rows.first(), int(rows.size()), QModelIndex());
        m_monitoringModel->removeRows(rows.first(), int(rows.size()), QModelIndex());
    } else {
        for (int i = int(rows.size()) - 1; i >= 0; --i) {
            m_tagModel->removeRows(rows[i], 1, QModelIndex());
            m_monitoringModel->removeRows(rows[i], 1, QModelIndex());
        }
    }

    if (m_tagModel->rowCount() == 0)
        ui->treeWidget->setFocus();
    on_treeWidget_itemSelectionChanged();
}

void MainWindow::tag_copy_action_triggered()
{
    CItem* group = selectedGroup();
    if (!group)
        return;
    m_clipboard.clear();
    if (!ui->tableView->selectionModel())
        return;
    const QModelIndexList rows = ui->tableView->selectionModel()->selectedRows(0);
    if (rows.isEmpty())
        return;
    // One tag only, however many rows are selected.
    if (CItem* tag = tagAtRow(group, rows.first().row()))
        m_clipboard.push_back(tag);
}

void MainWindow::tag_paste_action_triggered()
{
    CItem* node = nodeOf(selectedRow());
    if (!node)
        return;
    CItem* host = GetHostElement(node, itGroup);
    if (!host)
        return;

    const bool single = m_clipboard.size() == 1;
    for (CItem* entry : m_clipboard) {
        CItem* clone = pasteCopy(host, entry, single);
        if (!clone)
            continue;
        m_infoTag << pastedTagInfo(clone);
        if (m_connected && m_client) {
            if (!m_client->callAddNode(m_infoTag)) {
                warn(this, "Добавление тега завершилось неудачно, на сервере произошла ошибка");
                m_infoTag.clear();
                host->DeleteChild(clone);
                return;
            }
            m_dirty = true;
        }
        m_tagModel->insertRows(1, 1, QModelIndex());
        m_monitoringModel->insertRows(1, 1, QModelIndex());
        ItemInit(clone);
        clone->AllChildren(ItemInit);
    }
    on_treeWidget_itemSelectionChanged();
}

void MainWindow::slotInfoTag(QList<QString> info, bool flagSaveEnable)
{
    m_infoTag.append(info);
    m_dirty = flagSaveEnable;
}

void MainWindow::slotInfoCountTag(int count)
{
    m_tagCount = count;
}
