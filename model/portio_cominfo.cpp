#include "model/portio_cominfo.h"

CPortIO_COMInfo::CPortIO_COMInfo() : CPortIOInfo(PortCOM) {}

CPortIO_COMInfo::CPortIO_COMInfo(const CPortIO_Data_COM& settings)
    : CPortIOInfo(PortCOM), CPortIO_Data_COM(settings)
{
}

CPortIO_COMInfo::~CPortIO_COMInfo() = default;

bool CPortIO_COMInfo::IsDublicate(const CPortIOInfo* other) const
{
    if (!other || other->PortType != PortType)
        return false;
    const auto* com = dynamic_cast<const CPortIO_COMInfo*>(other);
    return com && com->ComNo == ComNo;
}
