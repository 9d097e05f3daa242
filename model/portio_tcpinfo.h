#pragma once

#include "model/portio_data_tcp.h"
#include "model/portioinfo.h"

class CPortIO_TCPInfo : public CPortIOInfo, public CPortIO_Data_TCP
{
public:
    CPortIO_TCPInfo();
    explicit CPortIO_TCPInfo(const CPortIO_Data_TCP& settings);
    ~CPortIO_TCPInfo() override;

    // Address and port count; the timeouts don't.
    bool IsDublicate(const CPortIOInfo* other) const override;
};
