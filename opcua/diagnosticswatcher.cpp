#include "opcua/diagnosticswatcher.h"

#include "model/diagnosticnames.h"

#include <QDateTime>

#include <open62541/client_highlevel_async.h>
#include <open62541/client_subscriptions.h>

#include <memory>
#include <vector>

namespace {

// States of the namespace's index besides the index itself (never 0, the
// standard's own namespace).
const int kUnknown = -1;
const int kAsking = -2;
const int kAbsent = 0;
const double kIntervalMs = 1000;
// What the server refused is asked for again after this long.
const std::chrono::seconds kRetryDelay(5);

QString statusName(UA_StatusCode status)
{
    return QString::fromUtf8(UA_StatusCode_name(status));
}

QString text(const UA_String& s)
{
    return QString::fromUtf8(reinterpret_cast<const char*>(s.data), qsizetype(s.length));
}

// The gateway's diagnostics are texts, counts, milliseconds and one time.
QVariant toQt(const UA_Variant& v)
{
    if (UA_Variant_hasScalarType(&v, &UA_TYPES[UA_TYPES_STRING]))
        return text(*static_cast<const UA_String*>(v.data));
    if (UA_Variant_hasScalarType(&v, &UA_TYPES[UA_TYPES_UINT64]))
        return QVariant(qulonglong(*static_cast<const UA_UInt64*>(v.data)));
    if (UA_Variant_hasScalarType(&v, &UA_TYPES[UA_TYPES_DOUBLE]))
        return QVariant(*static_cast<const UA_Double*>(v.data));
    if (UA_Variant_hasScalarType(&v, &UA_TYPES[UA_TYPES_DATETIME])) {
        const UA_DateTime at = *static_cast<const UA_DateTime*>(v.data);
        return at == 0 ? QDateTime()
                       : QDateTime::fromMSecsSinceEpoch((at - UA_DATETIME_UNIX_EPOCH) / UA_DATETIME_MSEC);
    }
    return QVariant();
}

// Items on their way: the answer may find their subscription replaced.
struct PendingItems
{
    void* subscription;
    UA_UInt32 id;
};

void ignoreAnswer(UA_Client*, void*, UA_UInt32, void*) {}

} // namespace

DiagnosticsWatcher::DiagnosticsWatcher(QObject* parent) : QObject(parent), m_namespace(kUnknown)
{
    for (int i = 0; i < kWatchCount; ++i) {
        m_subscriptions[i].owner = this;
        m_subscriptions[i].which = i;
    }
}

void DiagnosticsWatcher::watch(int which, const QStringList& ids)
{
    std::lock_guard<std::mutex> lock(m_wishMutex);
    m_wanted[which] = ids;
    ++m_serials[which];
}

void DiagnosticsWatcher::forget()
{
    {
        std::lock_guard<std::mutex> lock(m_wishMutex);
        for (QStringList& ids : m_wanted)
            ids.clear();
    }
    for (Subscription& s : m_subscriptions) {
        s.step = Subscription::Idle;
        s.id = 0;
        s.ids.clear();
    }
    m_namespace = kUnknown;
    m_retryAt = {};
}

void DiagnosticsWatcher::advance(UA_Client* client)
{
    QStringList wanted[kWatchCount];
    unsigned serials[kWatchCount];
    {
        std::lock_guard<std::mutex> lock(m_wishMutex);
        for (int i = 0; i < kWatchCount; ++i) {
            wanted[i] = m_wanted[i];
            serials[i] = m_serials[i];
        }
    }
    const auto now = std::chrono::steady_clock::now();
    for (Subscription& s : m_subscriptions) {
        const QStringList& ids = wanted[s.which];
        if (s.step == Subscription::Creating)
            continue;
        if (s.step != Subscription::Idle && s.serial != serials[s.which])
            drop(client, s);
        if (ids.isEmpty() || now < m_retryAt)
            continue;
        if (s.step == Subscription::Created) {
            addItems(client, s);
        } else if (s.step == Subscription::Idle && m_namespace == kUnknown) {
            m_namespace = kAsking;
            if (UA_Client_readValueAttribute_async(
                    client, UA_NODEID_NUMERIC(0, UA_NS0ID_SERVER_NAMESPACEARRAY),
                    &DiagnosticsWatcher::namespaceAnswered, this, nullptr) != UA_STATUSCODE_GOOD) {
                m_namespace = kUnknown;
                m_retryAt = now + kRetryDelay;
            }
        } else if (s.step == Subscription::Idle && m_namespace > 0) {
            subscribe(client, s, ids, serials[s.which]);
        }
    }
}

void DiagnosticsWatcher::subscribe(UA_Client* client, Subscription& s, const QStringList& ids,
                                   unsigned serial)
{
    UA_CreateSubscriptionRequest request = UA_CreateSubscriptionRequest_default();
    request.requestedPublishingInterval = kIntervalMs;
    if (UA_Client_Subscriptions_create_async(client, request, &s, nullptr, nullptr,
                                             &DiagnosticsWatcher::subscriptionAnswered, &s,
                                             nullptr) != UA_STATUSCODE_GOOD) {
        m_retryAt = std::chrono::steady_clock::now() + kRetryDelay;
        return;
    }
    s.step = Subscription::Creating;
    s.serial = serial;
    s.ids = ids;
}

