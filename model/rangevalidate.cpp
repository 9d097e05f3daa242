#include "model/rangevalidate.h"

#include "model/modbus_types.h"

#include <charconv>

namespace RangeValidate {

namespace {

bool IsDigit(wchar_t c)
{
    return c >= L'0' && c <= L'9';
}

// -?digits(.digits)? in full, copied to narrow characters for from_chars,
// which rounds as the stream's strtod does and knows no locale.
template <typename T> bool ReadPlainReal(const std::wstring& text, T& value)
{
    const size_t n = text.size();
    const size_t first = n > 0 && text[0] == L'-' ? 1 : 0;
    if (n == first || n > 40 || !IsDigit(text[first]))
        return false;
    char narrow[40];
    bool point = false;
    for (size_t i = 0; i < n; ++i) {
        const wchar_t c = text[i];
        if (c == L'.' && !point && i + 1 < n && IsDigit(text[i - 1]))
            point = true;
        else if (!IsDigit(c) && i >= first)
            return false;
        narrow[i] = static_cast<char>(c);
    }
    T v = 0;
    const auto [end, error] = std::from_chars(narrow, narrow + n, v);
    if (error != std::errc() || end != narrow + n)
        return false;
    value = v;
    return true;
}

} // namespace

bool ReadPlain(const std::wstring& text, uint64_t& value)
{
    const size_t n = text.size();
    if (n == 0 || n > 19)
        return false;
    uint64_t v = 0;
    for (const wchar_t c : text) {
        if (!IsDigit(c))
            return false;
        v = v * 10 + static_cast<uint64_t>(c - L'0');
    }
    value = v;
    return true;
}

bool ReadPlain(const std::wstring& text, double& value)
{
    return ReadPlainReal(text, value);
}

bool ReadPlain(const std::wstring& text, float& value)
{
    return ReadPlainReal(text, value);
}

int64_t GetTypeMin(unsigned short vt)
{
    switch (vt) {
    case VT_I1:
        return -128;
    case VT_I2:
        return -32768;
    case VT_I4:
        return -2147483648LL;
    case VT_R4:
        return -10000000;
    case VT_R8:
        return -1000000000;
    default:
        return 0;
    }
}

uint64_t GetTypeMax(unsigned short vt)
{
    switch (vt) {
    case VT_I1:
        return 127;
    case VT_I2:
        return 32767;
    case VT_I4:
        return 2147483647;
    case VT_UI1:
        return 255;
    case VT_UI2:
        return 65535;
    case VT_UI4:
        return 4294967295ULL;
    case VT_R4:
        return 10000000;
    case VT_R8:
        return 1000000000;
    case VT_BOOL:
        return 1;
    default:
        return 0;
    }
}

} // namespace RangeValidate
