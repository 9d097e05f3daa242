#pragma once

#include <cstdint>

// A channel's port: serial or TCP. The kind is not the channel's TypeChannel.
class CPortIOInfo
{
public:
    enum : int32_t
    {
        PortCOM = 1,
        PortTCP = 2,
    };

    explicit CPortIOInfo(int32_t portType) : PortType(portType) {}
    virtual ~CPortIOInfo();
    virtual bool IsDublicate(const CPortIOInfo* other) const = 0;

    int32_t PortType;
};
