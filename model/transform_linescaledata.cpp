#include "model/transform_linescaledata.h"

#include "model/rangevalidate.h"

using RangeValidate::ReadValue;

CTransform_LineScaleData::CTransform_LineScaleData(const CSerializeData* source)
{
    // The variant type is not copied: a copy holds VT_R4 until it is set again.
    if (const auto* other = dynamic_cast<const CTransform_LineScaleData*>(source)) {
        SrcMin = other->SrcMin;
        SrcMax = other->SrcMax;
        DstMin = other->DstMin;
        DstMax = other->DstMax;
    }
}

CTransform_LineScaleData::~CTransform_LineScaleData() = default;

bool CTransform_LineScaleData::ValidateRaw(const std::wstring& value) const
{
    // Both bounds are cut to 32 bits, so VT_UI4 gives the empty range 0..-1.
    const int32_t min = static_cast<int32_t>(RangeValidate::GetTypeMin(VarType));
    const int32_t max = static_cast<int32_t>(RangeValidate::GetTypeMax(VarType));
    return RangeValidate::Validate_Range_t<int>(value, min, max);
}

bool CTransform_LineScaleData::Validate_SrcMin(const std::wstring& value) const
{
    return ValidateRaw(value);
}

bool CTransform_LineScaleData::Set_SrcMin(const std::wstring& value)
{
    if (!Validate_SrcMin(value))
        return false;
    ReadValue(value, SrcMin);
    return true;
}

bool CTransform_LineScaleData::Validate_SrcMax(const std::wstring& value) const
{
    return ValidateRaw(value);
}

bool CTransform_LineScaleData::Set_SrcMax(const std::wstring& value)
{
    if (!Validate_SrcMax(value))
        return false;
    ReadValue(value, SrcMax);
    return true;
}

bool CTransform_LineScaleData::Validate_DstMin(const std::wstring&) const
{
    return true;
}

bool CTransform_LineScaleData::Set_DstMin(const std::wstring& value)
{
    ReadValue(value, DstMin);
    return true;
}

bool CTransform_LineScaleData::Validate_DstMax(const std::wstring&) const
{
    return true;
}

bool CTransform_LineScaleData::Set_DstMax(const std::wstring& value)
{
    ReadValue(value, DstMax);
    return true;
}
