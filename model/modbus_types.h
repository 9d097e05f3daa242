#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// Modbus table of a tag's value.
enum en_ModbusRegType : int32_t
{
    MRT_DiscreteInput = 0,
    MRT_Coil = 1,
    MRT_InputRegister = 2,
    MRT_HoldingRegister = 3,
};

// How a tag's registers are read. Value 24 has no text; it exists only in the maps.
enum en_ModbusValType : int32_t
{
    MVT_Real32 = 0,
    MVT_Real64,
    MVT_UInt16,
    MVT_UInt32,
    MVT_Int16,
    MVT_Int32,
    MVT_LowByte,
    MVT_HighByte,
    MVT_Bit0,
    MVT_Bit15 = MVT_Bit0 + 15,
    MVT_Bool = 24,
};

enum en_TransformType : int32_t
{
    TT_None = 0,
    TT_LineScale = 1,
    TT_Factor = 2,
};

enum en_EmulType : int32_t
{
    ET_Const = 0,
    ET_Random = 1,
    ET_Sin = 2,
};

// VARTYPE numbers of the variant type the value records use.
enum : unsigned short
{
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_BOOL = 11,
    VT_I1 = 16,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_INT = 22,
    VT_UINT = 23,
};

// A typed value; only the double member is ever used.
struct tagVARIANT
{
    unsigned short vt = VT_R8;
    double dblVal = 0.0;
};

using WStrTable = std::vector<std::wstring>;

extern const WStrTable g_wszModbusRegType;
extern const WStrTable g_wszModbusValType;
extern const std::vector<WStrTable> g_wszByteOrder;
extern const WStrTable g_wszTransformType;
extern const WStrTable g_wszEmulType;
extern const WStrTable g_wszYesNo;

extern const std::vector<unsigned short> IntTypes;
extern const std::vector<unsigned short> FltTypes;

// Position of text in table by exact comparison, or -1.
int FindTableText(const WStrTable& table, const std::wstring& text);
// Entry idx of table as UTF-8; empty when idx lies outside the table.
std::string TableTextUTF8(const WStrTable& table, long long idx);

class ModbusTypes
{
public:
    static const std::map<en_ModbusValType, unsigned short> Modbus2VT;

    static unsigned short GetVT(en_ModbusValType type);
    static unsigned short GetValueVT(en_ModbusRegType regType, en_ModbusValType valType);
    static int GetRegsCount(en_ModbusValType type);
    static int GetRegsCount(unsigned char type);
};
