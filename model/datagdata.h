#pragma once

#include "model/dataginfo.h"
#include "model/itemdata.h"
#include "model/modbus_types.h"

#include <string>

// Property view of a tag. Order of setting matters: RegType before RegsInSegment
// before SegmentPos, and ValType before ByteOrder.
class CDATagData : public CItemData
{
public:
    static const WStrTable m_wsz_bWriteGroup;

    // A node of another kind gives a view on nothing, whose setters refuse.
    explicit CDATagData(CItem* item);

    bool Validate_Name(const std::string& value) const;
    bool Validate_Name(const char* value) const;
    bool Validate_Name(const std::wstring& value) const;
    bool Set_Name(const std::string& value);
    bool Set_Name(const char* value);
    bool Set_Name(const std::wstring& value);
    bool Validate_RegType(const std::wstring& value) const;
    bool Set_RegType(const std::wstring& value);
    bool Validate_Addr(const std::wstring& value) const;
    bool Set_Addr(const std::wstring& value);
    bool Validate_RegsInSegment(const std::wstring& value) const;
    bool Set_RegsInSegment(const std::wstring& value);
    bool Validate_SegmentPos(const std::wstring& value) const;
    bool Set_SegmentPos(const std::wstring& value);
    bool Validate_bRead(const std::wstring& value) const;
    bool Set_bRead(const std::wstring& value);
    bool Validate_bWrite(const std::wstring& value) const;
    bool Set_bWrite(const std::wstring& value);
    bool Validate_bWriteGroup(const std::wstring& value) const;
    bool Set_bWriteGroup(const std::wstring& value);
    bool Validate_ValType(const std::wstring& value) const;
    bool Set_ValType(const std::wstring& value);
    // No text is refused: one outside the list of the value type stores 0xFF.
    bool Set_ByteOrder(const std::wstring& value);
    // Neither setter exchanges the record; the caller does that with New_Transform/New_Emul.
    bool Validate_TransformType(const std::wstring& value) const;
    bool Set_TransformType(const std::wstring& value);
    bool Validate_EmulType(const std::wstring& value) const;
    bool Set_EmulType(const std::wstring& value);

    StrProps GetStrProps() override;

private:
    CDATagInfo* m_pItem;
};
