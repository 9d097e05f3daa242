#pragma once

#include "model/cchannelinfo.h"
#include "model/itemdata.h"
#include "model/modbus_types.h"

#include <string>

// Property view of a channel. The port's properties live on the port record itself.
class CChannelData : public CItemData
{
public:
    static const WStrTable m_wszTypeProtocol;
    static const WStrTable m_wszTypeChannel;

    // A node of another kind gives a view on nothing, whose setters refuse.
    explicit CChannelData(CItem* item);

    bool Validate_Name(const std::string& value) const;
    bool Validate_Name(const char* value) const;
    bool Set_Name(const std::string& value);
    bool Set_Name(const char* value);
    bool Set_Name(const std::wstring& value);
    bool Validate_TypeProtocol(const std::wstring& value) const;
    bool Set_TypeProtocol(const std::wstring& value);
    // Leaves the port alone: CChannelInfo::Init makes the matching one.
    bool Validate_TypeChannel(const std::wstring& value) const;
    bool Set_TypeChannel(const std::wstring& value);
    bool Validate_Timeout(const std::wstring& value) const;
    bool Set_Timeout(const std::wstring& value);
    bool Validate_QuanRetry(const std::wstring& value) const;
    bool Set_QuanRetry(const std::wstring& value);
    bool Validate_TimeBusy(const std::wstring& value) const;
    bool Set_TimeBusy(const std::wstring& value);

    StrProps GetStrProps() override;

private:
    CChannelInfo* m_pItem;
};
