#include "model/emuldata_const.h"

#include "model/rangevalidate.h"

#include <algorithm>

CEmulData_Const::CEmulData_Const(const CSerializeData* source)
{
    if (const auto* other = dynamic_cast<const CEmulData_Const*>(source))
        Const = other->Const;
}

CEmulData_Const::~CEmulData_Const() = default;

bool CEmulData_Const::Emulate(const CDATagData*, const tagVARIANT&)
{
    return true;
}

bool CEmulData_Const::Validate_Const(const std::wstring& value) const
{
    const unsigned short vt = Const.vt;
    const auto in = [vt](const std::vector<unsigned short>& list) {
        return std::find(list.begin(), list.end(), vt) != list.end();
    };
    if (in(IntTypes))
        return RangeValidate::Validate_Range_t<long>(value, static_cast<long>(RangeValidate::GetTypeMin(vt)),
                                                     static_cast<long>(RangeValidate::GetTypeMax(vt)));
    if (in(FltTypes))
        return RangeValidate::Validate_Range_t<double>(value,
                                                       static_cast<double>(RangeValidate::GetTypeMin(vt)),
                                                       static_cast<double>(RangeValidate::GetTypeMax(vt)));
    return false;
}

bool CEmulData_Const::Set_Const(const std::wstring& value)
{
    if (!Validate_Const(value))
        return false;
    RangeValidate::ReadValue(value, Const.dblVal);
    Const.vt = VT_R8;
    return true;
}
