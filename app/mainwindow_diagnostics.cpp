// The gateway's diagnostics of the selected channel or device, and the marks
// of silent devices in the tree, while connected.
#include "app/mainwindow.h"

#include "app/progressbar.h"
#include "model/diagnosticnames.h"
#include "opcua/diagnosticswatcher.h"
#include "opcua/opcuawrapper.h"
#include "ui_mainwindow.h"
#include "views/diagnosticsview.h"

#include <QApplication>
#include <QPainter>
#include <QTimer>

namespace {

const char* const kDeviceIcon = ":/res/images/res/device.png";
const int kBusyRetryMs = 100;

// A device's icon with a red sign on it.
QIcon silentDeviceIcon()
{
    QPixmap pixmap = QIcon(kDeviceIcon).pixmap(32, 32);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(Qt::white, 1.5));
    p.setBrush(QColor("#d32f2f"));
    p.drawEllipse(QRectF(15, 15, 16, 16));
    p.setPen(QPen(Qt::white, 2.5, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(QPointF(23, 18.5), QPointF(23, 24.5));
    p.drawPoint(QPointF(23, 28));
    return QIcon(pixmap);
}

QString itemName(CItem* item)
{
    std::string name;
    item->GetFullName(name);
    return QString::fromStdString(name);
}

} // namespace

void MainWindow::setupDiagnostics()
{
    m_diagnosticsRefresh = new QTimer(this);
    m_diagnosticsRefresh->setSingleShot(true);
    connect(m_diagnosticsRefresh, &QTimer::timeout, this, &MainWindow::updateDiagnostics);
    // Devices added, renamed or gone change what the tree's marks watch.
    QAbstractItemModel* rows = ui->treeWidget->model();
    connect(rows, &QAbstractItemModel::rowsInserted, this, &MainWindow::refreshDiagnostics);
    connect(rows, &QAbstractItemModel::rowsRemoved, this, &MainWindow::refreshDiagnostics);
    ui->propertiesSplitter->setStretchFactor(0, 1);
    ui->propertiesSplitter->setStretchFactor(1, 1);
    ui->diagnosticsView->hide();
}

void MainWindow::refreshDiagnostics()
{
    m_diagnosticsRefresh->start(0);
}

void MainWindow::updateDiagnostics()
{
    // A worker behind the busy dialog has the tree to itself: later, then.
    if (qobject_cast<ProgressBar*>(QApplication::activeModalWidget())) {
        m_diagnosticsRefresh->start(kBusyRetryMs);
        return;
    }
    // The client's own word too: a find-server dialog can close the session and be cancelled.
    const bool live = m_connected && m_client && m_client->connected;
    DiagnosticsView* view = ui->diagnosticsView;
    CItem* node = nodeOf(selectedRow());
    const bool shown = node && (node->GetType() == itChannel || node->GetType() == itDevice);
    const QString name = shown ? itemName(node) : QString();
    view->setVisible(shown);
    if (!live) {
        // No calls: the view says why, and no mark stays from the last session.
        m_diagnosed.clear();
        m_watchedStates.clear();
        m_deviceStates.clear();
        m_noDiagnostics = false;
        view->showMessage("Нет подключения к серверу OPC UA: диагностика каналов и устройств видна, пока "
                          "программа подключена к серверу.");
        markDevices();
        return;
    }

    DiagnosticsWatcher* watcher = m_client->diagnostics();
    const auto queuedOnce = Qt::ConnectionType(Qt::QueuedConnection | Qt::UniqueConnection);
    connect(watcher, &DiagnosticsWatcher::signalValue, this, &MainWindow::slotDiagnostics, queuedOnce);
    connect(watcher, &DiagnosticsWatcher::signalAbsent, this, &MainWindow::slotNoDiagnostics, queuedOnce);
    if (m_noDiagnostics) {
        view->showMessage("Сервер не публикует диагностику каналов и устройств.");
    } else if (name != m_diagnosed) {
        // A new subscription for another item: its first values are all of them.
        m_diagnosed = name;
        if (shown)
            view->showItem(node->GetType() == itChannel, name);
        watcher->watch(DiagnosticsWatcher::Selection, shown ? view->ids() : QStringList());
    }

    QStringList states;
    for (auto& channel : m_root)
        for (auto& device : *channel.second)
            states << itemName(device.second) + '.' + DiagnosticNames::kVariables[DiagnosticNames::State];
    if (states != m_watchedStates) {
        m_watchedStates = states;
        m_deviceStates.clear();
        watcher->watch(DiagnosticsWatcher::Tree, states);
    }
    markDevices();
}

void MainWindow::slotDiagnostics(int watch, QString id, QVariant value, QString status)
{
    // What a session sent before it ended is of no use.
    if (!m_connected || !m_client || !m_client->connected)
        return;
    if (watch == DiagnosticsWatcher::Selection) {
        ui->diagnosticsView->setValue(id, value, status);
        return;
    }
    if (!m_watchedStates.contains(id))
        return;
    m_deviceStates.insert(id.left(id.lastIndexOf('.')),
                          status == QLatin1String("Good") ? value.toString() : status);
    markDevices();
}

void MainWindow::slotNoDiagnostics()
{
    m_noDiagnostics = true;
    refreshDiagnostics();
}

void MainWindow::markDevices()
{
    static const QIcon deviceIcon(kDeviceIcon);
    static const QIcon silentIcon = silentDeviceIcon();
    QTreeWidgetItem* rootRow = ui->treeWidget->topLevelItem(0);
    for (int c = 0; rootRow && c < rootRow->childCount(); ++c) {
        QTreeWidgetItem* channelRow = rootRow->child(c);
        for (int d = 0; d < channelRow->childCount(); ++d) {
            QTreeWidgetItem* deviceRow = channelRow->child(d);
            const QString state = m_deviceStates.value(channelRow->text(0) + '.' + deviceRow->text(0));
            // The tooltip says why, and is the mark itself.
            const QString tip = state == QLatin1String(DiagnosticNames::kDemoted)
                                    ? QStringLiteral("Устройство не отвечает: опрашивается реже")
                                : state == QLatin1String(DiagnosticNames::kNoLink)
                                    ? QStringLiteral("Нет связи с устройством")
                                    : QString();
            if (deviceRow->toolTip(0) == tip)
                continue;
            deviceRow->setToolTip(0, tip);
            deviceRow->setIcon(0, tip.isEmpty() ? deviceIcon : silentIcon);
        }
    }
}
