#pragma once

#include "model/item.h"

// The invisible root above the channels.
class CTreeItemRoot : public CItem
{
public:
    CTreeItemRoot();
    ~CTreeItemRoot() override;

    bool IsDublicate(const CItem* other) const override;
    virtual int GetStrPropCnt();
    virtual int GetStrPropName(int index, wchar_t* buffer, int size);
    int GetStrPropValue(int index, wchar_t* buffer, int size);
};
