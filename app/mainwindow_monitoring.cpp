// Connection to a server and live monitoring.
#include "app/mainwindow.h"

#include "app/guithread.h"
#include "app/logging.h"
#include "app/progressbar.h"
#include "model/groupinfo.h"
#include "opcua/opcuawrapper.h"
#include "opcua/searchopcuaserver.h"
#include "ui_mainwindow.h"
#include "views/tablemodelmonitoring.h"
#include "views/trendview.h"

#include <QDateTime>
#include <QLabel>
#include <QMessageBox>
#include <QSet>
#include <QTimer>

namespace {

const char* const kIconOn = ":/res/images/res/monitoring_on.png";
const char* const kIconOff = ":/res/images/res/monitoring_off.png";
const char* const kNotConnected =
    "Нет подключенных серверов, запустите сервер или подключитесь к нему через меню Сервис";
const QString kConnectionLost = QStringLiteral(" Соединение с сервером потеряно: ");
// Refused tags named in the warning; the log has them all.
const int kRefusedShown = 10;
// Digits kept behind the decimal point of a shown value; the rest is cut, not rounded.
const int kDecimals = 6;

// The busy dialog around one worker; answers the code the worker closed it with.
int runBusyStep(MainWindow* window, std::function<void()> work)
{
    ProgressBar dialog(nullptr);
    QObject::connect(window, &MainWindow::signalCloseProgressBar, &dialog,
                     &ProgressBar::slotCloseProgressBar);
    QObject::connect(window, &MainWindow::signalSetLabelProgressBar, &dialog,
                     &ProgressBar::slotSetLabelProgressBar);
    std::thread worker(std::move(work));
    worker.detach();
    dialog.exec();
    return dialog.resultCode();
}

// A group's polling period in milliseconds; an unknown unit gives 0.
int intervalMs(const CGroupInfo* group)
{
    static const qint64 factors[] = {1, 1000, 60000, 3600000};
    const int unit = group->MU_UpdateRate;
    if (unit < 0 || unit > 3)
        return 0;
    return int(qint64(quint32(group->UpdateRate)) * factors[unit]);
}

// At most six decimals, cut and not rounded; an exponent is kept whole.
QString shownValue(QString value)
{
    const qsizetype point = value.indexOf('.');
    if (point < 0)
        return value;
    qsizetype exponent = value.indexOf('e', point);
    if (exponent < 0)
        exponent = value.size();
    if (exponent > point + 1 + kDecimals)
        value.remove(point + 1 + kDecimals, exponent - (point + 1 + kDecimals));
    return value;
}

QString nodeName(const CItem* item)
{
    return QString::fromStdString(item->GetName());
}

} // namespace

void MainWindow::on_action_triggered()
{
    m_statusLabel->clear();
    if (m_client)
        m_dialogConnected = m_client->connectedOnce;

    // The dialog stays as a child of the window.
    auto* dialog = m_connected ? new SearchOPCUAServer(m_dialogConnected, this, m_foundServers,
                                                       m_foundEndpoints, m_client)
                               : new SearchOPCUAServer(m_dialogConnected, this, {}, {}, nullptr);
    dialog->setPathCerts(m_derPath, m_pemPath, m_trustDir);
    connect(dialog, &SearchOPCUAServer::signalDisconnect, this, &MainWindow::slotDisconnect);
    const int answer = dialog->exec();
    refreshDiagnostics(); // after what the answer changes here
    if (answer != 1)
        return;

    m_connected = m_dialogConnected = dialog->getFlagServer();
    if (!m_connected) {
        m_client = nullptr;
        m_statusLabel->setText("Сервер не запущен");
        return;
    }
    m_nodes = dialog->getVecNodesDlg();
    m_client = dialog->getOPCUAWrapper();
    connectClientValues();
    m_foundServers = dialog->getServersDlg();
    m_foundEndpoints = dialog->getEndpointsDlg();
    m_statusLabel->setText(m_statusLabel->text() +
                           QString(" Подключены к серверу (%1).").arg(dialog->getCurrentServer()));
}

void MainWindow::slotDisconnect()
{
    m_dialogConnected = false;
}

void MainWindow::slotConnectionLost(QString status)
{
    if (!m_client || !m_connected)
        return;
    m_statusLabel->setText(kConnectionLost + status);
    if (m_monitoringSwitch) {
        m_lostDuringSwitch = status;
        return;
    }
    if (m_monitoring)
        endLostMonitoring(status);
    // As after a failed command: edits stay local from here on, and a new
    // connection begins with the search, as the first one did.
    m_connected = false;
    m_dialogConnected = false;
    m_client = nullptr;
    refreshDiagnostics();
}

