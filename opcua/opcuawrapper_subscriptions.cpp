// Subscriptions of tag values and the data change callback.
#include "opcua/opcuawrapper.h"

#include "app/logging.h"

#include <open62541/client_subscriptions.h>

#include <QMetaType>

#include <vector>

namespace {

QString statusName(UA_StatusCode status)
{
    return QString::fromUtf8(UA_StatusCode_name(status));
}

// The scalar (or the first element of an array) as the table wants it; kinds
// past Double are not values of a tag.
QVariant scalarValue(const UA_Variant& variant)
{
    const void* data = variant.data;
    switch (variant.type->typeKind) {
    case UA_DATATYPEKIND_BOOLEAN:
        return QVariant(bool(*static_cast<const UA_Boolean*>(data)));
    case UA_DATATYPEKIND_SBYTE:
        return QVariant(int(*static_cast<const UA_SByte*>(data)));
    case UA_DATATYPEKIND_BYTE:
        return QVariant(int(*static_cast<const UA_Byte*>(data)));
    case UA_DATATYPEKIND_INT16:
        return QVariant(int(*static_cast<const UA_Int16*>(data)));
    case UA_DATATYPEKIND_UINT16:
        return QVariant(int(*static_cast<const UA_UInt16*>(data)));
    case UA_DATATYPEKIND_INT32:
        return QVariant(int(*static_cast<const UA_Int32*>(data)));
    case UA_DATATYPEKIND_UINT32:
        return QVariant(uint(*static_cast<const UA_UInt32*>(data)));
    case UA_DATATYPEKIND_INT64: {
        const long value = long(*static_cast<const UA_Int64*>(data));
        return QVariant(QMetaType::fromType<long>(), &value);
    }
    case UA_DATATYPEKIND_UINT64: {
        const unsigned long value = static_cast<unsigned long>(*static_cast<const UA_UInt64*>(data));
        return QVariant(QMetaType::fromType<unsigned long>(), &value);
    }
    case UA_DATATYPEKIND_FLOAT:
        return QVariant(*static_cast<const UA_Float*>(data));
    default:
        return QVariant(*static_cast<const UA_Double*>(data));
    }
}

// Runs on whichever thread is inside the client (the iterate thread as a rule).
// It only copies the value and emits: the client must not be called from here.
// The item's context is its position in the subscription's list of names, set
// by this program: servers number their items as they like.
void handler_TheAnswerChanged(UA_Client*, UA_UInt32 subId, void*, UA_UInt32 monId, void* monContext,
                              UA_DataValue* value)
{
    OPCUAWrapper* wrapper = OPCUAWrapper::GetInstance();
    if (wrapper->muted(int(subId)))
        return;
    // Nearly every value is "Good": the name is made once per change of status.
    thread_local UA_StatusCode lastStatus = UA_STATUSCODE_GOOD;
    thread_local QString status = statusName(UA_STATUSCODE_GOOD);
    if (value->status != lastStatus) {
        lastStatus = value->status;
        status = statusName(lastStatus);
    }
    const UA_Variant& variant = value->value;
    // An empty array carries no value either.
    if (UA_Variant_isEmpty(&variant) || (!UA_Variant_isScalar(&variant) && variant.arrayLength == 0)) {
        emit wrapper->signalDataChange(QVariantList{QVariant(status)});
        return;
    }
    if (variant.type->typeKind > UA_DATATYPEKIND_DOUBLE) {
        VLOG_WARNING().noquote() << "Поступил неизвестный тип ноды";
        return;
    }
    const auto names = wrapper->mapNodes.constFind(int(subId));
    if (names == wrapper->mapNodes.constEnd() || names->isEmpty())
        return;
    const qsizetype position = qsizetype(reinterpret_cast<quintptr>(monContext));
    if (position >= names->size())
        return;

    // Built in place: every value of every monitored tag passes here.
    QVariantList message;
    message.reserve(5);
    message.emplaceBack(uint(monId));
    message.emplaceBack(scalarValue(variant));
    message.emplaceBack(status);
    message.emplaceBack(names->at(position));
    message.emplaceBack(uint(subId));
    emit wrapper->signalDataChange(std::move(message));
}

} // namespace

