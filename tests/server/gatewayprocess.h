#pragma once

#include <open62541/client.h>

#include <QProcess>
#include <QString>

#include <chrono>
#include <memory>

// Runs the gateway program for a test: picks a free port, starts it, waits
// until it answers GetEndpoints, and always ends it — in stop() or at the
// latest in the destructor; the child also dies with the test process.
class GatewayProcess
{
public:
    struct Options
    {
        Options(const QString& configPath = QString()) : config(configPath) {}
        QString config; // scrambled configuration file
        QString logLevel = "info";
        bool anonymous = true;
        QString certificate; // DER; empty for none
        QString privateKey;  // PEM or DER; empty for none
        QString trustFolder;
        quint16 port = 0; // 0: a free one
    };

    GatewayProcess();
    ~GatewayProcess();
    GatewayProcess(const GatewayProcess&) = delete;
    GatewayProcess& operator=(const GatewayProcess&) = delete;

    // Starts and waits up to `timeoutMs` for the first answer. On failure the
    // process is ended and output() tells why.
    bool start(const Options& options, int timeoutMs = 15000);
    // SIGTERM, then a kill if it doesn't end within `timeoutMs`. Returns the
    // exit code, or -1 when it had to be killed or wasn't running.
    int stop(int timeoutMs = 5000);

    bool running() const { return m_process.state() != QProcess::NotRunning; }
    quint16 port() const { return m_port; }
    qint64 processId() const { return m_process.processId(); }
    // From the last start of the process to its first answer.
    double startMs() const { return m_startMs; }
    // "opc.tcp://127.0.0.1:<port>"
    QString url() const;
    // Everything it printed so far, stdout and stderr merged.
    QString output();

    static QString program();
    static quint16 freePort();
    // True when an OPC UA server at `url` answers GetEndpoints; `answered`
    // tells when the answer came in.
    static bool answers(const QString& url, std::chrono::steady_clock::time_point* answered = nullptr);

    // A client's own session on a gateway, for the tests that look at its address space directly.
    using Client = std::unique_ptr<UA_Client, void (*)(UA_Client*)>;
    // A session at `url`, or null.
    static Client connect(const QString& url);
    static UA_NodeId nodeId(const QByteArray& utf8)
    {
        return UA_NODEID_STRING(2, const_cast<char*>(utf8.constData()));
    }
    // Calls a method of the "Каналы" object with its one string argument.
    static UA_StatusCode call(UA_Client* client, const char* method, const QByteArray& argument);
    // A node's value as one read returns it: a bad status may come with the last value.
    struct Reading
    {
        UA_StatusCode status = UA_STATUSCODE_BAD;
        const UA_DataType* type = nullptr;
        double number = 0;
        UA_DateTime source = 0;
    };
    static Reading read(UA_Client* client, const QByteArray& utf8Id);
    // A self-signed application certificate (DER) for `uri` and its key.
    static bool makeCertificate(const QString& uri, const QString& der, const QString& key);

private:
    QProcess m_process;
    QString m_output;
    quint16 m_port = 0;
    double m_startMs = 0;
};
