// Single tags read and written by the user: access and type, and a value written.
#include "opcua/opcuawrapper.h"

#include <open62541/client_highlevel_async.h>

#include <memory>

namespace {

// Both come from the gateway's memory, at once.
const UA_UInt32 kReadTimeoutMs = 5000;
// The gateway answers a write once the device did, after its attempts and timeouts.
const UA_UInt32 kWriteTimeoutMs = 30000;

// The tag types a value can be typed in, and the Qt type holding each: the same bytes.
struct TypePair
{
    int uaType;
    QMetaType::Type qtType;
};
const TypePair kTypes[] = {
    {UA_TYPES_BOOLEAN, QMetaType::Bool},     {UA_TYPES_SBYTE, QMetaType::SChar},
    {UA_TYPES_BYTE, QMetaType::UChar},       {UA_TYPES_INT16, QMetaType::Short},
    {UA_TYPES_UINT16, QMetaType::UShort},    {UA_TYPES_INT32, QMetaType::Int},
    {UA_TYPES_UINT32, QMetaType::UInt},      {UA_TYPES_INT64, QMetaType::LongLong},
    {UA_TYPES_UINT64, QMetaType::ULongLong}, {UA_TYPES_FLOAT, QMetaType::Float},
    {UA_TYPES_DOUBLE, QMetaType::Double},
};

QString statusName(UA_StatusCode status)
{
    return QString::fromUtf8(UA_StatusCode_name(status));
}

// A write on its way; the answer names the tag and the value again.
struct PendingWrite
{
    OPCUAWrapper* wrapper;
    QString fullName;
    QString value;
};

void writeAnswered(UA_Client*, void* userdata, UA_UInt32, UA_WriteResponse* response)
{
    const std::unique_ptr<PendingWrite> pending(static_cast<PendingWrite*>(userdata));
    UA_StatusCode status = response->responseHeader.serviceResult;
    if (status == UA_STATUSCODE_GOOD)
        status = response->resultsSize == 1 ? response->results[0] : UA_STATUSCODE_BADUNEXPECTEDERROR;
    emit pending->wrapper->signalWriteAnswered(pending->fullName, pending->value, statusName(status));
}

} // namespace

TagAccess OPCUAWrapper::readTagAccess(const QString& fullName)
{
    QByteArray id = fullName.toUtf8();
    // The value too: a tag that takes any number has the abstract Number as its
    // data type, and then the value's own type is the one to write in.
    UA_ReadValueId items[3];
    for (UA_ReadValueId& item : items) {
        UA_ReadValueId_init(&item);
        item.nodeId = UA_NODEID_STRING(2, id.data());
    }
    items[0].attributeId = UA_ATTRIBUTEID_ACCESSLEVEL;
    items[1].attributeId = UA_ATTRIBUTEID_DATATYPE;
    items[2].attributeId = UA_ATTRIBUTEID_VALUE;
    UA_ReadRequest request;
    UA_ReadRequest_init(&request);
    request.requestHeader.timeoutHint = kReadTimeoutMs;
    request.timestampsToReturn = UA_TIMESTAMPSTORETURN_NEITHER;
    request.nodesToRead = items;
    request.nodesToReadSize = 3;

    TagAccess access;
    auto lock = lockClient();
    if (!clientUsable() || !connected) {
        access.status = statusName(UA_STATUSCODE_BADSERVERNOTCONNECTED);
        return access;
    }
    UA_ReadResponse response = UA_Client_Service_read(client, request);
    UA_StatusCode status = response.responseHeader.serviceResult;
    if (status == UA_STATUSCODE_GOOD && response.resultsSize != 3)
        status = UA_STATUSCODE_BADUNEXPECTEDERROR;
    // A bad value (the device is silent) still leaves its type to go by.
    for (size_t i = 0; status == UA_STATUSCODE_GOOD && i < 2; ++i)
        if (response.results[i].hasStatus)
            status = response.results[i].status;
    access.status = statusName(status);
    if (status == UA_STATUSCODE_GOOD) {
        const UA_Variant& level = response.results[0].value;
        if (UA_Variant_hasScalarType(&level, &UA_TYPES[UA_TYPES_BYTE]))
            access.writable = *static_cast<const UA_Byte*>(level.data) & UA_ACCESSLEVELMASK_WRITE;
        const UA_Variant& type = response.results[1].value;
        const UA_DataType* dataType = UA_Variant_hasScalarType(&type, &UA_TYPES[UA_TYPES_NODEID])
                                          ? UA_findDataType(static_cast<const UA_NodeId*>(type.data))
                                          : nullptr;
        const UA_Variant& value = response.results[2].value;
        if (!dataType && UA_Variant_isScalar(&value))
            dataType = value.type;
        else if (!dataType && UA_Variant_hasScalarType(&type, &UA_TYPES[UA_TYPES_NODEID])) {
            const UA_NodeId number = UA_NODEID_NUMERIC(0, UA_NS0ID_NUMBER);
            if (UA_NodeId_equal(static_cast<const UA_NodeId*>(type.data), &number))
                dataType = &UA_TYPES[UA_TYPES_DOUBLE];
        }
        if (dataType) {
            access.typeName = QString::fromLatin1(dataType->typeName);
            for (const TypePair& pair : kTypes)
                if (dataType == &UA_TYPES[pair.uaType])
                    access.type = QMetaType(pair.qtType);
        }
    }
    UA_ReadResponse_clear(&response);
    return access;
}

void OPCUAWrapper::writeTagValue(const QString& fullName, const QVariant& value)
{
    const UA_DataType* type = nullptr;
    for (const TypePair& pair : kTypes)
        if (value.metaType().id() == pair.qtType)
            type = &UA_TYPES[pair.uaType];
    const QString text = value.toString();
    if (!type) {
        emit signalWriteAnswered(fullName, text, statusName(UA_STATUSCODE_BADTYPEMISMATCH));
        return;
    }

    QByteArray id = fullName.toUtf8();
    UA_WriteValue item;
    UA_WriteValue_init(&item);
    item.nodeId = UA_NODEID_STRING(2, id.data());
    item.attributeId = UA_ATTRIBUTEID_VALUE;
    item.value.hasValue = true;
    // The request is encoded before the call returns: the value may stay where it is.
    UA_Variant_setScalar(&item.value.value, const_cast<void*>(value.constData()), type);
    UA_WriteRequest request;
    UA_WriteRequest_init(&request);
    request.requestHeader.timeoutHint = kWriteTimeoutMs;
    request.nodesToWrite = &item;
    request.nodesToWriteSize = 1;

    auto pending = std::make_unique<PendingWrite>(PendingWrite{this, fullName, text});
    auto lock = lockClient();
    const UA_StatusCode sent =
        clientUsable() && connected
            ? UA_Client_sendAsyncWriteRequest(client, &request, writeAnswered, pending.get(), nullptr)
            : UA_STATUSCODE_BADSERVERNOTCONNECTED;
    if (sent == UA_STATUSCODE_GOOD)
        pending.release(); // the answer owns it now
    else
        emit signalWriteAnswered(fullName, text, statusName(sent));
}
