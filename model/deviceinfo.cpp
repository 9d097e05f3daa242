#include "model/deviceinfo.h"

CDeviceInfo::CDeviceInfo(const CDeviceInfo* source) : CItem(source)
{
    m_Type = itDevice;
    if (!source) {
        m_Name = "Device_0";
        return;
    }
    Addr = source->Addr;
    bEmulation = source->bEmulation;
    bExchange = source->bExchange;
    MaxRegsInReqv = source->MaxRegsInReqv;
    MaxDiscretsInReqv = source->MaxDiscretsInReqv;
    MaxFragmentation = source->MaxFragmentation;
}

CDeviceInfo::~CDeviceInfo() = default;

bool CDeviceInfo::IsDublicate(const CItem* other) const
{
    if (!other || other->GetType() != m_Type)
        return false;
    return static_cast<const CDeviceInfo*>(other)->Addr == Addr;
}

void CDeviceInfo::Init() {}

void CDeviceInfo::DeInit() {}
