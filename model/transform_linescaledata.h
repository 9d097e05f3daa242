#pragma once

#include "model/modbus_types.h"
#include "model/transforminfo.h"

#include <string>

// Maps the raw range SrcMin..SrcMax onto DstMin..DstMax.
class CTransform_LineScaleData : public CTransformationInfo
{
public:
    explicit CTransform_LineScaleData(const CSerializeData* source = nullptr);
    ~CTransform_LineScaleData() override;

    // The raw limits are checked as whole numbers in the range of VarType.
    bool Validate_SrcMin(const std::wstring& value) const;
    bool Set_SrcMin(const std::wstring& value);
    bool Validate_SrcMax(const std::wstring& value) const;
    bool Set_SrcMax(const std::wstring& value);
    bool Validate_DstMin(const std::wstring& value) const;
    bool Set_DstMin(const std::wstring& value);
    bool Validate_DstMax(const std::wstring& value) const;
    bool Set_DstMax(const std::wstring& value);

    float SrcMin = 0;
    float SrcMax = 1000;
    float DstMin = 0;
    float DstMax = 1000;
    // Type of the raw value; set by the file reader before the limits.
    unsigned short VarType = VT_R4;

private:
    bool ValidateRaw(const std::wstring& value) const;
};
