// Tools of the monitoring tab for commissioning: the trend of chosen tags and
// writing a value to a tag.
#include "app/mainwindow.h"

#include "app/logging.h"
#include "dialogs/writevaluedialog.h"
#include "opcua/opcuawrapper.h"
#include "ui_mainwindow.h"
#include "views/tablemodelmonitoring.h"
#include "views/trendview.h"

#include <QDateTime>
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

QString MainWindow::monitoredName(int row)
{
    CItem* group = selectedGroup();
    if (!group || row < 0 || row >= int(group->size()))
        return QString();
    std::string name;
    std::next(group->begin(), row)->second->GetFullName(name);
    return QString::fromStdString(name);
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
    QList<int> toShow;
    QStringList toRemove;
    for (int r : rows) {
        const QString name = monitoredName(r);
        if (trend->shows(name))
            toRemove << name;
        else if (!name.isEmpty())
            toShow << r;
    }
    if (!toShow.isEmpty())
        menu.addAction("Показать на графике", this, [this, toShow] { showOnTrend(toShow); });
    if (!toRemove.isEmpty())
        menu.addAction("Убрать с графика", this, [trend, toRemove] {
            for (const QString& name : toRemove)
                trend->removeSeries(name);
        });

    // Only a tag the gateway lets write, in a type that a value can be typed in.
    const QString clicked = monitoredName(row);
    if (clicked.isEmpty())
        return;
    const TagAccess access = m_client->readTagAccess(clicked);
    if (access.status != QLatin1String("Good"))
        VLOG_WARNING().noquote()
            << QStringLiteral("Не удалось прочитать доступ к тегу %1: %2").arg(clicked, access.status);
    if (!access.writable || !access.type.isValid())
        return;
    const QString current = m_monitoringModel->data(m_monitoringModel->index(row, 1)).toString();
    menu.addSeparator();
    menu.addAction("Записать значение…", this,
                   [this, clicked, access, current] { writeValueTo(clicked, access, current); });
}

void MainWindow::showOnTrend(const QList<int>& rows)
{
    TrendView* trend = ui->trendView;
    const bool appears = trend->isHidden();
    const auto cell = [this](int row, int column) {
        return m_monitoringModel->data(m_monitoringModel->index(row, column)).toString();
    };
    for (int row : rows) {
        const QString name = monitoredName(row);
        if (!trend->addSeries(name)) {
            QMessageBox::warning(
                this, "Внимание",
                QStringLiteral("На графике помещается не больше %1 тегов.").arg(TrendView::kMaxSeries));
            break;
        }
        // The line starts with the value the table shows: a tag that seldom
        // changes sends no other for a while.
        const QString value = cell(row, 1);
        bool number = true;
        const double shown = value == QLatin1String("true")    ? 1
                             : value == QLatin1String("false") ? 0
                                                               : value.toDouble(&number);
        const QDateTime taken =
            QDateTime::fromString(cell(row, 3), QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
        if (number && taken.isValid())
            trend->addKnownValue(name, shown, cell(row, 2), taken.toMSecsSinceEpoch());
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
