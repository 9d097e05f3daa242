#pragma once

#include <streambuf>
#include <vector>

class QIODevice;

// A wide stream buffer that writes UTF-8 to a Qt device, optionally in the
// scrambled form of the configuration file, so that the writer can stream
// straight into a file without the whole text in memory. A failed write is
// remembered and turns every later one into a failure too.
class CUtf8StreamBuf : public std::wstreambuf
{
public:
    CUtf8StreamBuf(QIODevice* device, bool scramble);
    ~CUtf8StreamBuf() override;

    // Writes what is still buffered; false once any write has failed.
    bool finish();

protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const wchar_t* s, std::streamsize n) override;
    int sync() override;

private:
    bool flushBuffer();

    QIODevice* m_device;
    bool m_scramble;
    bool m_failed = false;
    // Encoded bytes not yet written; room is kept for one more character.
    std::vector<char> m_buffer;
    size_t m_used = 0;
};
