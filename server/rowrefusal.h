#pragma once

#include "config/csvimporter.h"

#include <string>

// Words a refused data row of the configuration for the one who has to mend
// it: the field by its caption, what it holds and what it may hold.
class CRowRefusal
{
public:
    // `section` is the reader's: 1 channel, 2 group, 3 device, 4 tag.
    // `readerError` is the reader's own text of the row, which knows the field.
    static std::string Describe(int section, const CCsvLoader::Row& cells, const std::string& readerError);
    // One field: "поле 3 «Адрес» = «0»: от 1 до 65535", or with `why` as the reason.
    static std::string Field(int section, const CCsvLoader::Row& cells, int field,
                             const std::string& why = std::string());
};
