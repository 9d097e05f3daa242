#pragma once

#include "model/item.h"

#include <cstdint>

// Tags of a device polled at one rate.
class CGroupInfo : public CItem
{
public:
    explicit CGroupInfo(const CGroupInfo* source = nullptr);
    ~CGroupInfo() override;

    // Two groups clash on their names.
    bool IsDublicate(const CItem* other) const override;
    virtual void Init();
    virtual void DeInit();

    // Kept in the unit the user chose, never converted.
    uint64_t UpdateRate = 50;
    int32_t MU_UpdateRate = 0;
};
