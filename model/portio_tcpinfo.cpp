#include "model/portio_tcpinfo.h"

CPortIO_TCPInfo::CPortIO_TCPInfo() : CPortIOInfo(PortTCP) {}

CPortIO_TCPInfo::CPortIO_TCPInfo(const CPortIO_Data_TCP& settings)
    : CPortIOInfo(PortTCP), CPortIO_Data_TCP(settings)
{
}

CPortIO_TCPInfo::~CPortIO_TCPInfo() = default;

bool CPortIO_TCPInfo::IsDublicate(const CPortIOInfo* other) const
{
    if (!other || other->PortType != PortType)
        return false;
    const auto* tcp = dynamic_cast<const CPortIO_TCPInfo*>(other);
    return tcp && tcp->IP == IP && tcp->IP_Port == IP_Port;
}
