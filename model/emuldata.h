#pragma once

#include "model/modbus_types.h"
#include "model/serializedata.h"

class CDATagData;

// Base of the rules that produce a tag's value while its device is emulated.
// The gateway runs the emulation; here the records only hold their settings.
class CEmulation : public CSerializeData
{
public:
    ~CEmulation() override;
    virtual bool Emulate(const CDATagData* tag, const tagVARIANT& value) = 0;
};
