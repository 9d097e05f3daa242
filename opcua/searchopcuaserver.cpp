#include "opcua/searchopcuaserver.h"

#include "opcua/opcuawrapper.h"
#include "ui_searchopcuaserver.h"

#include <QCloseEvent>
#include <QDateTime>
#include <QTextCursor>
#include <QTimer>

#include <chrono>
#include <thread>

namespace {

const char* const kNoServers = "Нет найденных серверов";
const char* const kAutoLabel = "Подключаемся к серверу, пожалуйста, подождите... (%1 из 10)";
const char* const kAutoEndpoint = "http://opcfoundation.org/UA/SecurityPolicy#None";
// The search is repeated while the fresh server still refuses; "из 10" in the
// label notwithstanding, the tenth attempt is never made.
const int kAttemptLimit = 10;

} // namespace

SearchOPCUAServer::SearchOPCUAServer(bool connectedBefore, QWidget* parent, QList<QString> servers,
                                     QList<QString> endpoints, OPCUAWrapper* wrapper)
    : QDialog(parent), ui(new Ui_SearchOPCUAServer)
{
    setWindowTitle("Найти сервер");
    ui->setupUi(this);
    ui->le_device->setText("opc.tcp://127.0.0.1:4840");

    const bool fresh = !connectedBefore && servers.isEmpty() && endpoints.isEmpty();
    // A caller without a client of its own still gets the one client of the program.
    m_wrapper = fresh || !wrapper ? OPCUAWrapper::GetInstance() : wrapper;
    ui->pb_getEndPoint->setEnabled(false);
    if (fresh) {
        ui->pb_disconnect->hide();
        ui->pb_connect->show();
        ui->pb_connect->setEnabled(false);
        ui->pb_searchDevice->setEnabled(true);
    } else {
        ui->pb_disconnect->show();
        ui->pb_connect->hide();
        ui->pb_searchDevice->setEnabled(false);
        if (!connectedBefore) {
            ui->cb_server->addItems(servers);
            ui->cb_endpoint->addItems(endpoints);
        }
    }

    connect(m_wrapper, &OPCUAWrapper::signalSetLogDlgSearchDevice, this,
            &SearchOPCUAServer::slotSetLogDlgSearchDevice);
    connect(m_wrapper, &OPCUAWrapper::signalSetServerDlgSearchDevice, this,
            &SearchOPCUAServer::slotSetServerDlgSearchDevice);
    connect(m_wrapper, &OPCUAWrapper::signalSetEndpointDlgSearchDevice, this,
            &SearchOPCUAServer::slotSetEndpointDlgSearchDevice);
    connect(m_wrapper, &OPCUAWrapper::signalErrorConnect, this, &SearchOPCUAServer::slotErrorConnect);
}

SearchOPCUAServer::~SearchOPCUAServer()
{
    delete ui;
}

void SearchOPCUAServer::setPathCerts(QString& certificate, QString& privateKey, QString& trustDirectory)
{
    m_pathCertificate = certificate;
    m_pathPrivateKey = privateKey;
    m_pathTrustList = trustDirectory;
}

void SearchOPCUAServer::setLe_device(QString url)
{
    ui->le_device->setText(url);
}

void SearchOPCUAServer::logDlg(QString text)
{
    appendLog(text);
    flushLog();
}

// A browse tells every node it finds: the lines are collected with their time
// and go into the pane together, which keeps a large server's list quick.
void SearchOPCUAServer::appendLog(const QString& text)
{
    const qint64 nowMs = QDateTime::currentMSecsSinceEpoch();
    if (nowMs != m_logStampMs) {
        m_logStampMs = nowMs;
        m_logStamp = "[" + QDateTime::fromMSecsSinceEpoch(nowMs).toString("yyyy-MM-dd hh:mm:ss.zzz ") + "] ";
    }
    if (m_pendingLog.isEmpty())
        QTimer::singleShot(0, this, &SearchOPCUAServer::flushLog);
    m_pendingLog += m_logStamp + text + "\n";
}

