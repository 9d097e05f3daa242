#pragma once

#include <QDialog>
#include <QList>
#include <QMap>
#include <QString>

class OPCUAWrapper;
class QComboBox;
class Ui_SearchOPCUAServer;

// Finds a server, offers its endpoints and connects to one; the main window
// reads the outcome when the dialog closes. Also carries the automatic
// connection made after the program started the gateway itself.
class SearchOPCUAServer : public QDialog
{
    Q_OBJECT
public:
    SearchOPCUAServer(bool connectedBefore, QWidget* parent, QList<QString> servers, QList<QString> endpoints,
                      OPCUAWrapper* wrapper);
    ~SearchOPCUAServer() override;

    void setPathCerts(QString& certificate, QString& privateKey, QString& trustDirectory);
    void setLe_device(QString url);
    QMap<QString, QString> getMapNodesDlg() const { return m_nodes; }
    QList<QString> getVecNodesDlg() const { return m_vecNodes; }
    OPCUAWrapper* getOPCUAWrapper() const { return m_wrapper; }
    bool getFlagServer() const { return m_connected; }
    // The combo box texts as they were when the dialog ended (or when the
    // automatic connection succeeded); handed back at the next opening.
    QList<QString> getServersDlg() const { return m_savedServers; }
    QList<QString> getEndpointsDlg() const { return m_savedEndpoints; }
    // The server address of the last endpoint request: the one connected to.
    QString getCurrentServer() const { return m_currentServer; }

    // Connects anonymously, security None, to the loopback address on `port`;
    // for a worker thread. Ends with signalCloseProgressBar 0 to 4.
    void autoConnect(QString port, bool& connected);
    void logDlg(QString text);

signals:
    void signalCloseProgressBar(int err);
    void signalSetLabelProgressBar(QString newLabel);
    void signalDisconnect();

public slots:
    void on_pb_searchDevice_clicked();
    void on_pb_getEndPoint_clicked();
    void on_pb_connect_clicked();
    void on_pb_ok_clicked();
    void on_pb_cancel_clicked();
    void on_pb_disconnect_clicked();
    void on_radioButton_anonimus_clicked();
    void on_radioButton_certificate_clicked();
    void on_radioButton_userpassword_clicked();
    void on_radioButton_anonimusEncrypt_clicked();
    void slotSetLogDlgSearchDevice(QString message);
    void slotSetServerDlgSearchDevice(QList<QString> servers);
    void slotSetEndpointDlgSearchDevice(QList<QString> endpoints);
    void slotErrorConnect();

protected:
    void closeEvent(QCloseEvent* event) override;
    // Escape closes the window like any other way of closing it.
    void reject() override;

private:
    void setLoginEnabled(bool enabled);
    void appendLog(const QString& text);
    void flushLog();
    static QList<QString> comboTexts(const QComboBox* box);

    QList<QString> m_savedServers;
    QList<QString> m_savedEndpoints;
    QString m_currentServer;
    bool m_connected = false;
    Ui_SearchOPCUAServer* ui;
    QList<QString> m_servers;
    QList<QString> m_endpoints;
    OPCUAWrapper* m_wrapper = nullptr;
    QMap<QString, QString> m_nodes;
    QList<QString> m_vecNodes;
    QString m_pathCertificate;
    QString m_pathPrivateKey;
    QString m_pathTrustList;
    // Set by slotErrorConnect, so an endpoint request that failed leaves
    // pb_connect off.
    bool m_errorHandled = false;
    // Lines of the log pane not yet shown, and the time text of the current millisecond.
    QString m_pendingLog;
    QString m_logStamp;
    qint64 m_logStampMs = -1;
};