int OPCUAWrapper::subscriptionTag(QList<QList<QString>> groups, int interval,
                                  QMap<int, QList<QString>>& nodes)
{
    auto lock = lockClient();
    refusedNodes.clear();
    muteSubscriptions({});
    for (const QList<QString>& names : groups) {
        if (names.isEmpty())
            continue;

        UA_CreateSubscriptionResponse subscription;
        if (clientUsable()) {
            UA_CreateSubscriptionRequest request = UA_CreateSubscriptionRequest_default();
            request.requestedPublishingInterval = double(interval);
            request.requestedLifetimeCount = 10000;
            request.requestedMaxKeepAliveCount = 10;
            request.maxNotificationsPerPublish = 0;
            request.publishingEnabled = true;
            request.priority = 0;
            subscription = UA_Client_Subscriptions_create(client, request, nullptr, nullptr, nullptr);
        } else {
            UA_CreateSubscriptionResponse_init(&subscription);
            subscription.responseHeader.serviceResult = UA_STATUSCODE_BADSERVERNOTCONNECTED;
        }
        const UA_StatusCode created = subscription.responseHeader.serviceResult;
        subscriptionId = subscription.subscriptionId;
        UA_CreateSubscriptionResponse_clear(&subscription);
        if (created != UA_STATUSCODE_GOOD) {
            VLOG_WARNING().noquote() << QStringLiteral("Не удалось создать запрос на подписку. Код ошибки %1")
                                            .arg(statusName(created));
            abandonSubscriptions();
            return 1;
        }

        const size_t count = size_t(names.size());
        std::vector<QByteArray> ids;
        ids.reserve(count);
        std::vector<UA_MonitoredItemCreateRequest> items(count);
        for (size_t i = 0; i < count; ++i) {
            ids.push_back(names[qsizetype(i)].toUtf8());
            QByteArray& id = ids.back();
            UA_MonitoredItemCreateRequest& item = items[i];
            UA_MonitoredItemCreateRequest_init(&item);
            item.itemToMonitor.nodeId = UA_NODEID_STRING(2, id.data());
            item.itemToMonitor.attributeId = UA_ATTRIBUTEID_VALUE;
            item.monitoringMode = UA_MONITORINGMODE_REPORTING;
            item.requestedParameters.samplingInterval = double(interval);
            item.requestedParameters.queueSize = 1;
            item.requestedParameters.discardOldest = true;
        }
        std::vector<UA_Client_DataChangeNotificationCallback> callbacks(count, handler_TheAnswerChanged);
        std::vector<UA_Client_DeleteMonitoredItemCallback> deleteCallbacks(count, nullptr);
        std::vector<void*> contexts(count);
        for (size_t i = 0; i < count; ++i)
            contexts[i] = reinterpret_cast<void*>(quintptr(i));

        // Notifications can come with the answer, so the names go in first.
        mapNodes[int(subscriptionId)] = names;

        UA_CreateMonitoredItemsRequest request;
        UA_CreateMonitoredItemsRequest_init(&request);
        request.subscriptionId = subscriptionId;
        request.timestampsToReturn = UA_TIMESTAMPSTORETURN_BOTH;
        request.itemsToCreate = items.data();
        request.itemsToCreateSize = count;
        UA_CreateMonitoredItemsResponse response = UA_Client_MonitoredItems_createDataChanges(
            client, request, contexts.data(), callbacks.data(), deleteCallbacks.data());

        // A tag the server refuses is reported and the others are monitored;
        // a refused request leaves the group without any, which ends the start.
        const UA_StatusCode service = response.responseHeader.serviceResult;
        for (size_t i = 0; i < count; ++i) {
            UA_StatusCode status = service;
            if (service == UA_STATUSCODE_GOOD)
                status = i < response.resultsSize ? response.results[i].statusCode
                                                  : UA_STATUSCODE_BADUNEXPECTEDERROR;
            if (status == UA_STATUSCODE_GOOD)
                continue;
            VLOG_WARNING().noquote() << QStringLiteral("Ошибка мониторинга ноды %1: %2")
                                            .arg(names[qsizetype(i)], statusName(status));
            refusedNodes << QStringLiteral("%1: %2").arg(names[qsizetype(i)], statusName(status));
        }
        UA_CreateMonitoredItemsResponse_clear(&response);
        if (service != UA_STATUSCODE_GOOD) {
            VLOG_WARNING().noquote() << "Операция создания подписки прервана, возникли ошибки мониторинга";
            abandonSubscriptions();
            return 2;
        }

        UA_Client_run_iterate(client, 10);
    }
    nodes = mapNodes;
    return 0;
}

void OPCUAWrapper::muteSubscriptions(QSet<int> ids)
{
    std::lock_guard<std::mutex> lock(m_mutedMutex);
    m_muted.swap(ids);
}

bool OPCUAWrapper::muted(int subscription) const
{
    std::lock_guard<std::mutex> lock(m_mutedMutex);
    return m_muted.contains(subscription);
}

void OPCUAWrapper::forgetSubscriptions()
{
    auto lock = lockClient();
    mapNodes.clear();
    subscriptionId = 0;
}

int OPCUAWrapper::deleteSubscriptionTag()
{
    auto lock = lockClient();
    const UA_StatusCode status = deleteSubscriptions();
    if (status != UA_STATUSCODE_GOOD) {
        VLOG_WARNING().noquote() << QStringLiteral(
                                        "Не удалось создать запрос на отмену подписки. Код ошибки %1")
                                        .arg(statusName(status));
        return 1;
    }
    mapNodes.clear();
    return 0;
}

// Every subscription in mapNodes, not only the last: one left behind per
// group and start would pile up on the server until the session ends, and a
// server with a limit would refuse the next start. One the server no longer
// knows is gone all the same.
UA_StatusCode OPCUAWrapper::deleteSubscriptions()
{
    if (mapNodes.isEmpty())
        return UA_STATUSCODE_GOOD;
    if (!clientUsable())
        return UA_STATUSCODE_BADSERVERNOTCONNECTED;
    std::vector<UA_UInt32> ids;
    for (auto it = mapNodes.constBegin(); it != mapNodes.constEnd(); ++it)
        ids.push_back(UA_UInt32(it.key()));
    UA_DeleteSubscriptionsRequest request;
    UA_DeleteSubscriptionsRequest_init(&request);
    request.subscriptionIds = ids.data();
    request.subscriptionIdsSize = ids.size();
    UA_DeleteSubscriptionsResponse response = UA_Client_Subscriptions_delete(client, request);
    UA_StatusCode status = response.responseHeader.serviceResult;
    for (size_t i = 0; i < response.resultsSize && status == UA_STATUSCODE_GOOD; ++i)
        if (response.results[i] != UA_STATUSCODE_BADSUBSCRIPTIONIDINVALID)
            status = response.results[i];
    UA_DeleteSubscriptionsResponse_clear(&response);
    return status;
}

// A start that fails takes back what it made, so that nothing of it stays on
// the server.
void OPCUAWrapper::abandonSubscriptions()
{
    if (deleteSubscriptions() == UA_STATUSCODE_GOOD)
        mapNodes.clear();
}
