// Tools of the monitoring tab for commissioning: the trend of chosen tags and
// writing a value to a tag.
#include "app/mainwindow.h"

#include "app/logging.h"
#include "dialogs/writevaluedialog.h"
#include "opcua/opcuawrapper.h"
#include "ui_mainwindow.h"
#include "views/tablemodelmonitoring.h"
#include "views/trendview.h"

#include <QMenu>
#include <QMessageBox>
#include <QStatusBar>

#include <algorithm>
#include <iterator>

namespace {

// How long the status line shows the answer to a write.
const int kAnswerShownMs = 10000;
// The plot's share of the tab when it first appears, in fifths.
const int kPlotFifths = 3;

} // namespace

void MainWindow::setupCommissioning()
{
    ui->tableView_2->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(ui->tableView_2, &QWidget::customContextMenuRequested, this, &MainWindow::slotMonitoringMenu);
}

void MainWindow::slotMonitoringMenu(const QPoint& pos)
{
    QMenu menu(this);
    fillMonitoringMenu(menu, ui->tableView_2->indexAt(pos).row());
    if (!menu.isEmpty())
        menu.exec(ui->tableView_2->viewport()->mapToGlobal(pos));
}

QStringList MainWindow::monitoredNames(const QList<int>& rows)
{
    QStringList names;
    CItem* group = selectedGroup();
    if (!group)
        return names;
    for (int row : rows) {
        if (row < 0 || row >= int(group->size()))
            continue;
        std::string name;
        std::next(group->begin(), row)->second->GetFullName(name);
        names << QString::fromStdString(name);
    }
    return names;
}

void MainWindow::fillMonitoringMenu(QMenu& menu, int row)
{
    if (!m_monitoring || !m_client)
        return;
    // The selected rows, unless the click was on another one.
    QList<int> rows;
    for (const QModelIndex& index : ui->tableView_2->selectionModel()->selectedRows())
        rows << index.row();
    if (row >= 0 && !rows.contains(row))
        rows = {row};
    std::sort(rows.begin(), rows.end());

    TrendView* trend = ui->trendView;
    QStringList toShow, toRemove;
    for (const QString& name : monitoredNames(rows))
        (trend->shows(name) ? toRemove : toShow) << name;
    if (!toShow.isEmpty())
        menu.addAction("Показать на графике", this, [this, toShow] { showOnTrend(toShow); });
    if (!toRemove.isEmpty())
        menu.addAction("Убрать с графика", this, [trend, toRemove] {
            for (const QString& name : toRemove)
                trend->removeSeries(name);
        });

    // Only a tag the gateway lets write, in a type that a value can be typed in.
    const QStringList clicked = monitoredNames({row});
    if (clicked.isEmpty())
        return;
    const TagAccess access = m_client->readTagAccess(clicked.first());
    if (access.status != QLatin1String("Good"))
        VLOG_WARNING().noquote() << QStringLiteral("Не удалось прочитать доступ к тегу %1: %2")
                                        .arg(clicked.first(), access.status);
    if (!access.writable || !access.type.isValid())
        return;
    const QString current = m_monitoringModel->data(m_monitoringModel->index(row, 1)).toString();
    menu.addSeparator();
    menu.addAction("Записать значение…", this,
                   [this, name = clicked.first(), access, current] { writeValueTo(name, access, current); });
}

void MainWindow::showOnTrend(const QStringList& names)
{
    TrendView* trend = ui->trendView;
    const bool appears = trend->isHidden();
    for (const QString& name : names)
        if (!trend->addSeries(name)) {
            QMessageBox::warning(
                this, "Внимание",
                QStringLiteral("На графике помещается не больше %1 тегов.").arg(TrendView::kMaxSeries));
            break;
        }
    if (appears && !trend->isHidden()) {
        const int height = ui->monitoringSplitter->height();
        const int plot = height * kPlotFifths / 5;
        ui->monitoringSplitter->setSizes({height - plot, plot});
    }
}

void MainWindow::writeValueTo(const QString& fullName, const TagAccess& access, const QString& current)
{
    WriteValueDialog dialog(fullName, access.typeName, access.type, current, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    // Monitoring may have ended with the session while the dialog was open.
    if (!m_monitoring || !m_client)
        return;
    connect(m_client, &OPCUAWrapper::signalWriteAnswered, this, &MainWindow::slotWriteAnswered,
            Qt::UniqueConnection);
    m_client->writeTagValue(fullName, dialog.value());
}

void MainWindow::slotWriteAnswered(QString fullName, QString value, QString status)
{
    const QString text = QStringLiteral("Запись значения %1 в тег %2: %3").arg(value, fullName, status);
    if (status == QLatin1String("Good"))
        VLOG_INFO().noquote() << text;
    else
        VLOG_WARNING().noquote() << text;
    statusBar()->showMessage(text, kAnswerShownMs);
}
