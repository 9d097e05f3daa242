#include "model/itemdata.h"

namespace {
const size_t kMaxNameLength = 64;
}

CItemData::~CItemData() = default;

bool CItemData::IsValidName(const std::string& name)
{
    return !name.empty() && name.size() <= kMaxNameLength && name.find('.') == std::string::npos;
}

bool CItemData::IsValidName(const std::wstring& name)
{
    return !name.empty() && name.size() <= kMaxNameLength && name.find(L'.') == std::wstring::npos;
}
