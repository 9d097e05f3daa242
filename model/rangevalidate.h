#pragma once

#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>

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

// A cell of a file nearly always holds plain decimal digits, or for a real
// number a minus sign, digits and one point between digits. Such a text is
// read here, to the value the stream gives it, for a fraction of the stream's
// cost; any other text answers false, leaves the value alone and is left to
// the stream. Whole numbers take at most 19 digits, reals at most 40 characters.
bool ReadPlain(const std::wstring& text, uint64_t& value);
bool ReadPlain(const std::wstring& text, double& value);
bool ReadPlain(const std::wstring& text, float& value);

// ReadPlain into any arithmetic T; a whole number beyond T's range is the stream's.
template <typename T> bool ReadPlainAs(const std::wstring& text, T& value)
{
    if constexpr (std::is_floating_point_v<T>) {
        return ReadPlain(text, value);
    } else {
        uint64_t v = 0;
        if (!ReadPlain(text, v) || v > static_cast<uint64_t>(std::numeric_limits<T>::max()))
            return false;
        value = static_cast<T>(v);
        return true;
    }
}

// Reads a T from the start of value by the stream rules (blanks skipped, rest ignored,
// no number gives 0, overflow gives the limit of T) and checks min <= v <= max.
template <typename T> bool Validate_Range_t(const std::wstring& value, T min, T max)
{
    T v = 0;
    if (!ReadPlainAs(value, v))
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
    if (!ReadPlainAs(value, field))
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
