#include "model/channeldata.h"

#include "model/dataconversion.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"
#include "model/rangevalidate.h"

using RangeValidate::ReadByteValue;
using RangeValidate::ReadValue;
using RangeValidate::Validate_Range_t;

const WStrTable CChannelData::m_wszTypeProtocol = {L"MODBUS RTU", L"MODBUS ASCII", L"MODBUS TCP"};
const WStrTable CChannelData::m_wszTypeChannel = {L"COM-порт", L"TCP-соединение"};

CChannelData::CChannelData(CItem* item) : m_pItem(dynamic_cast<CChannelInfo*>(item)) {}

bool CChannelData::Validate_Name(const std::string& value) const
{
    return IsValidName(value);
}

bool CChannelData::Validate_Name(const char* value) const
{
    return value && IsValidName(std::string(value));
}

bool CChannelData::Set_Name(const std::string& value)
{
    if (!m_pItem || !Validate_Name(value))
        return false;
    m_pItem->SetName(value);
    return true;
}

bool CChannelData::Set_Name(const char* value)
{
    return value && Set_Name(std::string(value));
}

bool CChannelData::Set_Name(const std::wstring& value)
{
    if (!m_pItem || !IsValidName(value))
        return false;
    m_pItem->SetName(DataConversion::wstringtoUTF8(value));
    return true;
}

bool CChannelData::Validate_TypeProtocol(const std::wstring& value) const
{
    return FindTableText(m_wszTypeProtocol, value) >= 0;
}

bool CChannelData::Set_TypeProtocol(const std::wstring& value)
{
    const int pos = FindTableText(m_wszTypeProtocol, value);
    if (!m_pItem || pos < 0)
        return false;
    m_pItem->TypeProtocol = pos;
    return true;
}

bool CChannelData::Validate_TypeChannel(const std::wstring& value) const
{
    return FindTableText(m_wszTypeChannel, value) >= 0;
}

bool CChannelData::Set_TypeChannel(const std::wstring& value)
{
    const int pos = FindTableText(m_wszTypeChannel, value);
    if (!m_pItem || pos < 0)
        return false;
    m_pItem->TypeChannel = pos;
    return true;
}

bool CChannelData::Validate_Timeout(const std::wstring& value) const
{
    return Validate_Range_t<int>(value, 20, 60000);
}

bool CChannelData::Set_Timeout(const std::wstring& value)
{
    if (!m_pItem || !Validate_Timeout(value))
        return false;
    ReadValue(value, m_pItem->Timeout);
    return true;
}

bool CChannelData::Validate_QuanRetry(const std::wstring& value) const
{
    return Validate_Range_t<int>(value, 1, 20);
}

bool CChannelData::Set_QuanRetry(const std::wstring& value)
{
    if (!m_pItem || !Validate_QuanRetry(value))
        return false;
    ReadByteValue(value, m_pItem->QuanRetry);
    return true;
}

bool CChannelData::Validate_TimeBusy(const std::wstring& value) const
{
    return Validate_Range_t<int>(value, 0, 10000);
}

bool CChannelData::Set_TimeBusy(const std::wstring& value)
{
    if (!m_pItem || !Validate_TimeBusy(value))
        return false;
    ReadValue(value, m_pItem->TimeBusy);
    return true;
}

StrProps CChannelData::GetStrProps()
{
    if (!m_pItem)
        return {};
    StrProps props = {
        {"Имя", m_pItem->GetName()},
        {"Тип канала", TableTextUTF8(m_wszTypeChannel, m_pItem->TypeChannel)},
        {"Тип протокола", TableTextUTF8(m_wszTypeProtocol, m_pItem->TypeProtocol)},
        {"Таймаут ожидания ответа (мс)", std::to_string(m_pItem->Timeout)},
        {"Кол-во попыток", std::to_string(m_pItem->QuanRetry)},
        {"Пауза перед запросом (мс)", std::to_string(m_pItem->TimeBusy)},
    };
    StrProps port;
    if (m_pItem->TypeChannel == 0) {
        if (const auto* com = dynamic_cast<const CPortIO_COMInfo*>(m_pItem->Port))
            port = com->GetStrProps();
    } else if (m_pItem->TypeChannel == 1) {
        if (const auto* tcp = dynamic_cast<const CPortIO_TCPInfo*>(m_pItem->Port))
            port = tcp->GetStrProps();
    }
    props.insert(props.end(), port.begin(), port.end());
    props.emplace_back(std::string(), std::string());
    props.emplace_back("Кол-во устройств", std::to_string(m_pItem->size()));
    return props;
}
