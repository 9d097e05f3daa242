#include "model/dataconversion.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iconv.h>
#include <iostream>

namespace DataConversion {

namespace {

// The common text, with no NUL, surrogate or value beyond U+10FFFF, encoded
// directly; false for any other, which is left to the conversion engine.
bool EncodeValid(const std::wstring& text, std::string& out)
{
    out.reserve(text.size() * 2);
    for (const wchar_t w : text) {
        const uint32_t c = static_cast<uint32_t>(w);
        if (c == 0 || (c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF)
            return false;
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else if (c < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else if (c < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (c >> 12)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (c >> 18)));
            out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return true;
}

// One conversion engine per thread, opened at first use and closed when the
// thread ends: opening one per name dominated the loading of large files.
class Utf32Engine
{
public:
    Utf32Engine() : m_cd(iconv_open("UTF-8", "UTF-32LE")), m_openError(errno) {}
    ~Utf32Engine()
    {
        if (valid())
            iconv_close(m_cd);
    }
    Utf32Engine(const Utf32Engine&) = delete;
    Utf32Engine& operator=(const Utf32Engine&) = delete;

    bool valid() const { return m_cd != reinterpret_cast<iconv_t>(-1); }
    int openError() const { return m_openError; }
    iconv_t handle()
    {
        iconv(m_cd, nullptr, nullptr, nullptr, nullptr);
        return m_cd;
    }

private:
    iconv_t m_cd;
    int m_openError;
};

} // namespace

std::string wstringtoUTF8(const std::wstring& text)
{
    // Every name of a file goes through here: the engine is kept for the rest.
    std::string direct;
    if (EncodeValid(text, direct))
        return direct;
    std::vector<char> bytes(text.size() * sizeof(uint32_t));
    for (size_t i = 0; i < text.size(); ++i) {
        const uint32_t cp = static_cast<uint32_t>(text[i]);
        for (size_t b = 0; b < 4; ++b)
            bytes[i * 4 + b] = static_cast<char>((cp >> (8 * b)) & 0xFF);
    }
    return UTF32LEtoUTF8(bytes);
}

std::string UTF32LEtoUTF8(std::vector<char>& bytes)
{
    static thread_local Utf32Engine engine;
    if (!engine.valid()) {
        std::cerr << "Unable to create ICONV engine: " << strerror(engine.openError()) << std::endl;
        return std::string();
    }
    iconv_t cd = engine.handle();
    // A code point never takes more UTF-8 bytes than its four UTF-32 bytes.
    std::vector<char> out(bytes.size() + 1, 0);
    char* in = bytes.data();
    size_t inLeft = bytes.size();
    char* outPtr = out.data();
    size_t outLeft = bytes.size();
    const size_t rc = iconv(cd, &in, &inLeft, &outPtr, &outLeft);
    const int err = errno;
    if (rc == static_cast<size_t>(-1)) {
        std::cerr << "Unable to convert from UTF32: " << strerror(err) << std::endl;
        return std::string();
    }
    return std::string(out.data());
}

std::string UTF8toCP1251(const char*)
{
    return std::string();
}

std::string IncrementName(std::string name)
{
    const size_t pos = name.find_last_not_of("0123456789");
    const size_t digitsAt = pos == std::string::npos ? 0 : pos + 1;
    const std::string digits = name.substr(digitsAt);
    const int32_t number = static_cast<int32_t>(std::strtol(digits.c_str(), nullptr, 10));
    // Wraps at the 32-bit limit like the stored counter it stands for.
    const int32_t next = static_cast<int32_t>(static_cast<uint32_t>(number) + 1u);
    return name.substr(0, digitsAt) + std::to_string(next);
}

} // namespace DataConversion
