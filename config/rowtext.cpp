#include "config/rowtext.h"

#include "config/linedecoder.h"

#include <charconv>

namespace {

std::wstring& Buffer()
{
    static thread_local std::wstring text;
    return text;
}

} // namespace

CRowText::CRowText() : m_text(Buffer())
{
    m_text.clear();
}

CRowText& CRowText::operator<<(const std::wstring& text)
{
    m_text += text;
    return *this;
}

CRowText& CRowText::operator<<(const wchar_t* text)
{
    m_text += text;
    return *this;
}

CRowText& CRowText::operator<<(wchar_t c)
{
    m_text += c;
    return *this;
}

CRowText& CRowText::operator<<(double number)
{
    // As printf's %g with the stream's default precision.
    char digits[32];
    const auto written = std::to_chars(digits, digits + sizeof digits, number, std::chars_format::general, 6);
    Digits(digits, written.ptr);
    return *this;
}

CRowText& CRowText::Signed(int64_t number)
{
    char digits[24];
    Digits(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
    return *this;
}

CRowText& CRowText::Unsigned(uint64_t number)
{
    char digits[24];
    Digits(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
    return *this;
}

void CRowText::Digits(const char* begin, const char* end)
{
    m_text.append(begin, end);
}

CRowText& CRowText::Name(const std::string& utf8)
{
    const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
    size_t left = utf8.size();
    while (left) {
        char32_t c = 0;
        int len = CLineDecoder::DecodeUtf8(p, left, c);
        if (len == 0) {
            c = 0xFFFD;
            len = 1;
        }
        m_text.push_back(static_cast<wchar_t>(c));
        p += len;
        left -= size_t(len);
    }
    return *this;
}

void CRowText::WriteTo(std::wostream& out) const
{
    out.write(m_text.data(), std::streamsize(m_text.size()));
}
