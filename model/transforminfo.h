#pragma once

#include "model/serializedata.h"

// Base of the rules that turn a raw register value into an engineering value.
class CTransformationInfo : public CSerializeData
{
public:
    ~CTransformationInfo() override;
};
