#include "model/portio_data_tcp.h"

#include "model/rangevalidate.h"

using RangeValidate::ReadValue;
using RangeValidate::Validate_Range_t;

CPortIO_Data_TCP::CPortIO_Data_TCP(uint32_t ip, uint16_t ipPort, uint64_t timeoutConnect)
    : IP(ip), IP_Port(ipPort), TimeoutConnect(timeoutConnect)
{
}

CPortIO_Data_TCP::~CPortIO_Data_TCP() = default;

bool CPortIO_Data_TCP::Validate_IP_Port(const std::wstring& value) const
{
    return Validate_Range_t<int>(value, 1, 65535);
}

bool CPortIO_Data_TCP::Set_IP_Port(const std::wstring& value)
{
    if (!Validate_IP_Port(value))
        return false;
    ReadValue(value, IP_Port);
    return true;
}

bool CPortIO_Data_TCP::Validate_TimeoutConnect(const std::wstring& value) const
{
    return Validate_Range_t<int>(value, 20, 120000);
}

bool CPortIO_Data_TCP::Set_TimeoutConnect(const std::wstring& value)
{
    if (!Validate_TimeoutConnect(value))
        return false;
    ReadValue(value, TimeoutConnect);
    return true;
}

bool CPortIO_Data_TCP::Set_IP(const std::wstring& value)
{
    return GetIPfromString_t<wchar_t>(value, IP);
}

std::string CPortIO_Data_TCP::GetIpString() const
{
    std::string text;
    for (int i = 0; i < 4; ++i) {
        if (i)
            text += ".";
        text += std::to_string((IP >> (8 * i)) & 0xFF);
    }
    return text;
}

StrProps CPortIO_Data_TCP::GetStrProps() const
{
    return {
        {"IP-адрес", GetIpString()},
        {"TCP-порт", std::to_string(IP_Port)},
        {"Таймаут установки соединения (мс)", std::to_string(TimeoutConnect)},
    };
}
