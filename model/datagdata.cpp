#include "model/datagdata.h"

#include "model/dataconversion.h"
#include "model/rangevalidate.h"

using RangeValidate::ReadValue;
using RangeValidate::Validate_Range_t;

const WStrTable CDATagData::m_wsz_bWriteGroup = {L"Одиночная", L"Групповая"};

namespace {
const std::string kNotApplicable = "-";

bool IsOutput(en_ModbusRegType type)
{
    return type == MRT_Coil || type == MRT_HoldingRegister;
}

bool IsRegister(en_ModbusRegType type)
{
    return type == MRT_InputRegister || type == MRT_HoldingRegister;
}
} // namespace

CDATagData::CDATagData(CItem* item) : m_pItem(dynamic_cast<CDATagInfo*>(item)) {}

bool CDATagData::Validate_Name(const std::string& value) const
{
    return IsValidName(value);
}

bool CDATagData::Validate_Name(const char* value) const
{
    return value && IsValidName(std::string(value));
}

bool CDATagData::Validate_Name(const std::wstring& value) const
{
    return IsValidName(value);
}

bool CDATagData::Set_Name(const std::string& value)
{
    if (!m_pItem || !Validate_Name(value))
        return false;
    m_pItem->SetName(value);
    return true;
}

bool CDATagData::Set_Name(const char* value)
{
    return value && Set_Name(std::string(value));
}

bool CDATagData::Set_Name(const std::wstring& value)
{
    if (!m_pItem || !Validate_Name(value))
        return false;
    m_pItem->SetName(DataConversion::wstringtoUTF8(value));
    return true;
}

bool CDATagData::Validate_RegType(const std::wstring& value) const
{
    return FindTableText(g_wszModbusRegType, value) >= 0;
}

bool CDATagData::Set_RegType(const std::wstring& value)
{
    const int pos = FindTableText(g_wszModbusRegType, value);
    if (!m_pItem || pos < 0)
        return false;
    m_pItem->RegType = static_cast<en_ModbusRegType>(pos);
    return true;
}

bool CDATagData::Validate_Addr(const std::wstring& value) const
{
    return Validate_Range_t<int>(value, 1, 65535);
}

bool CDATagData::Set_Addr(const std::wstring& value)
{
    if (!m_pItem || !Validate_Addr(value))
        return false;
    ReadValue(value, m_pItem->Addr);
    return true;
}

bool CDATagData::Validate_RegsInSegment(const std::wstring& value) const
{
    if (!m_pItem)
        return false;
    switch (m_pItem->RegType) {
    case MRT_DiscreteInput:
    case MRT_Coil:
        return Validate_Range_t<int>(value, 0, 2000);
    case MRT_InputRegister:
    case MRT_HoldingRegister:
        return Validate_Range_t<int>(value, 0, 123);
    default:
        return false;
    }
}

bool CDATagData::Set_RegsInSegment(const std::wstring& value)
{
    if (!Validate_RegsInSegment(value))
        return false;
    ReadValue(value, m_pItem->RegsInSegment);
    return true;
}

bool CDATagData::Validate_SegmentPos(const std::wstring& value) const
{
    return m_pItem && Validate_Range_t<int>(value, 0, m_pItem->RegsInSegment);
}

bool CDATagData::Set_SegmentPos(const std::wstring& value)
{
    if (!Validate_SegmentPos(value))
        return false;
    ReadValue(value, m_pItem->SegmentPos);
    return true;
}

bool CDATagData::Validate_bRead(const std::wstring& value) const
{
    return FindTableText(g_wszYesNo, value) >= 0;
}

bool CDATagData::Set_bRead(const std::wstring& value)
{
    const int pos = FindTableText(g_wszYesNo, value);
    if (!m_pItem || pos < 0)
        return false;
    m_pItem->bRead = pos != 0;
    return true;
}

bool CDATagData::Validate_bWrite(const std::wstring& value) const
{
    return FindTableText(g_wszYesNo, value) >= 0;
}

bool CDATagData::Set_bWrite(const std::wstring& value)
{
    const int pos = FindTableText(g_wszYesNo, value);
    if (!m_pItem || pos < 0)
        return false;
    m_pItem->bWrite = pos != 0;
    return true;
}

