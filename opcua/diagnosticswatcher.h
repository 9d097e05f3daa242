#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <open62541/client.h>

#include <chrono>
#include <mutex>

// Watches the gateway's diagnostic variables beside monitoring, in
// subscriptions of its own at about one value a second: one per watch (the
// variables of the selected channel or device, the states of the tree's
// devices), replaced whenever what it should watch changes. Callers only say
// what they want; the owner of the client advances the subscriptions from
// the thread that runs the client, under the client's lock, so that nobody
// waits for the server on their account.
class DiagnosticsWatcher : public QObject
{
    Q_OBJECT
public:
    enum Watch
    {
        Selection,
        Tree,
        kWatchCount
    };

    explicit DiagnosticsWatcher(QObject* parent = nullptr);

    // Ids in the gateway's namespace of diagnostics, "<full name>.<variable>";
    // an empty list ends the watch. Each call makes a new subscription, whose
    // first values are all the variables' values now. Any thread.
    void watch(int which, const QStringList& ids);
    // Sends what the watches need next: the namespace's index, a subscription,
    // its items, or the deletion of one no longer wanted. Under the client's
    // lock, with the session open.
    void advance(UA_Client* client);
    // The client went, and its subscriptions with it; the watches end.
    void forget();

signals:
    // A value of a watched variable, from the thread running the client. A
    // variable the server refuses comes without a value, with its status.
    void signalValue(int which, QString id, QVariant value, QString status);
    // The server publishes no diagnostics.
    void signalAbsent();

private:
    struct Subscription
    {
        enum Step
        {
            Idle,
            Creating, // its creation was sent
            Created,  // made on the server, no items yet
            Subscribed
        };
        DiagnosticsWatcher* owner = nullptr;
        int which = 0;
        Step step = Idle;
        // The call of watch() it serves.
        unsigned serial = 0;
        UA_UInt32 id = 0;
        QStringList ids; // its items, in order
    };

    void subscribe(UA_Client* client, Subscription& subscription, const QStringList& ids, unsigned serial);
    void addItems(UA_Client* client, Subscription& subscription);
    void drop(UA_Client* client, Subscription& subscription);
    static void namespaceAnswered(UA_Client* client, void* watcher, UA_UInt32 requestId, UA_StatusCode status,
                                  UA_DataValue* value);
    static void subscriptionAnswered(UA_Client* client, void* subscription, UA_UInt32 requestId,
                                     void* response);
    static void itemsAnswered(UA_Client* client, void* pending, UA_UInt32 requestId, void* response);
    static void valueChanged(UA_Client* client, UA_UInt32 subId, void* subscription, UA_UInt32 monId,
                             void* position, UA_DataValue* value);

    std::mutex m_wishMutex;
    QStringList m_wanted[kWatchCount];
    unsigned m_serials[kWatchCount] = {};
    // Only under the client's lock from here on.
    Subscription m_subscriptions[kWatchCount];
    int m_namespace;
    std::chrono::steady_clock::time_point m_retryAt;
};
