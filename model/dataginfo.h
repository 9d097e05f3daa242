#pragma once

#include "model/emuldata.h"
#include "model/item.h"
#include "model/modbus_types.h"
#include "model/transforminfo.h"

#include <cstdint>

// One mapped value of a Modbus device; a leaf of the tree.
class CDATagInfo : public CItem
{
public:
    explicit CDATagInfo(const CDATagInfo* source = nullptr);
    ~CDATagInfo() override;

    // Register type, address, segment size, segment position and value type all equal.
    bool IsDublicate(const CItem* other) const override;
    // Turns the tag into the next one of a series: next bit, or next address.
    bool MakeNextSettings() override;
    virtual void Init();
    virtual void DeInit();

    static CTransformationInfo* New_Transform(en_TransformType type, const CSerializeData* source);
    static CEmulation* New_Emul(en_EmulType type, const CSerializeData* source);
    // Registers a value type occupies; a part of one register counts as one.
    static int GetRegsCount(en_ModbusValType type);

    en_ModbusRegType RegType = MRT_InputRegister;
    uint16_t Addr = 0;
    uint16_t RegsInSegment = 0;
    uint16_t SegmentPos = 0;
    bool bRead = true;
    bool bWrite = true;
    bool bWriteGroup = true;
    en_ModbusValType ValType = MVT_Real32;
    // Position in g_wszByteOrder[ModbusTypes::GetRegsCount(ValType)], 0xFF for none.
    uint8_t ByteOrder = 2;
    en_TransformType TransformType = TT_None;
    // Owned; null when TransformType is TT_None.
    CTransformationInfo* Transform = nullptr;
    en_EmulType EmulType = ET_Const;
    // Owned; never null in a tag built by the constructor.
    CEmulation* Emul = nullptr;
};
