#pragma once

#include "model/item.h"
#include "model/portioinfo.h"

#include <cstdint>

// A communication line: protocol, kind of port, exchange timing, and the port itself.
class CChannelInfo : public CItem
{
public:
    explicit CChannelInfo(const CChannelInfo* source = nullptr);
    ~CChannelInfo() override;

    bool IsDublicate(const CItem* other) const override;
    // A serial channel moves on to the next COM number.
    bool MakeNextSettings() override;
    // Replaces the port by a default one of the kind TypeChannel names.
    bool Init();

    int32_t TypeProtocol = 0;
    int32_t TypeChannel = 0;
    uint64_t Timeout = 500;
    uint8_t QuanRetry = 3;
    uint64_t TimeBusy = 0;
    // Owned; a CPortIO_COMInfo for TypeChannel 0, a CPortIO_TCPInfo for 1.
    CPortIOInfo* Port = nullptr;
};
