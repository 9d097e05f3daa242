#include "config/utf8streambuf.h"

#include "config/scrambler.h"

#include <QIODevice>

namespace {
// Large enough that a device write costs nothing per row.
constexpr size_t kBufferBytes = 1 << 16;
// The most bytes one character takes in UTF-8.
constexpr size_t kCharBytes = 4;

// Every character of a save passes here: encodes c at out, answers the bytes.
inline size_t Encode(char32_t c, bool scramble, char* out)
{
    // The scrambled form works on UTF-16 code units, as the reader undoes it.
    if (scramble)
        c = c <= 0xFFFF ? CScrambler::Char(c) : CScrambler::CharOfUtf16(c);
    if (c < 0x80) {
        out[0] = char(c);
        return 1;
    }
    if (c < 0x800) {
        out[0] = char(0xC0 | (c >> 6));
        out[1] = char(0x80 | (c & 0x3F));
        return 2;
    }
    if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF)
        c = 0xFFFD;
    if (c < 0x10000) {
        out[0] = char(0xE0 | (c >> 12));
        out[1] = char(0x80 | ((c >> 6) & 0x3F));
        out[2] = char(0x80 | (c & 0x3F));
        return 3;
    }
    out[0] = char(0xF0 | (c >> 18));
    out[1] = char(0x80 | ((c >> 12) & 0x3F));
    out[2] = char(0x80 | ((c >> 6) & 0x3F));
    out[3] = char(0x80 | (c & 0x3F));
    return 4;
}

} // namespace

CUtf8StreamBuf::CUtf8StreamBuf(QIODevice* device, bool scramble)
    : m_device(device), m_scramble(scramble), m_buffer(kBufferBytes + kCharBytes)
{
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
    m_used += Encode(static_cast<char32_t>(c), m_scramble, m_buffer.data() + m_used);
    if (m_used >= kBufferBytes && !flushBuffer())
        return traits_type::eof();
    return c;
}

std::streamsize CUtf8StreamBuf::xsputn(const wchar_t* s, std::streamsize n)
{
    // Kept in locals: the bytes written through the buffer could be any
    // member as far as the compiler knows.
    bool written = true;
    char* const buffer = m_buffer.data();
    const bool scramble = m_scramble;
    size_t used = m_used;
    for (std::streamsize i = 0; i < n; ++i) {
        used += Encode(static_cast<char32_t>(s[i]), scramble, buffer + used);
        if (used >= kBufferBytes) {
            m_used = used;
            written = flushBuffer() && written;
            used = 0;
        }
    }
    m_used = used;
    return written ? n : 0;
}

int CUtf8StreamBuf::sync()
{
    return flushBuffer() ? 0 : -1;
}

bool CUtf8StreamBuf::flushBuffer()
{
    if (!m_failed && m_used > 0)
        m_failed = m_device->write(m_buffer.data(), qint64(m_used)) != qint64(m_used);
    m_used = 0;
    return !m_failed;
}
