#pragma once

#include "model/transforminfo.h"

#include <string>

// Multiplies the raw value by Factor.
class CTransform_FactorData : public CTransformationInfo
{
public:
    explicit CTransform_FactorData(const CSerializeData* source = nullptr);
    ~CTransform_FactorData() override;

    bool Validate_Factor(const std::wstring& value) const;
    bool Set_Factor(const std::wstring& value);

    float Factor = 1;
};