void SearchOPCUAServer::flushLog()
{
    if (m_pendingLog.isEmpty())
        return;
    QTextCursor cursor(ui->te_log->document());
    cursor.movePosition(QTextCursor::End);
    cursor.insertText(m_pendingLog);
    m_pendingLog.clear();
    ui->te_log->moveCursor(QTextCursor::End);
}

QList<QString> SearchOPCUAServer::comboTexts(const QComboBox* box)
{
    QList<QString> texts;
    for (int i = 0; i < box->count(); ++i)
        texts << box->itemText(i);
    return texts;
}

void SearchOPCUAServer::setLoginEnabled(bool enabled)
{
    ui->le_user->setEnabled(enabled);
    ui->le_password->setEnabled(enabled);
}

void SearchOPCUAServer::on_pb_searchDevice_clicked()
{
    if (ui->le_device->text().isEmpty()) {
        logDlg(kNoServers);
        return;
    }
    m_wrapper->findServers(ui->le_device->text());
    flushLog();
}

void SearchOPCUAServer::slotSetServerDlgSearchDevice(QList<QString> servers)
{
    if (servers.isEmpty()) {
        logDlg("Нет найденных устройств");
        return;
    }
    ui->cb_server->clear();
    m_servers = servers;
    ui->cb_server->addItems(servers);
    ui->pb_getEndPoint->setEnabled(true);
}

void SearchOPCUAServer::on_pb_getEndPoint_clicked()
{
    if (ui->cb_server->currentIndex() < 0) {
        logDlg(kNoServers);
        return;
    }
    const QString server = ui->cb_server->currentText();
    m_errorHandled = false;
    m_wrapper->getEndpoints(server);
    flushLog();
    if (!m_errorHandled)
        ui->pb_connect->setEnabled(true);
    m_currentServer = server;
}

void SearchOPCUAServer::slotSetEndpointDlgSearchDevice(QList<QString> endpoints)
{
    if (endpoints.isEmpty()) {
        logDlg(kNoServers);
        return;
    }
    ui->cb_endpoint->clear();
    m_endpoints = endpoints;
    ui->cb_endpoint->addItems(endpoints);
    ui->pb_connect->setEnabled(false);
}

void SearchOPCUAServer::on_pb_connect_clicked()
{
    if (ui->cb_endpoint->currentIndex() < 0) {
        logDlg("Нет найденных точек");
        return;
    }
    int authKind = 2;
    if (ui->radioButton_anonimus->isChecked())
        authKind = 0;
    else if (ui->radioButton_anonimusEncrypt->isChecked())
        authKind = 1;
    else if (ui->radioButton_certificate->isChecked())
        authKind = 3;
    const QString user = authKind == 2 ? ui->le_user->text() : QString("");
    const QString password = authKind == 2 ? ui->le_password->text() : QString("");

    const int result =
        m_wrapper->connectToServer(ui->cb_server->currentText(), ui->cb_endpoint->currentText(),
                                   ui->checkBox_browse->isChecked(), authKind, user, password);
    flushLog();
    if (result != 0)
        return;
    ui->pb_disconnect->show();
    ui->pb_connect->hide();
    ui->pb_searchDevice->setEnabled(false);
    ui->pb_getEndPoint->setEnabled(false);
}

void SearchOPCUAServer::on_radioButton_anonimus_clicked()
{
    setLoginEnabled(false);
}

void SearchOPCUAServer::on_radioButton_certificate_clicked()
{
    setLoginEnabled(false);
}

void SearchOPCUAServer::on_radioButton_userpassword_clicked()
{
    setLoginEnabled(true);
}

void SearchOPCUAServer::on_radioButton_anonimusEncrypt_clicked()
{
    setLoginEnabled(false);
}

void SearchOPCUAServer::on_pb_disconnect_clicked()
{
    const int disconnected = m_wrapper->disconnectToServer();
    flushLog();
    if (disconnected == 0)
        logDlg("Отключение от сервера успешно завершено\n");
    ui->pb_disconnect->hide();
    ui->pb_connect->show();
    ui->pb_searchDevice->setEnabled(true);
    ui->pb_getEndPoint->setEnabled(false);
    ui->cb_endpoint->clear();
    ui->cb_server->clear();
    m_connected = false;
    emit signalDisconnect();
}

