#pragma once

#include "model/emuldata.h"

#include <string>

class CEmulData_Const : public CEmulation
{
public:
    explicit CEmulData_Const(const CSerializeData* source = nullptr);
    ~CEmulData_Const() override;

    bool Emulate(const CDATagData* tag, const tagVARIANT& value) override;

    // The range follows Const.vt, which the file reader sets to the tag's type first.
    bool Validate_Const(const std::wstring& value) const;
    // Stores the number as a double and resets Const.vt to VT_R8.
    bool Set_Const(const std::wstring& value);

    tagVARIANT Const;
};
