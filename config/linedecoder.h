#pragma once

#include <cstddef>
#include <functional>
#include <vector>

// Turns the bytes of a configuration file, taken in pieces, into its lines:
// UTF-8 decoded and, in the scrambled form, unscrambled, since lines are
// found in the clear text only (a scrambled LF is no LF byte). A line keeps at
// most CRowSplitter::kMaxLineChars characters, so that memory stays bounded
// for any input. A plain file is read up to the first line that isn't UTF-8,
// which is dropped; in the scrambled form such bytes read as replacement
// characters, as the rest of the program reads them.
class CLineDecoder
{
public:
    // One line without its LF; cut tells that it went on beyond the characters
    // kept. Answers false to end the reading.
    using LineHandler = std::function<bool(const wchar_t* line, size_t length, bool cut)>;

    CLineDecoder(bool plain, LineHandler handler);

    // Decodes bytes[0, size). With more (the file goes on), the bytes of a
    // character cut by the end of the piece are left for the next piece, in
    // front of it; used tells how many bytes were taken. false once the
    // reading has ended: the handler said so, or a plain line isn't UTF-8.
    bool Decode(const char* bytes, size_t size, bool more, size_t& used);
    // The end of the file: a last line without an LF goes to the handler.
    void Finish();
    // false once a plain file has ended at a line that isn't UTF-8.
    bool Complete() const { return m_complete; }

    // Decodes the UTF-8 sequence at p, n bytes at most. Answers its length,
    // or 0 for a malformed, overlong or surrogate sequence or one above
    // U+10FFFF.
    static int DecodeUtf8(const unsigned char* p, size_t n, char32_t& out);

private:
    template <bool Plain> bool Run(const unsigned char* p, const unsigned char* end, bool more, size_t& used);

    bool m_plain;
    LineHandler m_handler;
    std::vector<wchar_t> m_line;
    size_t m_length = 0;
    bool m_cut = false;
    bool m_complete = true;
};
