#include "server/tagruntime.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

std::uint64_t Mix(std::uint64_t x)
{
    x += 0x9E3779B97F4A7C15ULL;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBULL;
    return x ^ (x >> 31);
}

template <typename T> T Clamped(double v)
{
    const double r = std::round(v);
    if (!(r >= double(std::numeric_limits<T>::min())))
        return std::numeric_limits<T>::min();
    if (r > double(std::numeric_limits<T>::max()))
        return std::numeric_limits<T>::max();
    return T(r);
}

} // namespace

CTagRuntime::DataKind CTagRuntime::KindFor(int regType, int valType)
{
    if (regType < 2 || valType >= 8)
        return Boolean;
    switch (valType) {
    case 0:
        return Float;
    case 1:
        return Double;
    case 2:
        return UInt16;
    case 3:
        return UInt32;
    case 4:
        return Int16;
    case 5:
        return Int32;
    default:
        return Byte;
    }
}

const UA_DataType* CTagRuntime::TypeOf(DataKind kind)
{
    switch (kind) {
    case Boolean:
        return &UA_TYPES[UA_TYPES_BOOLEAN];
    case Float:
        return &UA_TYPES[UA_TYPES_FLOAT];
    case Double:
        return &UA_TYPES[UA_TYPES_DOUBLE];
    case UInt16:
        return &UA_TYPES[UA_TYPES_UINT16];
    case UInt32:
        return &UA_TYPES[UA_TYPES_UINT32];
    case Int16:
        return &UA_TYPES[UA_TYPES_INT16];
    case Int32:
        return &UA_TYPES[UA_TYPES_INT32];
    case Byte:
        return &UA_TYPES[UA_TYPES_BYTE];
    }
    return &UA_TYPES[UA_TYPES_FLOAT];
}

void CTagRuntime::SetSeed(const std::string& fullName)
{
    std::uint64_t h = 1469598103934665603ULL;
    for (unsigned char c : fullName)
        h = (h ^ c) * 1099511628211ULL;
    m_seed = h;
}

std::int64_t CTagRuntime::Sampled(std::int64_t ms) const
{
    // Values move in steps of the group's update rate.
    if (updateMs == 0)
        return ms;
    const auto step = std::int64_t(updateMs);
    return ms - ((ms % step) + step) % step;
}

CTagRuntime::DataKind CTagRuntime::PublishedKind(int regType, int valType, int transformType)
{
    const DataKind raw = KindFor(regType, valType);
    return raw != Boolean && (transformType == LineScale || transformType == Factor) ? Double : raw;
}

void CTagRuntime::RawRange(double& lo, double& hi) const
{
    if (transform == LineScale && kind != Boolean) {
        lo = std::min(srcMin, srcMax);
        hi = std::max(srcMin, srcMax);
    } else {
        lo = emulation == Sine ? -1 : 0;
        hi = 1;
    }
}

double CTagRuntime::RawAt(std::int64_t ms) const
{
    const std::int64_t t = Sampled(ms);
    double lo = 0, hi = 0;
    RawRange(lo, hi);
    switch (emulation) {
    case Random: {
        const double u = double(Mix(m_seed ^ Mix(std::uint64_t(t))) >> 11) * (1.0 / 9007199254740992.0);
        // Registers hold whole numbers: every one of the range is as likely.
        if (kind == Float || kind == Double)
            return lo + u * (hi - lo);
        return std::min(hi, lo + std::floor(u * (hi - lo + 1)));
    }
    case Sine: {
        // A quarter period ahead, so that sampling at half the period shows
        // the peaks rather than the zero crossings.
        const double p = period == 0 ? 1.0 : double(period);
        const double phase = std::fmod(double(t) / 1000.0, p) / p + 0.25;
        return (lo + hi) / 2 + (hi - lo) / 2 * std::sin(2.0 * M_PI * phase);
    }
    default:
        return constant;
    }
}

double CTagRuntime::ValueAt(std::int64_t ms) const
{
    const double raw = RawAt(ms);
    if (kind == Boolean)
        return raw;
    switch (transform) {
    case LineScale:
        if (srcMax == srcMin)
            return dstMin;
        return dstMin + (raw - srcMin) * (dstMax - dstMin) / (srcMax - srcMin);
    case Factor:
        return raw * factor;
    default:
        return raw;
    }
}

void CTagRuntime::Fill(std::int64_t ms, bool sourceTimestamp, UA_DataValue* out) const
{
    if (!emulated) {
        out->hasStatus = true;
        out->status = UA_STATUSCODE_BADNOCOMMUNICATION;
        return;
    }
    const double v = ValueAt(ms);
    switch (Published()) {
    case Boolean: {
        UA_Boolean b = v >= 0.5;
        UA_Variant_setScalarCopy(&out->value, &b, &UA_TYPES[UA_TYPES_BOOLEAN]);
        break;
    }
    case Float: {
        UA_Float f = UA_Float(v);
        UA_Variant_setScalarCopy(&out->value, &f, &UA_TYPES[UA_TYPES_FLOAT]);
        break;
    }
    case Double: {
        UA_Double d = v;
        UA_Variant_setScalarCopy(&out->value, &d, &UA_TYPES[UA_TYPES_DOUBLE]);
        break;
    }
    case UInt16: {
        UA_UInt16 x = Clamped<UA_UInt16>(v);
        UA_Variant_setScalarCopy(&out->value, &x, &UA_TYPES[UA_TYPES_UINT16]);
        break;
    }
    case UInt32: {
        UA_UInt32 x = Clamped<UA_UInt32>(v);
        UA_Variant_setScalarCopy(&out->value, &x, &UA_TYPES[UA_TYPES_UINT32]);
        break;
    }
    case Int16: {
        UA_Int16 x = Clamped<UA_Int16>(v);
        UA_Variant_setScalarCopy(&out->value, &x, &UA_TYPES[UA_TYPES_INT16]);
        break;
    }
    case Int32: {
        UA_Int32 x = Clamped<UA_Int32>(v);
        UA_Variant_setScalarCopy(&out->value, &x, &UA_TYPES[UA_TYPES_INT32]);
        break;
    }
    case Byte: {
        UA_Byte x = Clamped<UA_Byte>(v);
        UA_Variant_setScalarCopy(&out->value, &x, &UA_TYPES[UA_TYPES_BYTE]);
        break;
    }
    }
    out->hasValue = true;
    if (sourceTimestamp) {
        out->hasSourceTimestamp = true;
        out->sourceTimestamp = UA_DATETIME_UNIX_EPOCH + Sampled(ms) * UA_DATETIME_MSEC;
    }
}
