#pragma once

#include "model/deviceinfo.h"
#include "model/itemdata.h"

#include <string>

// Property view of a device.
class CDeviceData : public CItemData
{
public:
    // A node of another kind gives a view on nothing, whose setters refuse.
    explicit CDeviceData(CItem* item);

    bool Validate_Name(const std::string& value) const;
    bool Validate_Name(const char* value) const;
    bool Validate_Name(const std::wstring& value) const;
    bool Set_Name(const std::string& value);
    bool Set_Name(const char* value);
    bool Set_Name(const std::wstring& value);
    bool Validate_Addr(const std::wstring& value) const;
    bool Set_Addr(const std::wstring& value);
    bool Validate_bEmulation(const std::wstring& value) const;
    bool Set_bEmulation(const std::wstring& value);
    bool Validate_bExchange(const std::wstring& value) const;
    bool Set_bExchange(const std::wstring& value);
    bool Validate_MaxRegsInReqv(const std::wstring& value) const;
    bool Set_MaxRegsInReqv(const std::wstring& value);
    bool Validate_MaxDiscretsInReqv(const std::wstring& value) const;
    bool Set_MaxDiscretsInReqv(const std::wstring& value);
    bool Validate_MaxFragmentation(const std::wstring& value) const;
    bool Set_MaxFragmentation(const std::wstring& value);

    StrProps GetStrProps() override;

private:
    CDeviceInfo* m_pItem;
};
