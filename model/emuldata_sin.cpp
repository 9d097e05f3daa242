#include "model/emuldata_sin.h"

#include "model/rangevalidate.h"

CEmulData_Sin::CEmulData_Sin(const CSerializeData* source)
{
    if (const auto* other = dynamic_cast<const CEmulData_Sin*>(source))
        Period = other->Period;
}

CEmulData_Sin::~CEmulData_Sin() = default;

bool CEmulData_Sin::Emulate(const CDATagData*, const tagVARIANT&)
{
    return true;
}

bool CEmulData_Sin::Validate_Period(const std::wstring& value) const
{
    return RangeValidate::Validate_Range_t<int>(value, 1, 60);
}

bool CEmulData_Sin::Set_Period(const std::wstring& value)
{
    if (!Validate_Period(value))
        return false;
    RangeValidate::ReadValue(value, Period);
    return true;
}
