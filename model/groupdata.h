#pragma once

#include "model/groupinfo.h"
#include "model/itemdata.h"
#include "model/modbus_types.h"

#include <string>

// Property view of a group. Its name rules are looser than elsewhere: only the
// std::string form of Set_Name checks length and point.
class CGroupData : public CItemData
{
public:
    static const WStrTable m_wszMU_UpdateRate;

    // A node of another kind gives a view on nothing, whose setters refuse.
    explicit CGroupData(CItem* item);

    bool Validate_Name(const char* value) const;
    bool Validate_Name(const std::wstring& value) const;
    bool Set_Name(const std::string& value);
    bool Set_Name(const char* value);
    bool Set_Name(const std::wstring& value);
    bool Validate_MU_UpdateRate(const std::wstring& value) const;
    bool Set_MU_UpdateRate(const std::wstring& value);
    // The range is one day in the current unit, so the unit is set first.
    bool Validate_UpdateRate(const std::wstring& value) const;
    bool Set_UpdateRate(const std::wstring& value);

    StrProps GetStrProps() override;

private:
    CGroupInfo* m_pItem;
};
