#pragma once

#include "config/importexception.h"

// A field whose text the property refuses; rows and fields count from 0 and 1.
class CFileldException : public CImportException
{
public:
    CFileldException(uint32_t line, uint32_t field);
    CFileldException(uint32_t line, uint32_t field, const std::string& text);

    uint32_t m_Field;
};
