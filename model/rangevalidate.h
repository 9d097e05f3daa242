#pragma once

#include <cstdint>
#include <sstream>
#include <string>

namespace RangeValidate {

// One wide stream per thread, reset for each read: building a stream per
// property is most of the cost of loading a large configuration. Flags are
// never changed, so every read sees the stream's defaults.
inline std::wistringstream& ReadStream(const std::wstring& value)
{
    static thread_local std::wistringstream stream;
    stream.clear();
    stream.str(value);
    return stream;
}

// Reads a T from the start of value by the stream rules (blanks skipped, rest ignored,
// no number gives 0, overflow gives the limit of T) and checks min <= v <= max.
template <typename T> bool Validate_Range_t(const std::wstring& value, T min, T max)
{
    T v = 0;
    ReadStream(value) >> v;
    return min <= v && v <= max;
}

// Admissible numeric range of a variant code; 0..0 for codes without one.
int64_t GetTypeMin(unsigned short vt);
uint64_t GetTypeMax(unsigned short vt);

} // namespace RangeValidate

namespace RangeValidate {

// The setters' read: the stream extraction into the field itself, so an empty text
// leaves the field as it was and a text without a number gives 0.
template <typename T> void ReadValue(const std::wstring& value, T& field)
{
    ReadStream(value) >> field;
}

// One-byte fields are read through a signed 32-bit number and cut.
template <typename T> void ReadByteValue(const std::wstring& value, T& field)
{
    int32_t v = 0;
    ReadValue(value, v);
    field = static_cast<T>(v);
}

} // namespace RangeValidate
