#pragma once

#include "model/portio_data_com.h"
#include "model/portioinfo.h"

class CPortIO_COMInfo : public CPortIOInfo, public CPortIO_Data_COM
{
public:
    CPortIO_COMInfo();
    explicit CPortIO_COMInfo(const CPortIO_Data_COM& settings);
    ~CPortIO_COMInfo() override;

    // Only the COM number counts.
    bool IsDublicate(const CPortIOInfo* other) const override;
};
