#include "config/importexception.h"

CImportException::CImportException(uint32_t line, std::string what) : m_What(std::move(what)), m_Line(line) {}

const char* CImportException::what() const noexcept
{
    return m_What.c_str();
}
