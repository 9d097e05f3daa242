#include "config/fileldexception.h"

CFileldException::CFileldException(uint32_t line, uint32_t field)
    : CImportException(line,
                       "Строка " + std::to_string(line) + ": ошибка поля <" + std::to_string(field) + ">."),
      m_Field(field)
{
}

CFileldException::CFileldException(uint32_t line, uint32_t field, const std::string& text)
    : CImportException(line, "Строка " + std::to_string(line) + ": ошибка поля <" + std::to_string(field) +
                                 "> - " + text + "."),
      m_Field(field)
{
}
