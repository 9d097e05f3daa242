#pragma once

#include <string>
#include <utility>
#include <vector>

// Rows of a property view: caption and value, both UTF-8.
using StrProps = std::vector<std::pair<std::string, std::string>>;

// Base of the property views. A view is a light object on the stack beside one node;
// it validates and sets the node's properties from text and lists them for display.
class CItemData
{
public:
    virtual ~CItemData();
    virtual StrProps GetStrProps() = 0;

protected:
    // Shared name rule: 1 to 64 elements and no point.
    static bool IsValidName(const std::string& name);
    static bool IsValidName(const std::wstring& name);
};
