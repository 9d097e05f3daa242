#pragma once

#include "config/importexception.h"

// A row with fewer cells than its kind needs. Both counts leave cell 0 out.
class CFileldCountException : public CImportException
{
public:
    CFileldCountException(uint32_t line, uint32_t real, uint32_t expected);

    uint32_t m_Real;
    uint32_t m_Expected;
};