void SearchOPCUAServer::slotErrorConnect()
{
    m_errorHandled = true;
    ui->pb_disconnect->hide();
    ui->pb_connect->show();
    ui->pb_searchDevice->setEnabled(true);
    ui->pb_getEndPoint->setEnabled(false);
    ui->pb_connect->setEnabled(false);
    ui->cb_endpoint->clear();
    ui->cb_server->clear();
}

void SearchOPCUAServer::slotSetLogDlgSearchDevice(QString message)
{
    appendLog(message);
}

void SearchOPCUAServer::on_pb_ok_clicked()
{
    m_connected = m_wrapper->connected;
    m_vecNodes = m_wrapper->getVecNodes();
    m_savedServers = comboTexts(ui->cb_server);
    m_savedEndpoints = comboTexts(ui->cb_endpoint);
    done(1);
}

void SearchOPCUAServer::on_pb_cancel_clicked()
{
    if (m_wrapper->connected)
        m_wrapper->disconnectToServer();
    flushLog();
    close();
}

void SearchOPCUAServer::closeEvent(QCloseEvent* event)
{
    on_pb_ok_clicked();
    event->accept();
}

void SearchOPCUAServer::reject()
{
    close();
}

void SearchOPCUAServer::autoConnect(QString port, bool& connected)
{
    emit signalSetLabelProgressBar(QString(kAutoLabel).arg(1));
    // The server was started a moment ago.
    std::this_thread::sleep_for(std::chrono::seconds(2));
    m_wrapper->setPathCerts(m_pathCertificate, m_pathPrivateKey, m_pathTrustList);
    m_wrapper->autoConnecting = true;

    // The combo boxes fill through queued slots on the GUI thread; the lists
    // handed over at the end are taken from the same signals here, in the same
    // order, so they don't depend on those slots having run.
    QList<QString> servers;
    QList<QString> endpoints;
    QObject listener;
    connect(
        m_wrapper, &OPCUAWrapper::signalSetServerDlgSearchDevice, &listener,
        [&servers](QList<QString> list) {
            if (!list.isEmpty())
                servers = list;
        },
        Qt::DirectConnection);
    connect(
        m_wrapper, &OPCUAWrapper::signalSetEndpointDlgSearchDevice, &listener,
        [&endpoints](QList<QString> list) {
            if (!list.isEmpty())
                endpoints = list;
        },
        Qt::DirectConnection);
    connect(
        m_wrapper, &OPCUAWrapper::signalErrorConnect, &listener,
        [&servers, &endpoints] {
            servers.clear();
            endpoints.clear();
        },
        Qt::DirectConnection);

    const QString url = QString("opc.tcp://127.0.0.1:%1").arg(port);
    int attempt = 1;
    int found = 0;
    for (;;) {
        emit signalSetLabelProgressBar(QString(kAutoLabel).arg(attempt));
        found = m_wrapper->findServers(url);
        if (found != 2)
            break;
        std::this_thread::sleep_for(std::chrono::seconds(5));
        ++attempt;
        if (attempt == kAttemptLimit) {
            emit signalCloseProgressBar(1);
            return;
        }
    }
    if (found == 1) {
        emit signalCloseProgressBar(1);
        return;
    }
    if (m_wrapper->getEndpoints(url) != 0) {
        emit signalCloseProgressBar(2);
        return;
    }
    const int result = m_wrapper->connectToServer(url, kAutoEndpoint, false, 0, QString(""), QString(""));
    if (result == 2) {
        emit signalCloseProgressBar(3);
        return;
    }
    if (result != 0) {
        emit signalCloseProgressBar(4);
        return;
    }
    m_savedServers = servers;
    m_savedEndpoints = endpoints;
    // The flag is up before the busy dialog can close and its caller read it.
    connected = true;
    emit signalCloseProgressBar(0);
}
