#include "model/transform_factordata.h"

#include "model/rangevalidate.h"

CTransform_FactorData::CTransform_FactorData(const CSerializeData* source)
{
    if (const auto* other = dynamic_cast<const CTransform_FactorData*>(source))
        Factor = other->Factor;
}

CTransform_FactorData::~CTransform_FactorData() = default;

bool CTransform_FactorData::Validate_Factor(const std::wstring& value) const
{
    if (!RangeValidate::Validate_Range_t<float>(value, -100000.0f, 100000.0f))
        return false;
    // A zero factor, also one read from a text without a number, is refused.
    float factor = 0;
    RangeValidate::ReadValue(value, factor);
    return factor != 0.0f;
}

bool CTransform_FactorData::Set_Factor(const std::wstring& value)
{
    if (!Validate_Factor(value))
        return false;
    RangeValidate::ReadValue(value, Factor);
    return true;
}
