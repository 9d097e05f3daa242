#pragma once

#include <cstdint>
#include <exception>
#include <string>

// A row of a configuration file that can't be taken over into the tree. Raised
// and caught inside the reader; only the verdict of the whole load leaves it.
class CImportException : public std::exception
{
public:
    CImportException(uint32_t line, std::string what);

    const char* what() const noexcept override;

    std::string m_What;
    uint32_t m_Line;
};
