#pragma once

#include <QHash>
#include <QList>
#include <QMap>
#include <QMetaType>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <open62541/client.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

class DiagnosticsWatcher;
class QTimer;

// The three files a secured connection needs, as the user chose them.
struct CertificatePaths
{
    QString certificate;
    QString privateKey;
    QString trustDirectory;
};

// What the gateway says of one tag: whether it may be written and the type of its value.
struct TagAccess
{
    // "Good", or why the attributes could not be read.
    QString status;
    bool writable = false;
    // The Qt type that holds a value of the tag's data type; invalid unless it
    // is a number or a boolean.
    QMetaType type;
    // The data type's name, e.g. "Float".
    QString typeName;
};

// The one OPC UA client of the program.
class OPCUAWrapper : public QObject
{
    Q_OBJECT
public:
    // Asked for the certificate files when a secured connection is set up; gets the
    // paths known so far and answers the chosen ones (an empty one means cancel).
    // The client has no widgets: the application installs a chooser that runs the
    // dialog on the GUI thread.
    using CertificateChooser = std::function<CertificatePaths(const CertificatePaths& known)>;

    explicit OPCUAWrapper(QObject* parent = nullptr);
    ~OPCUAWrapper() override;

    static OPCUAWrapper* GetInstance();
    static void SetCertificateChooser(CertificateChooser chooser);

    int connectToServer(QString url, QString endpointText, bool browse, int authKind, QString user,
                        QString password);
    int disconnectToServer();
    void setPathCerts(QString& certificate, QString& privateKey, QString& trustDirectory);
    void setupPkiConfiguration();
    bool createPkiPath(QString& path);
    std::thread runIterate();
    void iterate();
    void setStatusIterate(bool status);
    void clearClient();

    int findServers(QString url);
    int getEndpoints(QString url);
    void browseNodes(UA_Client* client, QString nodeId);
    static QString UA_StringToQString(UA_String string);
    static QString UA_SecurityModeToQString(UA_MessageSecurityMode mode);
    QList<QString> getVecNodes();

    bool callAddNode(QList<QString> args);
    bool callEditNode(QList<QString> args);
    bool callDeleteNode(QList<QString> args);
    bool callMethodStartStopExchange();

    // One subscription per non-empty group, one monitored item per full name.
    // 0 success, also when the server refused single items (refusedNodes
    // names them); 1 a subscription refused, 2 a group's items refused as a
    // whole. A failure deletes the subscriptions it had made.
    int subscriptionTag(QList<QList<QString>> groups, int interval, QMap<int, QList<QString>>& nodes);
    // Deletes every subscription of mapNodes; 0 success, 1 failure.
    int deleteSubscriptionTag();
    // Drops the subscriptions of a lost session without asking the server:
    // a new session starts without them.
    void forgetSubscriptions();
    // Values of these subscriptions are dropped where they arrive, before any
    // copy is made: nobody shows them. A new subscriptionTag mutes none. Any thread.
    void muteSubscriptions(QSet<int> ids);
    bool muted(int subscription) const;

    // Reads the access level and data type of a tag.
    TagAccess readTagAccess(const QString& fullName);
    // Sends a value to a tag in the OPC UA type of its Qt type; the answer
    // comes as signalWriteAnswered, from the thread running the client.
    void writeTagValue(const QString& fullName, const QVariant& value);

    // The gateway's statistics of channels and devices, beside monitoring.
    DiagnosticsWatcher* diagnostics() const { return m_diagnostics; }

