#include "config/linedecoder.h"

#include "config/rowsplitter.h"
#include "config/scrambler.h"

namespace {

// Length of the UTF-8 sequence led by b, 0 for a byte that can't lead one.
int Utf8Length(unsigned char b)
{
    if (b < 0x80)
        return 1;
    if (b >= 0xC2 && b <= 0xDF)
        return 2;
    if (b >= 0xE0 && b <= 0xEF)
        return 3;
    if (b >= 0xF0 && b <= 0xF4)
        return 4;
    return 0;
}

} // namespace

int CLineDecoder::DecodeUtf8(const unsigned char* p, size_t n, char32_t& out)
{
    const int len = Utf8Length(p[0]);
    if (len == 0 || static_cast<size_t>(len) > n)
        return 0;
    if (len == 1) {
        out = p[0];
        return 1;
    }
    char32_t c = p[0] & (0x7F >> len);
    for (int i = 1; i < len; ++i) {
        if ((p[i] & 0xC0) != 0x80)
            return 0;
        c = (c << 6) | (p[i] & 0x3F);
    }
    static const char32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
    if (c < kMin[len] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
        return 0;
    out = c;
    return len;
}

CLineDecoder::CLineDecoder(bool plain, LineHandler handler)
    : m_plain(plain), m_handler(std::move(handler)), m_line(CRowSplitter::kMaxLineChars)
{
}

bool CLineDecoder::Decode(const char* bytes, size_t size, bool more, size_t& used)
{
    const auto* p = reinterpret_cast<const unsigned char*>(bytes);
    return m_plain ? Run<true>(p, p + size, more, used) : Run<false>(p, p + size, more, used);
}

void CLineDecoder::Finish()
{
    // Every character but LF lands in the line, so a line is open exactly
    // when it holds one.
    if (m_length > 0)
        m_handler(m_line.data(), m_length, m_cut);
    m_length = 0;
    m_cut = false;
}

// Every character of a file passes here: the common cases (ASCII in a plain
// file, two-byte sequences in a scrambled one) come first, and the line is
// filled through a local pointer.
template <bool Plain>
bool CLineDecoder::Run(const unsigned char* p, const unsigned char* const end, bool more, size_t& used)
{
    const unsigned char* const begin = p;
    wchar_t* const line = m_line.data();
    size_t length = m_length;
    bool going = true;
    while (p != end) {
        char32_t c = *p;
        if (c < 0x80) {
            ++p;
        } else if (c >= 0xC2 && c < 0xE0 && end - p > 1 && (p[1] & 0xC0) == 0x80) {
            c = ((c & 0x1F) << 6) | (p[1] & 0x3F);
            p += 2;
        } else {
            // Decoded apart, so that c stays in a register on the common paths.
            char32_t decoded = 0;
            int len = DecodeUtf8(p, size_t(end - p), decoded);
            c = decoded;
            if (len == 0 && more && end - p < Utf8Length(*p))
                break; // the rest of this character comes with the next piece
            if (len == 0 && Plain) {
                m_complete = false;
                length = 0;
                going = false;
                break;
            }
            if (len == 0) {
                c = 0xFFFD;
                len = 1;
            }
            p += len;
        }
        if (!Plain)
            c = c <= 0xFFFF ? CScrambler::Char(c) : CScrambler::CharOfUtf16(c);
        if (c == U'\n') {
            const bool cut = m_cut;
            m_length = 0;
            m_cut = false;
            if (!m_handler(line, length, cut)) {
                length = 0;
                going = false;
                break;
            }
            length = 0;
        } else if (length < CRowSplitter::kMaxLineChars) {
            line[length++] = static_cast<wchar_t>(c);
        } else {
            m_cut = true;
        }
    }
    m_length = length;
    used = size_t(p - begin);
    return going;
}