void MainWindow::endLostMonitoring(const QString& status)
{
    // The iterate loop has ended on the loss; the subscriptions died with the
    // session, so there is nothing to delete on the server.
    m_client->setStatusIterate(false);
    if (m_iterateThread.joinable())
        m_iterateThread.join();
    m_client->forgetSubscriptions();
    dropArrived();
    m_subscriptionRows.clear();
    m_rowOfName.clear();
    m_groupOfSubscription.clear();
    // The last values stay, marked with the reason they are no longer live.
    m_monitoringModel->setQualityOfAll(status);
    m_monitoringModel->updateData();
    m_monitoringTimer->stop();
    m_monitoring = false;
    ui->monitoring_action->setIcon(QIcon(kIconOff));
    CItem* node = nodeOf(selectedRow());
    if (node && node->GetType() == itGroup)
        setEnabledToolbar(ToolbarMonitoringOff);
    else
        on_treeWidget_itemSelectionChanged();
}

void MainWindow::clearConnectionLoss(const QString& text)
{
    if (m_statusLabel->text().startsWith(kConnectionLost))
        m_statusLabel->setText(text);
}

void MainWindow::on_monitoring_action_triggered()
{
    if (!m_client || !m_connected) {
        QMessageBox::warning(this, "Ошибка", kNotConnected);
        VLOG_WARNING().noquote() << kNotConnected;
        return;
    }
    m_nodes = m_client->getVecNodes();

    CItem* node = nodeOf(selectedRow());
    if (!node)
        return;

    if (m_monitoring) {
        runSwitchStep([this, node] { monitoringOff(node); });
        m_monitoringTimer->stop();
        dropArrived();
        m_monitoring = false;
        ui->monitoring_action->setIcon(QIcon(kIconOff));
        if (node->GetType() == itGroup)
            setEnabledToolbar(ToolbarMonitoringOff);
        else
            on_treeWidget_itemSelectionChanged();
        // A loss told while the subscriptions were being deleted ends the connection.
        if (!m_lostDuringSwitch.isEmpty())
            slotConnectionLost(std::exchange(m_lostDuringSwitch, QString()));
        return;
    }

    if (node->GetType() != itGroup)
        return;
    auto* group = static_cast<CGroupInfo*>(node);
    const CItem* device = group->GetParent();
    const CItem* channel = device->GetParent();
    const std::string name = channel->GetName() + "." + device->GetName() + "." + group->GetName() + ".";
    const int interval = intervalMs(group);

    const int code = runSwitchStep([this, group, interval, name] { monitoringOn(group, interval, name); });
    if (code == 0) {
        ui->trendView->breakLines(QDateTime::currentMSecsSinceEpoch());
        m_monitoringTimer->start(100);
    } else {
        dropArrived();
    }
    ui->tabWidget->setCurrentIndex(2);
    m_monitoredTreeItem = ui->treeWidget->currentItem();
    // Tags the server refused are told; the others are monitored all the same.
    const QStringList refused = m_client->refusedNodes;
    if (code == 0 && !refused.isEmpty()) {
        const QString text =
            QString("Сервер отказал в мониторинге тегов (%1), остальные теги отслеживаются:\n%2%3")
                .arg(refused.size())
                .arg(refused.mid(0, kRefusedShown).join('\n'), refused.size() > kRefusedShown ? "\n…" : "");
        QMessageBox::warning(this, "Внимание", text);
        VLOG_WARNING().noquote() << text;
    }
    // A loss told while the subscriptions were being made ends what was started.
    if (!m_lostDuringSwitch.isEmpty())
        slotConnectionLost(std::exchange(m_lostDuringSwitch, QString()));
}

// The busy dialog of the switch. A lost session told meanwhile is kept for
// afterwards: the worker owns the iterate thread until it is done.
int MainWindow::runSwitchStep(std::function<void()> work)
{
    m_monitoringSwitch = true;
    const int code = runBusyStep(this, std::move(work));
    m_monitoringSwitch = false;
    return code;
}

int MainWindow::monitoringOn(CGroupInfo* group, int interval, std::string name)
{
    // Every group of the tree is subscribed, at the period of the selected one.
    Q_UNUSED(group);
    Q_UNUSED(name);
    emit signalSetLabelProgressBar("Выполняется создание подписки, пожалуйста, подождите...");

    m_subscribedNames.clear();
    for (auto& channel : m_root)
        for (auto& device : *channel.second)
            for (auto& groupEntry : *device.second) {
                const CItem* g = groupEntry.second;
                QList<QString> names;
                for (auto& tag : *g)
                    names << QString("%1.%2.%3.%4")
                                 .arg(nodeName(channel.second), nodeName(device.second), nodeName(g),
                                      nodeName(tag.second));
                m_subscribedNames << names;
            }

    // Values of an earlier run are not this run's. The first values of this
    // one wait with the collected ones until the refresh timer runs, by then
    // with the routing table in place.
    dropArrived(true);
    QMap<int, QList<QString>> rows;
    const int subscribed = m_client->subscriptionTag(m_subscribedNames, interval, rows);
    GuiThread::run([this, subscribed, &rows] {
        if (subscribed == 0) {
            m_subscriptionRows = rows;
            m_rowOfName.clear();
            m_groupOfSubscription.clear();
            for (auto it = rows.constBegin(); it != rows.constEnd(); ++it) {
                const QList<QString>& names = it.value();
                if (names.isEmpty())
                    continue;
                // One text of the group name, shared by all its rows.
                const QString group = names.first().left(names.first().lastIndexOf('.'));
                m_groupOfSubscription.insert(it.key(), group);
                for (qsizetype row = 0; row < names.size(); ++row)
                    m_rowOfName.insert(names.at(row), {int(row), group});
            }
        }
    });
    if (subscribed != 0) {
        emit signalCloseProgressBar(10);
        return 1;
    }

    m_client->setStatusIterate(true);
    m_iterateThread = m_client->runIterate();

    GuiThread::run([this] {
        m_monitoring = true;
        ui->monitoring_action->setIcon(QIcon(kIconOn));
        setEnabledToolbar(ToolbarMonitoringOn);
    });
    emit signalCloseProgressBar(0);
    return 0;
}

