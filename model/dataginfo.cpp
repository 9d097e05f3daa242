#include "model/dataginfo.h"

#include "model/emuldata_const.h"
#include "model/emuldata_random.h"
#include "model/emuldata_sin.h"
#include "model/transform_factordata.h"
#include "model/transform_linescaledata.h"

CDATagInfo::CDATagInfo(const CDATagInfo* source) : CItem(source)
{
    m_Type = itTag;
    if (!source) {
        m_Name = "Tag_0";
        Emul = new CEmulData_Const();
        return;
    }
    RegType = source->RegType;
    Addr = source->Addr;
    RegsInSegment = source->RegsInSegment;
    SegmentPos = source->SegmentPos;
    bRead = source->bRead;
    bWrite = source->bWrite;
    bWriteGroup = source->bWriteGroup;
    ValType = source->ValType;
    ByteOrder = source->ByteOrder;
    TransformType = source->TransformType;
    EmulType = source->EmulType;
    Transform = New_Transform(TransformType, source->Transform);
    Emul = New_Emul(EmulType, source->Emul);
}

CDATagInfo::~CDATagInfo()
{
    delete Transform;
    delete Emul;
}

bool CDATagInfo::IsDublicate(const CItem* other) const
{
    if (!other || other->GetType() != m_Type)
        return false;
    const auto* tag = static_cast<const CDATagInfo*>(other);
    return tag->RegType == RegType && tag->Addr == Addr && tag->RegsInSegment == RegsInSegment &&
           tag->SegmentPos == SegmentPos && tag->ValType == ValType;
}

bool CDATagInfo::MakeNextSettings()
{
    if (ValType >= MVT_Bit0 && ValType < MVT_Bit15) {
        ValType = static_cast<en_ModbusValType>(ValType + 1);
    } else if (ValType == MVT_Bit15) {
        ValType = MVT_Bit0;
        if (++Addr == 0)
            Addr = 1;
    } else if (RegType == MRT_DiscreteInput || RegType == MRT_Coil) {
        // Discrete addresses may wrap to 0.
        ++Addr;
    } else if (RegType == MRT_InputRegister || RegType == MRT_HoldingRegister) {
        // One step whatever the width: a series of wide values overlaps on purpose.
        if (++Addr == 0)
            Addr = 1;
    }
    return true;
}

void CDATagInfo::Init() {}

void CDATagInfo::DeInit() {}

CTransformationInfo* CDATagInfo::New_Transform(en_TransformType type, const CSerializeData* source)
{
    switch (type) {
    case TT_LineScale:
        return new CTransform_LineScaleData(source);
    case TT_Factor:
        return new CTransform_FactorData(source);
    default:
        return nullptr;
    }
}

CEmulation* CDATagInfo::New_Emul(en_EmulType type, const CSerializeData* source)
{
    switch (type) {
    case ET_Const:
        return new CEmulData_Const(source);
    case ET_Random:
        return new CEmulData_Random(source);
    case ET_Sin:
        return new CEmulData_Sin(source);
    default:
        return nullptr;
    }
}

int CDATagInfo::GetRegsCount(en_ModbusValType type)
{
    if (type < MVT_Real32 || type > MVT_Bool)
        return 0;
    if (type >= MVT_LowByte)
        return 1;
    return ModbusTypes::GetRegsCount(type);
}
