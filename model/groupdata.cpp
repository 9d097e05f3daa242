#include "model/groupdata.h"

#include "model/dataconversion.h"
#include "model/rangevalidate.h"

using RangeValidate::ReadValue;
using RangeValidate::Validate_Range_t;

const WStrTable CGroupData::m_wszMU_UpdateRate = {L"мс", L"с", L"мин.", L"ч"};

namespace {
// One day in each unit of m_wszMU_UpdateRate.
const int kDayInUnit[] = {86400000, 86400, 1440, 24};
const char* const kUnitMark[] = {"(мс)", "(с)", "(мин)", "(ч)"};
} // namespace

CGroupData::CGroupData(CItem* item) : m_pItem(dynamic_cast<CGroupInfo*>(item)) {}

bool CGroupData::Validate_Name(const char*) const
{
    return true;
}

bool CGroupData::Validate_Name(const std::wstring&) const
{
    return true;
}

bool CGroupData::Set_Name(const std::string& value)
{
    if (!m_pItem || !IsValidName(value))
        return false;
    m_pItem->SetName(value);
    return true;
}

bool CGroupData::Set_Name(const char* value)
{
    return value && Set_Name(std::string(value));
}

bool CGroupData::Set_Name(const std::wstring& value)
{
    if (!m_pItem || !Validate_Name(value))
        return false;
    m_pItem->SetName(DataConversion::wstringtoUTF8(value));
    return true;
}

bool CGroupData::Validate_MU_UpdateRate(const std::wstring& value) const
{
    return FindTableText(m_wszMU_UpdateRate, value) >= 0;
}

bool CGroupData::Set_MU_UpdateRate(const std::wstring& value)
{
    const int pos = FindTableText(m_wszMU_UpdateRate, value);
    if (!m_pItem || pos < 0)
        return false;
    m_pItem->MU_UpdateRate = pos;
    return true;
}

bool CGroupData::Validate_UpdateRate(const std::wstring& value) const
{
    if (!m_pItem || m_pItem->MU_UpdateRate < 0 || m_pItem->MU_UpdateRate > 3)
        return false;
    return Validate_Range_t<int>(value, 0, kDayInUnit[m_pItem->MU_UpdateRate]);
}

bool CGroupData::Set_UpdateRate(const std::wstring& value)
{
    if (!Validate_UpdateRate(value))
        return false;
    ReadValue(value, m_pItem->UpdateRate);
    return true;
}

StrProps CGroupData::GetStrProps()
{
    // A name starting with 0xFF marks a group that has no view.
    if (!m_pItem ||
        (!m_pItem->GetName().empty() && static_cast<unsigned char>(m_pItem->GetName()[0]) == 0xFF))
        return {};
    const int unit = m_pItem->MU_UpdateRate;
    const std::string mark = unit >= 0 && unit <= 3 ? kUnitMark[unit] : "";
    return {
        {"Имя", m_pItem->GetName()},
        {"Период опроса " + mark, std::to_string(static_cast<int32_t>(m_pItem->UpdateRate))},
        {std::string(), std::string()},
        {"Кол-во тегов", std::to_string(m_pItem->size())},
    };
}
