#pragma once

// Base of a tag's transformation and emulation records.
class CSerializeData
{
public:
    virtual ~CSerializeData();

protected:
    CSerializeData() = default;
};
