#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <open62541/server.h>

#include <atomic>
#include <mutex>
#include <thread>

// A small OPC UA server inside the test process that looks like the gateway to
// the client: the channels object with its five methods in namespace 2, a few
// nodes to browse, an operator login. Every method call is recorded.
class TestOpcUaServer
{
public:
    struct Security
    {
        QByteArray certificate; // DER
        QByteArray privateKey;
        QList<QByteArray> trusted; // DER certificates of accepted clients
    };

    static const char* const kUser;
    static const char* const kPassword;

    explicit TestOpcUaServer(const QString& applicationUri, const Security& security = Security());
    ~TestOpcUaServer();
    TestOpcUaServer(const TestOpcUaServer&) = delete;
    TestOpcUaServer& operator=(const TestOpcUaServer&) = delete;

    bool start();
    QString url() const { return QStringLiteral("opc.tcp://127.0.0.1:%1").arg(m_port); }
    // "method|argument", in arrival order.
    QStringList calls() const;
    // Makes every method call fail from now on.
    void failCalls(bool fail) { m_failCalls = fail; }

    // A port that nobody listens on right now.
    static quint16 freePort();
    // A self-signed certificate (DER) and its key for the given application URI.
    static bool createCertificate(const QString& applicationUri, QByteArray& certificate,
                                  QByteArray& privateKey);

private:
    struct MethodContext
    {
        TestOpcUaServer* server;
        QString name;
    };

    static UA_StatusCode onMethod(UA_Server*, const UA_NodeId*, void*, const UA_NodeId*, void* methodContext,
                                  const UA_NodeId*, void*, size_t inputSize, const UA_Variant* input, size_t,
                                  UA_Variant*);
    void addNodes();

    QString m_applicationUri;
    Security m_security;
    quint16 m_port = 0;
    UA_Server* m_server = nullptr;
    std::thread m_thread;
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_failCalls{false};
    mutable std::mutex m_callsMutex;
    QStringList m_calls;
    QList<MethodContext*> m_contexts;
};
