#include "server/modbus/livevalue.h"

#include <cmath>
#include <limits>

namespace {

template <typename T> void Store(double v, const UA_DataType* type, UA_Variant* out)
{
    const double r = std::round(v);
    T x;
    if (!(r >= double(std::numeric_limits<T>::lowest())))
        x = std::numeric_limits<T>::lowest();
    else if (r > double(std::numeric_limits<T>::max()))
        x = std::numeric_limits<T>::max();
    else
        x = T(r);
    UA_Variant_setScalarCopy(out, &x, type);
}

} // namespace

void CLiveValue::Publish(double value, std::int64_t ms)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_value = value;
    m_hasValue = true;
    m_status = UA_STATUSCODE_GOOD;
    m_ms = ms;
}

void CLiveValue::Fail(UA_StatusCode status, std::int64_t ms)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_status = status;
    m_ms = ms;
}

void CLiveValue::Hold()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_status == UA_STATUSCODE_GOOD && m_hasValue)
        m_status = UA_STATUSCODE_UNCERTAINLASTUSABLEVALUE;
}

void CLiveValue::Fill(bool sourceTimestamp, UA_DataValue* out) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    const double value = m_value;
    const bool hasValue = m_hasValue;
    const UA_StatusCode status = m_status;
    const std::int64_t ms = m_ms;
    lock.unlock();

    if (hasValue) {
        ToVariant(m_type, value, &out->value);
        out->hasValue = true;
    }
    if (status != UA_STATUSCODE_GOOD) {
        out->hasStatus = true;
        out->status = status;
    }
    if (sourceTimestamp && ms) {
        out->hasSourceTimestamp = true;
        out->sourceTimestamp = UA_DATETIME_UNIX_EPOCH + ms * UA_DATETIME_MSEC;
    }
}

UA_StatusCode CLiveValue::Write(const UA_Variant& value)
{
    double v = 0;
    if (!m_writable)
        return UA_STATUSCODE_BADNOTWRITABLE;
    if (!FromVariant(value, v))
        return UA_STATUSCODE_BADTYPEMISMATCH;
    if (!m_writer)
        return UA_STATUSCODE_BADNOCOMMUNICATION;
    return m_writer(v);
}

void CLiveValue::ToVariant(const UA_DataType* type, double v, UA_Variant* out)
{
    if (type == &UA_TYPES[UA_TYPES_BOOLEAN]) {
        UA_Boolean b = v >= 0.5;
        UA_Variant_setScalarCopy(out, &b, type);
    } else if (type == &UA_TYPES[UA_TYPES_FLOAT]) {
        UA_Float f = UA_Float(v);
        UA_Variant_setScalarCopy(out, &f, type);
    } else if (type == &UA_TYPES[UA_TYPES_DOUBLE]) {
        UA_Double d = v;
        UA_Variant_setScalarCopy(out, &d, type);
    } else if (type == &UA_TYPES[UA_TYPES_UINT16]) {
        Store<UA_UInt16>(v, type, out);
    } else if (type == &UA_TYPES[UA_TYPES_UINT32]) {
        Store<UA_UInt32>(v, type, out);
    } else if (type == &UA_TYPES[UA_TYPES_INT16]) {
        Store<UA_Int16>(v, type, out);
    } else if (type == &UA_TYPES[UA_TYPES_INT32]) {
        Store<UA_Int32>(v, type, out);
    } else {
        Store<UA_Byte>(v, &UA_TYPES[UA_TYPES_BYTE], out);
    }
}

bool CLiveValue::FromVariant(const UA_Variant& value, double& out)
{
    if (!UA_Variant_isScalar(&value) || !value.data)
        return false;
    const void* p = value.data;
    const UA_DataType* t = value.type;
    if (t == &UA_TYPES[UA_TYPES_BOOLEAN])
        out = *static_cast<const UA_Boolean*>(p) ? 1 : 0;
    else if (t == &UA_TYPES[UA_TYPES_FLOAT])
        out = *static_cast<const UA_Float*>(p);
    else if (t == &UA_TYPES[UA_TYPES_DOUBLE])
        out = *static_cast<const UA_Double*>(p);
    else if (t == &UA_TYPES[UA_TYPES_BYTE])
        out = *static_cast<const UA_Byte*>(p);
    else if (t == &UA_TYPES[UA_TYPES_SBYTE])
        out = *static_cast<const UA_SByte*>(p);
    else if (t == &UA_TYPES[UA_TYPES_UINT16])
        out = *static_cast<const UA_UInt16*>(p);
    else if (t == &UA_TYPES[UA_TYPES_INT16])
        out = *static_cast<const UA_Int16*>(p);
    else if (t == &UA_TYPES[UA_TYPES_UINT32])
        out = *static_cast<const UA_UInt32*>(p);
    else if (t == &UA_TYPES[UA_TYPES_INT32])
        out = *static_cast<const UA_Int32*>(p);
    else if (t == &UA_TYPES[UA_TYPES_UINT64])
        out = double(*static_cast<const UA_UInt64*>(p));
    else if (t == &UA_TYPES[UA_TYPES_INT64])
        out = double(*static_cast<const UA_Int64*>(p));
    else
        return false;
    return true;
}
