#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>

// One row of the configuration file, composed apart and written to the stream
// in one piece: the stream's own formatting costs far more per call than the
// text it writes. Numbers come out as the stream would write them with its
// defaults in the classic locale: whole numbers in decimal, reals in six
// significant digits (0.5, 1.23457e+06). One row is composed at a time on a
// thread; its memory is kept for the next.
class CRowText
{
public:
    CRowText();

    CRowText& operator<<(const std::wstring& text);
    CRowText& operator<<(const wchar_t* text);
    CRowText& operator<<(wchar_t c);
    CRowText& operator<<(double number);
    template <typename T,
              std::enable_if_t<std::is_integral_v<T> && sizeof(T) >= 2 && !std::is_same_v<T, wchar_t> &&
                                   !std::is_same_v<T, char16_t> && !std::is_same_v<T, char32_t>,
                               int> = 0>
    CRowText& operator<<(T number)
    {
        return std::is_signed_v<T> ? Signed(static_cast<int64_t>(number))
                                   : Unsigned(static_cast<uint64_t>(number));
    }

    // A node's name, stored as UTF-8; a byte that isn't UTF-8 writes U+FFFD.
    CRowText& Name(const std::string& utf8);
    void WriteTo(std::wostream& out) const;

private:
    CRowText& Signed(int64_t number);
    CRowText& Unsigned(uint64_t number);
    void Digits(const char* begin, const char* end);

    std::wstring& m_text;
};