    // Also read by a worker that is adding tags while the session may be lost.
    std::atomic<bool> connected{false};
    bool autoConnecting = false;
    bool connectedOnce = false;
    QList<QString> vecNodes;
    UA_Client* client = nullptr;
    UA_ApplicationDescription* serverDescriptions = nullptr;
    size_t serverDescriptionCount = 0;
    UA_ByteString localCertificate = UA_BYTESTRING_NULL;
    UA_ByteString privateKey = UA_BYTESTRING_NULL;
    UA_ByteString* revocationList = nullptr;
    size_t revocationListSize = 0;
    QString pathCertificate;
    QString pathPrivateKey;
    QString pathTrustList;
    std::atomic<bool> statusIterate{true};
    bool exchangeRunning = false;
    UA_UInt32 subscriptionId = 0;
    QMap<int, QList<QString>> mapNodes;
    // "full name: status" of each item the last subscriptionTag had refused.
    QStringList refusedNodes;

signals:
    void signalSetLogDlgSearchDevice(QString message);
    void signalSetServerDlgSearchDevice(QList<QString> servers);
    void signalSetEndpointDlgSearchDevice(QList<QString> endpoints);
    void signalDataChange(QVariantList mess);
    void signalErrorConnect();
    // The session died under the program (the server went away); `status`
    // names the reason. Comes from the thread that was inside the client.
    void signalConnectionLost(QString status);
    // The answer to writeTagValue: "Good" or the status name.
    void signalWriteAnswered(QString fullName, QString value, QString status);

private:
    static OPCUAWrapper* _singleOPCUAWrapper;
    static CertificateChooser& certificateChooser();
    // What a browse found: node 0 is where it began; children in reference order.
    struct BrowseTree
    {
        struct Node
        {
            UA_NodeId id = UA_NODEID_NULL;
            QString identifier;
            QString ns;
            std::vector<size_t> children;
        };
        std::vector<Node> nodes;
        QHash<QString, size_t> index;
    };
    std::vector<size_t> browseLevel(UA_Client* browseClient, BrowseTree& tree,
                                    const std::vector<size_t>& level);
    void browseContinued(UA_Client* browseClient, BrowseTree& tree,
                         std::vector<std::pair<size_t, UA_ByteString>> pending, std::vector<size_t>& next);
    static void addReferences(BrowseTree& tree, size_t parent, const UA_BrowseResult& result,
                              std::vector<size_t>& next);
    void tellFound(const BrowseTree& tree, size_t parent, std::vector<bool>& onPath);
    void loseSession(UA_StatusCode status);
    void watchSession();
    // The session's watch while no monitoring loop runs the client.
    void watchIdleSession();
    static void aliveAnswered(UA_Client* client, void* wrapper, UA_UInt32 requestId, UA_StatusCode status,
                              UA_DataValue* value);
    static void stateChanged(UA_Client* client, UA_SecureChannelState channel, UA_SessionState session,
                             UA_StatusCode status);

    // Every use of the client goes through this lock, whichever thread makes it.
    std::unique_lock<std::recursive_mutex> lockClient();
    // A deleted client keeps its pointer (the disconnect logic reads it), so
    // whether it may still be used is tracked here.
    bool clientUsable() const { return client && m_clientAlive; }
    void deleteClient();
    void report(const QString& text, bool warning);
    void failConnection(const QString& text);
    bool configureEncryption(UA_ClientConfig* config, const QString& trustDirectory, int authKind);
    bool trustServer(UA_ClientConfig* config, const QString& url, int authKind,
                     const QString& trustDirectory);
    UA_StatusCode callMethod(const char* methodName, const QByteArray& argument);
    UA_StatusCode deleteSubscriptions();
    void abandonSubscriptions();
    bool callNodeMethod(const char* methodName, const QList<QString>& args);

    std::recursive_mutex m_clientMutex;
    std::atomic<int> m_clientWaiters{0};
    bool m_clientAlive = false;
    // Set when an open session was lost, until the next search makes a new client.
    std::atomic<bool> m_sessionLost{false};
    std::atomic<bool> m_iterating{false};
    mutable std::mutex m_mutedMutex;
    QSet<int> m_muted;
    QTimer* m_sessionWatch = nullptr;
    DiagnosticsWatcher* m_diagnostics = nullptr;
    // The iterate loop's question whether the server still answers.
    std::chrono::steady_clock::time_point m_aliveAsked;
    bool m_aliveAsking = false;
};