bool CDATagData::Validate_bWriteGroup(const std::wstring& value) const
{
    return FindTableText(m_wsz_bWriteGroup, value) >= 0;
}

bool CDATagData::Set_bWriteGroup(const std::wstring& value)
{
    const int pos = FindTableText(m_wsz_bWriteGroup, value);
    if (!m_pItem || pos < 0)
        return false;
    m_pItem->bWriteGroup = pos != 0;
    return true;
}

bool CDATagData::Validate_ValType(const std::wstring& value) const
{
    return FindTableText(g_wszModbusValType, value) >= 0;
}

bool CDATagData::Set_ValType(const std::wstring& value)
{
    const int pos = FindTableText(g_wszModbusValType, value);
    if (!m_pItem || pos < 0)
        return false;
    m_pItem->ValType = static_cast<en_ModbusValType>(pos);
    return true;
}

bool CDATagData::Set_ByteOrder(const std::wstring& value)
{
    if (!m_pItem)
        return false;
    const int row = ModbusTypes::GetRegsCount(m_pItem->ValType);
    if (row < 0 || row >= static_cast<int>(g_wszByteOrder.size()))
        return false;
    const int pos = FindTableText(g_wszByteOrder[row], value);
    m_pItem->ByteOrder = pos < 0 ? 0xFF : static_cast<uint8_t>(pos);
    return true;
}

bool CDATagData::Validate_TransformType(const std::wstring& value) const
{
    return FindTableText(g_wszTransformType, value) >= 0;
}

bool CDATagData::Set_TransformType(const std::wstring& value)
{
    const int pos = FindTableText(g_wszTransformType, value);
    if (!m_pItem || pos < 0)
        return false;
    m_pItem->TransformType = static_cast<en_TransformType>(pos);
    return true;
}

bool CDATagData::Validate_EmulType(const std::wstring& value) const
{
    return FindTableText(g_wszEmulType, value) >= 0;
}

bool CDATagData::Set_EmulType(const std::wstring& value)
{
    const int pos = FindTableText(g_wszEmulType, value);
    if (!m_pItem || pos < 0)
        return false;
    m_pItem->EmulType = static_cast<en_EmulType>(pos);
    return true;
}

StrProps CDATagData::GetStrProps()
{
    if (!m_pItem)
        return {};
    const CDATagInfo& tag = *m_pItem;
    const bool output = IsOutput(tag.RegType);
    const bool reg = IsRegister(tag.RegType);

    std::string byteOrder = kNotApplicable;
    if (reg && tag.ValType <= MVT_Int32) {
        // A byte order outside the list (0xFF) shows as an empty text.
        const int row = ModbusTypes::GetRegsCount(tag.ValType);
        byteOrder = TableTextUTF8(g_wszByteOrder[row], tag.ByteOrder);
    }
    return {
        {"Имя", tag.GetName()},
        {"Тип регистра", TableTextUTF8(g_wszModbusRegType, tag.RegType)},
        {"Адрес", std::to_string(tag.Addr)},
        {"Чтение", TableTextUTF8(g_wszYesNo, tag.bRead ? 1 : 0)},
        {"Запись", output ? TableTextUTF8(g_wszYesNo, tag.bWrite ? 1 : 0) : kNotApplicable},
        {"Режим записи",
         output && tag.bWrite ? TableTextUTF8(m_wsz_bWriteGroup, tag.bWriteGroup ? 1 : 0) : kNotApplicable},
        {"Тип значения", reg ? TableTextUTF8(g_wszModbusValType, tag.ValType) : kNotApplicable},
        {"Порядок байт", byteOrder},
        {"Размер сегмента", std::to_string(tag.RegsInSegment)},
        {"Смещение в сегменте", std::to_string(tag.SegmentPos)},
        {"Тип преобразования", reg && tag.ValType <= MVT_HighByte
                                   ? TableTextUTF8(g_wszTransformType, tag.TransformType)
                                   : kNotApplicable},
        {"Тип эмуляции", TableTextUTF8(g_wszEmulType, tag.EmulType)},
    };
}
