#pragma once

#include <string>
#include <vector>

namespace DataConversion {

// Wide text (one code point per element) to UTF-8.
std::string wstringtoUTF8(const std::wstring& text);
// UTF-32LE bytes to UTF-8; empty on failure, with one line on stderr.
std::string UTF32LEtoUTF8(std::vector<char>& bytes);
// Kept for callers that expect it; the conversion is not supported and gives an empty text.
std::string UTF8toCP1251(const char* text);
// The name with its trailing decimal number incremented: Tag_9 -> Tag_10, Tag -> Tag1.
std::string IncrementName(std::string name);

} // namespace DataConversion
