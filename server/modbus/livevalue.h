#pragma once

#include <open62541/types.h>

#include <cstdint>
#include <functional>
#include <mutex>

// The latest polled value of one tag, shared by its OPC UA node (read on the
// server's thread) and its channel's poller (written on the channel thread).
class CLiveValue
{
public:
    using Writer = std::function<UA_StatusCode(double)>;

    CLiveValue(const UA_DataType* type, bool writable) : m_type(type), m_writable(writable) {}

    // From the poller: a good value or a failure that keeps the last value.
    void Publish(double value, std::int64_t ms);
    void Fail(UA_StatusCode status, std::int64_t ms);
    // The exchange stopped: a good value stays, with its time, as the last
    // usable one.
    void Hold();

    // For the OPC UA node.
    void Fill(bool sourceTimestamp, UA_DataValue* out) const;
    UA_StatusCode Write(const UA_Variant& value);
    bool Writable() const { return m_writable; }
    // Set by the poller's owner on the server's thread, like Write's callers.
    void SetWriter(Writer writer) { m_writer = std::move(writer); }

    const UA_DataType* Type() const { return m_type; }
    // The node's value of `type` nearest to `v`.
    static void ToVariant(const UA_DataType* type, double v, UA_Variant* out);
    static bool FromVariant(const UA_Variant& value, double& out);

private:
    mutable std::mutex m_mutex;
    double m_value = 0;
    bool m_hasValue = false;
    // Until the device first answers there is no link and no last value.
    UA_StatusCode m_status = UA_STATUSCODE_BADNOCOMMUNICATION;
    std::int64_t m_ms = 0;

    const UA_DataType* m_type;
    bool m_writable;
    Writer m_writer;
};
