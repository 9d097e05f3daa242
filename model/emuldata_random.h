#pragma once

#include "model/emuldata.h"

class CEmulData_Random : public CEmulation
{
public:
    explicit CEmulData_Random(const CSerializeData* source = nullptr);
    ~CEmulData_Random() override;

    bool Emulate(const CDATagData* tag, const tagVARIANT& value) override;
};
