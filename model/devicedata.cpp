#include "model/devicedata.h"

#include "model/dataconversion.h"
#include "model/modbus_types.h"
#include "model/rangevalidate.h"

using RangeValidate::ReadByteValue;
using RangeValidate::ReadValue;
using RangeValidate::Validate_Range_t;

CDeviceData::CDeviceData(CItem* item) : m_pItem(dynamic_cast<CDeviceInfo*>(item)) {}

bool CDeviceData::Validate_Name(const std::string& value) const
{
    return IsValidName(value);
}

bool CDeviceData::Validate_Name(const char* value) const
{
    return value && IsValidName(std::string(value));
}

bool CDeviceData::Validate_Name(const std::wstring& value) const
{
    return IsValidName(value);
}

bool CDeviceData::Set_Name(const std::string& value)
{
    if (!m_pItem || !Validate_Name(value))
        return false;
    m_pItem->SetName(value);
    return true;
}

bool CDeviceData::Set_Name(const char* value)
{
    return value && Set_Name(std::string(value));
}

bool CDeviceData::Set_Name(const std::wstring& value)
{
    if (!m_pItem || !Validate_Name(value))
        return false;
    m_pItem->SetName(DataConversion::wstringtoUTF8(value));
    return true;
}

bool CDeviceData::Validate_Addr(const std::wstring& value) const
{
    return Validate_Range_t<int>(value, 0, 255);
}

bool CDeviceData::Set_Addr(const std::wstring& value)
{
    if (!m_pItem || !Validate_Addr(value))
        return false;
    ReadByteValue(value, m_pItem->Addr);
    return true;
}

bool CDeviceData::Validate_bEmulation(const std::wstring& value) const
{
    return FindTableText(g_wszYesNo, value) >= 0;
}

bool CDeviceData::Set_bEmulation(const std::wstring& value)
{
    const int pos = FindTableText(g_wszYesNo, value);
    if (!m_pItem || pos < 0)
        return false;
    m_pItem->bEmulation = pos != 0;
    return true;
}

bool CDeviceData::Validate_bExchange(const std::wstring& value) const
{
    return FindTableText(g_wszYesNo, value) >= 0;
}

bool CDeviceData::Set_bExchange(const std::wstring& value)
{
    const int pos = FindTableText(g_wszYesNo, value);
    if (!m_pItem || pos < 0)
        return false;
    m_pItem->bExchange = pos != 0;
    return true;
}

bool CDeviceData::Validate_MaxRegsInReqv(const std::wstring& value) const
{
    return Validate_Range_t<int>(value, 1, 125);
}

bool CDeviceData::Set_MaxRegsInReqv(const std::wstring& value)
{
    if (!m_pItem || !Validate_MaxRegsInReqv(value))
        return false;
    ReadByteValue(value, m_pItem->MaxRegsInReqv);
    return true;
}

bool CDeviceData::Validate_MaxDiscretsInReqv(const std::wstring& value) const
{
    return Validate_Range_t<int>(value, 1, 2000);
}

bool CDeviceData::Set_MaxDiscretsInReqv(const std::wstring& value)
{
    if (!m_pItem || !Validate_MaxDiscretsInReqv(value))
        return false;
    ReadValue(value, m_pItem->MaxDiscretsInReqv);
    return true;
}

bool CDeviceData::Validate_MaxFragmentation(const std::wstring& value) const
{
    return Validate_Range_t<int>(value, 0, 123);
}

bool CDeviceData::Set_MaxFragmentation(const std::wstring& value)
{
    if (!m_pItem || !Validate_MaxFragmentation(value))
        return false;
    ReadByteValue(value, m_pItem->MaxFragmentation);
    return true;
}

StrProps CDeviceData::GetStrProps()
{
    if (!m_pItem)
        return {};
    uint32_t tags = 0;
    for (const auto& group : *m_pItem)
        tags += group.second->size();
    return {
        {"Имя", m_pItem->GetName()},
        {"Адрес Modbus", std::to_string(m_pItem->Addr)},
        {"Обмен с устройством", TableTextUTF8(g_wszYesNo, m_pItem->bExchange ? 1 : 0)},
        {"Эмуляция", TableTextUTF8(g_wszYesNo, m_pItem->bEmulation ? 1 : 0)},
        {"Макс. кол-во регистров в запросе", std::to_string(m_pItem->MaxRegsInReqv)},
        {"Макс. кол-во состояний в запросе", std::to_string(m_pItem->MaxDiscretsInReqv)},
        {"Макс. допустимая фрагментация", std::to_string(m_pItem->MaxFragmentation)},
        {std::string(), std::string()},
        {"Кол-во групп", std::to_string(m_pItem->size())},
        {"Кол-во тегов", std::to_string(tags)},
    };
}