void DiagnosticsWatcher::addItems(UA_Client* client, Subscription& s)
{
    const size_t count = size_t(s.ids.size());
    std::vector<QByteArray> names;
    names.reserve(count);
    std::vector<UA_MonitoredItemCreateRequest> items;
    std::vector<void*> contexts;
    for (size_t i = 0; i < count; ++i) {
        names.push_back(s.ids[qsizetype(i)].toUtf8());
        items.push_back(UA_MonitoredItemCreateRequest_default(
            UA_NODEID_STRING(UA_UInt16(m_namespace), names.back().data())));
        items.back().requestedParameters.samplingInterval = kIntervalMs;
        contexts.push_back(reinterpret_cast<void*>(quintptr(i)));
    }
    std::vector<UA_Client_DataChangeNotificationCallback> callbacks(count, &DiagnosticsWatcher::valueChanged);
    std::vector<UA_Client_DeleteMonitoredItemCallback> deleteCallbacks(count, nullptr);
    UA_CreateMonitoredItemsRequest request;
    UA_CreateMonitoredItemsRequest_init(&request);
    request.subscriptionId = s.id;
    request.timestampsToReturn = UA_TIMESTAMPSTORETURN_NEITHER;
    request.itemsToCreate = items.data();
    request.itemsToCreateSize = count;
    auto pending = std::make_unique<PendingItems>(PendingItems{&s, s.id});
    if (UA_Client_MonitoredItems_createDataChanges_async(
            client, request, contexts.data(), callbacks.data(), deleteCallbacks.data(),
            &DiagnosticsWatcher::itemsAnswered, pending.get(), nullptr) != UA_STATUSCODE_GOOD) {
        drop(client, s);
        m_retryAt = std::chrono::steady_clock::now() + kRetryDelay;
        return;
    }
    pending.release(); // the answer owns it now
    s.step = Subscription::Subscribed;
}

void DiagnosticsWatcher::drop(UA_Client* client, Subscription& s)
{
    if (s.id != 0) {
        UA_DeleteSubscriptionsRequest request;
        UA_DeleteSubscriptionsRequest_init(&request);
        request.subscriptionIds = &s.id;
        request.subscriptionIdsSize = 1;
        UA_Client_Subscriptions_delete_async(client, request, ignoreAnswer, nullptr, nullptr);
    }
    s.step = Subscription::Idle;
    s.id = 0;
    s.ids.clear();
}

void DiagnosticsWatcher::namespaceAnswered(UA_Client*, void* watcher, UA_UInt32, UA_StatusCode status,
                                           UA_DataValue* value)
{
    auto* self = static_cast<DiagnosticsWatcher*>(watcher);
    if (self->m_namespace != kAsking)
        return;
    if (status != UA_STATUSCODE_GOOD || !value || (value->hasStatus && value->status != UA_STATUSCODE_GOOD) ||
        !UA_Variant_hasArrayType(&value->value, &UA_TYPES[UA_TYPES_STRING])) {
        self->m_namespace = kUnknown;
        self->m_retryAt = std::chrono::steady_clock::now() + kRetryDelay;
        return;
    }
    self->m_namespace = kAbsent;
    const auto* uris = static_cast<const UA_String*>(value->value.data);
    for (size_t i = 1; i < value->value.arrayLength; ++i)
        if (text(uris[i]) == QLatin1String(DiagnosticNames::kNamespaceUri))
            self->m_namespace = int(i);
    if (self->m_namespace == kAbsent)
        emit self->signalAbsent();
}

void DiagnosticsWatcher::subscriptionAnswered(UA_Client*, void* subscription, UA_UInt32, void* response)
{
    auto& s = *static_cast<Subscription*>(subscription);
    const auto* answer = static_cast<const UA_CreateSubscriptionResponse*>(response);
    if (s.step != Subscription::Creating)
        return;
    if (answer->responseHeader.serviceResult != UA_STATUSCODE_GOOD) {
        s.step = Subscription::Idle;
        s.ids.clear();
        s.owner->m_retryAt = std::chrono::steady_clock::now() + kRetryDelay;
        return;
    }
    s.id = answer->subscriptionId;
    s.step = Subscription::Created;
}

void DiagnosticsWatcher::itemsAnswered(UA_Client*, void* pending, UA_UInt32, void* response)
{
    const std::unique_ptr<PendingItems> items(static_cast<PendingItems*>(pending));
    const auto& s = *static_cast<Subscription*>(items->subscription);
    if (s.step != Subscription::Subscribed || s.id != items->id)
        return;
    // A variable the server does not know (an item of the tree it has not got) says so.
    const auto* answer = static_cast<const UA_CreateMonitoredItemsResponse*>(response);
    const UA_StatusCode service = answer->responseHeader.serviceResult;
    for (qsizetype i = 0; i < s.ids.size(); ++i) {
        UA_StatusCode status = service;
        if (status == UA_STATUSCODE_GOOD)
            status = size_t(i) < answer->resultsSize ? answer->results[i].statusCode
                                                     : UA_STATUSCODE_BADUNEXPECTEDERROR;
        if (status != UA_STATUSCODE_GOOD)
            emit s.owner->signalValue(s.which, s.ids.at(i), QVariant(), statusName(status));
    }
}

void DiagnosticsWatcher::valueChanged(UA_Client*, UA_UInt32 subId, void* subscription, UA_UInt32,
                                      void* position, UA_DataValue* value)
{
    const auto* s = static_cast<const Subscription*>(subscription);
    const qsizetype at = qsizetype(reinterpret_cast<quintptr>(position));
    // A subscription being replaced may still send what it had.
    if (!s || s->id != subId || at >= s->ids.size())
        return;
    emit s->owner->signalValue(s->which, s->ids.at(at), toQt(value->value),
                               statusName(value->hasStatus ? value->status : UA_STATUSCODE_GOOD));
}
