#include "model/modbus_types.h"

#include "model/dataconversion.h"

const WStrTable g_wszModbusRegType = {L"Входное состояние", L"Выходное состояние", L"Входной регистр",
                                      L"Выходной регистр"};

const WStrTable g_wszModbusValType = {
    L"Вещ32", L"Вещ64", L"Цел16", L"Цел32", L"Цел16(знак)", L"Цел32(знак)", L"Младший байт", L"Старший байт",
    L"Бит0",  L"Бит1",  L"Бит2",  L"Бит3",  L"Бит4",        L"Бит5",        L"Бит6",         L"Бит7",
    L"Бит8",  L"Бит9",  L"Бит10", L"Бит11", L"Бит12",       L"Бит13",       L"Бит14",        L"Бит15"};

const std::vector<WStrTable> g_wszByteOrder = {
    {L""},
    {L"AB", L"BA"},
    {L"AB CD", L"CD AB", L"BA DC", L"DC BA"},
    {L""},
    {L"AB CD EF GH", L"GH EF CD AB", L"BA DC FE HG", L"HG FE DC BA"},
};

const WStrTable g_wszTransformType = {L"Нет", L"Линейная шкала", L"Множитель"};
const WStrTable g_wszEmulType = {L"Константа", L"Случайное число", L"Синусоида"};
const WStrTable g_wszYesNo = {L"Нет", L"Да"};

const std::vector<unsigned short> IntTypes = {VT_I1,  VT_UI1,  VT_I2,  VT_UI2, VT_I4,
                                              VT_UI4, VT_BOOL, VT_INT, VT_UINT};
const std::vector<unsigned short> FltTypes = {VT_R4, VT_R8};

const std::map<en_ModbusValType, unsigned short> ModbusTypes::Modbus2VT = [] {
    std::map<en_ModbusValType, unsigned short> m = {
        {MVT_Real32, VT_R4}, {MVT_Real64, VT_R8}, {MVT_UInt16, VT_UI2},  {MVT_UInt32, VT_UI4},
        {MVT_Int16, VT_I2},  {MVT_Int32, VT_I4},  {MVT_LowByte, VT_UI1}, {MVT_HighByte, VT_UI1},
    };
    for (int t = MVT_Bit0; t <= MVT_Bool; ++t)
        m[static_cast<en_ModbusValType>(t)] = VT_BOOL;
    return m;
}();

int FindTableText(const WStrTable& table, const std::wstring& text)
{
    for (size_t i = 0; i < table.size(); ++i)
        if (table[i] == text)
            return static_cast<int>(i);
    return -1;
}

std::string TableTextUTF8(const WStrTable& table, long long idx)
{
    if (idx < 0 || idx >= static_cast<long long>(table.size()))
        return std::string();
    return DataConversion::wstringtoUTF8(table[static_cast<size_t>(idx)]);
}

unsigned short ModbusTypes::GetVT(en_ModbusValType type)
{
    auto it = Modbus2VT.find(type);
    return it == Modbus2VT.end() ? static_cast<unsigned short>(VT_R4) : it->second;
}

unsigned short ModbusTypes::GetValueVT(en_ModbusRegType regType, en_ModbusValType valType)
{
    if (regType == MRT_InputRegister || regType == MRT_HoldingRegister)
        return GetVT(valType);
    return VT_BOOL;
}

int ModbusTypes::GetRegsCount(en_ModbusValType type)
{
    switch (type) {
    case MVT_Real32:
    case MVT_UInt32:
    case MVT_Int32:
        return 2;
    case MVT_Real64:
        return 4;
    case MVT_UInt16:
    case MVT_Int16:
        return 1;
    default:
        return 0;
    }
}

int ModbusTypes::GetRegsCount(unsigned char type)
{
    return GetRegsCount(static_cast<en_ModbusValType>(type));
}
