#include "model/emuldata_random.h"

// A random source has no settings to copy.
CEmulData_Random::CEmulData_Random(const CSerializeData*) {}

CEmulData_Random::~CEmulData_Random() = default;

bool CEmulData_Random::Emulate(const CDATagData*, const tagVARIANT&)
{
    return true;
}
