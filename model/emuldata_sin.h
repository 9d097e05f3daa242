#pragma once

#include "model/emuldata.h"

#include <cstdint>
#include <string>

class CEmulData_Sin : public CEmulation
{
public:
    explicit CEmulData_Sin(const CSerializeData* source = nullptr);
    ~CEmulData_Sin() override;

    bool Emulate(const CDATagData* tag, const tagVARIANT& value) override;

    bool Validate_Period(const std::wstring& value) const;
    bool Set_Period(const std::wstring& value);

    // Seconds.
    uint32_t Period = 1;
};
