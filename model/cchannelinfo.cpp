#include "model/cchannelinfo.h"

#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"

CChannelInfo::CChannelInfo(const CChannelInfo* source) : CItem(source)
{
    m_Type = itChannel;
    if (!source) {
        m_Name = "Channel_0";
        return;
    }
    TypeProtocol = source->TypeProtocol;
    TypeChannel = source->TypeChannel;
    Timeout = source->Timeout;
    QuanRetry = source->QuanRetry;
    TimeBusy = source->TimeBusy;
    // The source's port may be missing or of the other kind after a type change without Init.
    if (TypeChannel == 0) {
        const auto* com = dynamic_cast<const CPortIO_COMInfo*>(source->Port);
        Port = com ? new CPortIO_COMInfo(*com) : new CPortIO_COMInfo();
    } else if (TypeChannel == 1) {
        const auto* tcp = dynamic_cast<const CPortIO_TCPInfo*>(source->Port);
        Port = tcp ? new CPortIO_TCPInfo(*tcp) : new CPortIO_TCPInfo();
    }
}

CChannelInfo::~CChannelInfo()
{
    delete Port;
}

bool CChannelInfo::IsDublicate(const CItem* other) const
{
    if (!other || other->GetType() != m_Type)
        return false;
    const auto* channel = static_cast<const CChannelInfo*>(other);
    if (channel->TypeChannel != TypeChannel || !Port || !channel->Port)
        return false;
    return Port->IsDublicate(channel->Port);
}

bool CChannelInfo::MakeNextSettings()
{
    if (TypeChannel == 0)
        if (auto* com = dynamic_cast<CPortIO_COMInfo*>(Port))
            ++com->ComNo;
    return true;
}

bool CChannelInfo::Init()
{
    delete Port;
    Port = nullptr;
    if (TypeChannel == 0)
        Port = new CPortIO_COMInfo();
    else if (TypeChannel == 1)
        Port = new CPortIO_TCPInfo();
    return true;
}
