#include "config/utf8streambuf.h"

#include "config/scrambler.h"

#include <QIODevice>

namespace {
// Large enough that a device write costs nothing per row.
constexpr int kBufferBytes = 1 << 16;
} // namespace

CUtf8StreamBuf::CUtf8StreamBuf(QIODevice* device, bool scramble) : m_device(device), m_scramble(scramble)
{
    m_buffer.reserve(kBufferBytes + 8);
}

CUtf8StreamBuf::~CUtf8StreamBuf() = default;

bool CUtf8StreamBuf::finish()
{
    return flushBuffer();
}

CUtf8StreamBuf::int_type CUtf8StreamBuf::overflow(int_type c)
{
    if (traits_type::eq_int_type(c, traits_type::eof()))
        return sync() == 0 ? traits_type::not_eof(c) : traits_type::eof();
    put(static_cast<char32_t>(c));
    if (m_buffer.size() >= kBufferBytes && !flushBuffer())
        return traits_type::eof();
    return c;
}

std::streamsize CUtf8StreamBuf::xsputn(const wchar_t* s, std::streamsize n)
{
    for (std::streamsize i = 0; i < n; ++i)
        put(static_cast<char32_t>(s[i]));
    if (m_buffer.size() >= kBufferBytes && !flushBuffer())
        return 0;
    return n;
}

int CUtf8StreamBuf::sync()
{
    return flushBuffer() ? 0 : -1;
}

void CUtf8StreamBuf::put(char32_t c)
{
    // The scrambled form works on UTF-16 code units, as the reader undoes it.
    if (m_scramble)
        c = c <= 0xFFFF ? CScrambler::Char(c) : CScrambler::CharOfUtf16(c);
    if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF)
        c = 0xFFFD;
    if (c < 0x80) {
        m_buffer.append(char(c));
    } else if (c < 0x800) {
        m_buffer.append(char(0xC0 | (c >> 6)));
        m_buffer.append(char(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        m_buffer.append(char(0xE0 | (c >> 12)));
        m_buffer.append(char(0x80 | ((c >> 6) & 0x3F)));
        m_buffer.append(char(0x80 | (c & 0x3F)));
    } else {
        m_buffer.append(char(0xF0 | (c >> 18)));
        m_buffer.append(char(0x80 | ((c >> 12) & 0x3F)));
        m_buffer.append(char(0x80 | ((c >> 6) & 0x3F)));
        m_buffer.append(char(0x80 | (c & 0x3F)));
    }
}

bool CUtf8StreamBuf::flushBuffer()
{
    if (!m_failed && !m_buffer.isEmpty())
        m_failed = m_device->write(m_buffer) != m_buffer.size();
    // resize keeps the capacity for the next rows; clear would free it.
    m_buffer.resize(0);
    return !m_failed;
}
