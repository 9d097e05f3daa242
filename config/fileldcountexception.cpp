#include "config/fileldcountexception.h"

CFileldCountException::CFileldCountException(uint32_t line, uint32_t real, uint32_t expected)
    : CImportException(line, "Строка " + std::to_string(line) +
                                 ": несоответствие количества полей: реальное <" + std::to_string(real) +
                                 "> ожидаемое <" + std::to_string(expected) + ">."),
      m_Real(real), m_Expected(expected)
{
}