int MainWindow::monitoringOff(CItem* item)
{
    Q_UNUSED(item);
    emit signalSetLabelProgressBar("Выполняется отключение подписки, пожалуйста, подождите...");
    m_client->setStatusIterate(false);
    if (m_iterateThread.joinable())
        m_iterateThread.join();
    if (m_client->deleteSubscriptionTag() != 0) {
        emit signalCloseProgressBar(8);
        return 0;
    }
    GuiThread::run([this] {
        m_subscriptionRows.clear();
        m_rowOfName.clear();
        m_groupOfSubscription.clear();
    });
    emit signalCloseProgressBar(0);
    return 0;
}

void MainWindow::slotDataChange(QList<QVariant> message)
{
    // Only a group's monitoring tab shows values; a status without a value is dropped.
    if (!ui->tabWidget->isTabEnabled(2) || message.size() < 5)
        return;
    const auto subscription = m_subscriptionRows.constFind(int(message.at(4).toUInt()));
    if (subscription == m_subscriptionRows.constEnd() || subscription->isEmpty())
        return;

    // A full name is unique in the tree, so one lookup gives its row and group.
    const auto found = m_rowOfName.constFind(message.at(3).toString());
    if (found == m_rowOfName.constEnd())
        return;

    const QString value = shownValue(message.at(1).toString());

    // Values come in bursts: one time text serves every value of the same millisecond.
    static qint64 lastMs = -1;
    static QString lastTime;
    const qint64 nowMs = QDateTime::currentMSecsSinceEpoch();
    if (nowMs != lastMs) {
        lastMs = nowMs;
        lastTime = QDateTime::fromMSecsSinceEpoch(nowMs).toString("yyyy-MM-dd hh:mm:ss.zzz");
    }

    m_monitoringModel->setNewData(found->first, {value, message.at(2).toString(), lastTime, message.at(3)},
                                  found->second);
}

void MainWindow::collectDataChange(QList<QVariant> message)
{
    std::lock_guard<std::mutex> lock(m_arrivedMutex);
    // The client is also run between monitoring runs, to watch the session;
    // what a subscription left by a failure sends then is of no run.
    if (m_collecting)
        m_arrived.append(std::move(message));
}

void MainWindow::muteUnshown()
{
    if (!m_client || m_groupOfSubscription.isEmpty())
        return;
    // The model keeps the values of every group shown so far; the trend's tags
    // are of such groups too, unless a rename left them behind.
    QSet<QString> plotted;
    for (const QString& name : ui->trendView->names())
        plotted.insert(name.left(name.lastIndexOf('.')));
    QSet<int> unshown;
    for (auto it = m_groupOfSubscription.constBegin(); it != m_groupOfSubscription.constEnd(); ++it)
        if (!m_monitoringModel->collects(it.value()) && !plotted.contains(it.value()))
            unshown.insert(it.key());
    m_client->muteSubscriptions(std::move(unshown));
}

void MainWindow::dropArrived(bool collectMore)
{
    std::lock_guard<std::mutex> lock(m_arrivedMutex);
    m_arrived.clear();
    m_collecting = collectMore;
}

void MainWindow::takeArrived()
{
    // Most groups are never shown; their values need not even be copied.
    muteUnshown();
    QList<QList<QVariant>> batch;
    {
        std::lock_guard<std::mutex> lock(m_arrivedMutex);
        batch.swap(m_arrived);
    }
    // The trend takes the values of a refresh at the time the table gives them.
    ui->trendView->record(batch, QDateTime::currentMSecsSinceEpoch());
    for (const QList<QVariant>& message : batch)
        slotDataChange(message);
}

void MainWindow::connectClientValues()
{
    // Values are collected where they arrive and handed to slotDataChange on this
    // thread by the refresh timer, which shows them anyway: one wake-up per tick
    // instead of one queued call per value, and a value delivered during a call
    // on this thread waits for the command in progress. Unique, since every
    // connection and start hands over the same client again.
    connect(m_client, &OPCUAWrapper::signalDataChange, this, &MainWindow::collectDataChange,
            Qt::ConnectionType(Qt::DirectConnection | Qt::UniqueConnection));
    const auto queuedOnce = Qt::ConnectionType(Qt::QueuedConnection | Qt::UniqueConnection);
    connect(m_client, &OPCUAWrapper::signalConnectionLost, this, &MainWindow::slotConnectionLost, queuedOnce);
}
