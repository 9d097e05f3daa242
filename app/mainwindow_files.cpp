// File commands: open, save, import and export of the whole configuration.
#include "app/mainwindow.h"

#include "app/guithread.h"
#include "app/logging.h"
#include "app/progressbar.h"
#include "config/configwriter.h"
#include "config/csvimporter.h"
#include "ui_mainwindow.h"
#include "views/tablemodelmonitoring.h"
#include "views/tablemodelvariable.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>

#include <malloc.h>

namespace {

QString fileFilter(bool plain)
{
    return plain ? "Конфигурация OPC UA сервера MODBUS (*.csv);;Все файлы (*.*)"
                 : "Конфигурация OPC UA сервера MODBUS (*.cfg);;Все файлы (*.*)";
}

// Frees a tree nothing refers to any more and gives its memory back to the
// system: a large tree's nodes would otherwise stay with this process, to be
// sorted out by the next open's reading.
void freeTree(CTreeItemRoot& tree)
{
    tree.DeleteAllChildren();
    malloc_trim(0);
}

} // namespace

void MainWindow::runBusy(const std::function<void()>& work, QObject* owner)
{
    ProgressBar dialog(nullptr);
    // Every owner of a worker declares the same two signals.
    QObject* source = owner ? owner : this;
    connect(source, SIGNAL(signalCloseProgressBar(int)), &dialog, SLOT(slotCloseProgressBar(int)));
    connect(source, SIGNAL(signalSetLabelProgressBar(QString)), &dialog,
            SLOT(slotSetLabelProgressBar(QString)));
    std::thread t(work);
    t.detach();
    dialog.exec();
}

void MainWindow::on_open_action_triggered()
{
    const QString path =
        QFileDialog::getOpenFileName(this, "Открыть файл", QDir::currentPath(), fileFilter(m_plainFormat));
    if (path.isEmpty())
        return;
    m_configPath = path;
    runBusy([this] { openCSVFile(QString()); });
}

void MainWindow::openCSVFile(QString path)
{
    emit signalSetLabelProgressBar("Выполняется открытие конфигуарции, пожалуйста, подождите...");
    if (!path.isEmpty())
        m_configPath = path;
    // Nothing that leads to the old nodes may outlive them: the views read the
    // tree while this waits.
    GuiThread::run([this] { forgetNodes(); });
    // The tree being replaced is freed at the end, after the busy dialog has
    // been told to close: freeing a large tree takes a tenth of reading one,
    // and the window need not wait for it. Both trees are held meanwhile.
    // Nothing refers to the old nodes any more.
    CTreeItemRoot replaced;
    replaced.SwapChildren(m_root);

    CCsvLoader loader(&m_root);
    const bool loaded = loader.Load(m_configPath.toStdString(), m_plainFormat);

    // The rows are widgets: rebuilt on the GUI thread, in the same order. A
    // file read in part shows what was read, which is what a save would write.
    GuiThread::run([this, loaded] {
        ui->treeWidget->clear();
        m_treeItems.clear();
        m_groups.clear();
        // Built apart and put in at once: one insertion for the view, not one
        // for every row.
        QTreeWidgetItem* rootRow = createRootRow();
        for (auto& child : m_root)
            CreateTreeItems(child.second, rootRow);
        ui->treeWidget->addTopLevelItem(rootRow);
        rootRow->setSelected(true);
        rootRow->setExpanded(true);
        m_configOpen = true;
        setEnabledToolbar(TreeItemRoot);
        m_readStatusLabel->setText(
            loaded ? QString()
                   : QString(" Файл прочитан не полностью: %1").arg(QFileInfo(m_configPath).fileName()));
    });
    // Nothing has been changed since: the file on disk is still the whole one.
    m_dirty = false;
    emit signalCloseProgressBar(loaded ? 0 : 7);
    if (!loaded)
        VLOG_WARNING().noquote() << "Ошибка заполнения дерева, не верный формат файла";
    freeTree(replaced);
}

void MainWindow::forgetNodes()
{
    for (auto it = m_treeItems.begin(); it != m_treeItems.end();)
        it = it->second == &m_root ? std::next(it) : m_treeItems.erase(it);
    m_groups.clear();
    m_clipboard.clear();
    m_tagModel->setMapItem({});
    m_monitoringModel->setMapItem({});
}

void MainWindow::on_save_action_triggered()
{
    m_configPath =
        QFileDialog::getSaveFileName(this, "Сохранить файл", QDir::homePath(), fileFilter(m_plainFormat));
    if (m_configPath.isEmpty())
        return;
    runBusy([this] { saveConfig(); });
}

int MainWindow::saveConfig()
{
    emit signalSetLabelProgressBar("Выполняется сохранение конфигурации, пожалуйста, подождите...");
    const CConfigWriter::Result result = CConfigWriter::Save(m_root, m_configPath, m_plainFormat);
    if (result != CConfigWriter::Saved) {
        emit signalCloseProgressBar(result == CConfigWriter::NotWritten ? 12 : 13);
        VLOG_WARNING().noquote() << "Не удалось сохранить файл конфигурации";
        return result;
    }
    // An export leaves the changes unsaved: only the .cfg counts.
    if (!m_plainFormat)
        m_dirty = false;
    // The tree on show is now in a file whole.
    GuiThread::run([this] { m_readStatusLabel->clear(); });
    emit signalCloseProgressBar(0);
    return 0;
}

void MainWindow::on_action_export_conf_triggered()
{
    m_plainFormat = true;
    on_save_action_triggered();
    m_plainFormat = false;
}

void MainWindow::on_action_import_conf_triggered()
{
    m_plainFormat = true;
    on_open_action_triggered();
    m_plainFormat = false;
}
