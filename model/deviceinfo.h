#pragma once

#include "model/item.h"

#include <cstdint>

// A Modbus slave on a channel.
class CDeviceInfo : public CItem
{
public:
    explicit CDeviceInfo(const CDeviceInfo* source = nullptr);
    ~CDeviceInfo() override;

    // Two devices clash on their Modbus address alone.
    bool IsDublicate(const CItem* other) const override;
    virtual void Init();
    virtual void DeInit();

    uint8_t Addr = 1;
    bool bEmulation = false;
    bool bExchange = true;
    uint8_t MaxRegsInReqv = 125;
    uint16_t MaxDiscretsInReqv = 2000;
    uint8_t MaxFragmentation = 0;
};
