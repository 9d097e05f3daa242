#include "model/item.h"

#include "model/cchannelinfo.h"
#include "model/dataconversion.h"
#include "model/dataginfo.h"
#include "model/deviceinfo.h"
#include "model/groupinfo.h"

#include <sstream>

CItem::CItem() = default;

CItem::CItem(const CItem* source)
{
    if (source) {
        m_Name = source->m_Name;
        m_Type = source->m_Type;
    }
}

CItem::~CItem()
{
    DeleteAllChildren();
}

CItem* CItem::FindChildByName(const char* name)
{
    if (!name || !*name)
        return nullptr;
    auto it = m_Children.find(name);
    return it == m_Children.end() ? nullptr : it->second;
}

CItem* CItem::FindChildByName(const wchar_t* name)
{
    if (!name || !*name)
        return nullptr;
    // The key is formed from the pointer, not the text: this form never finds anything.
    std::ostringstream key;
    key << static_cast<const void*>(name);
    return FindChildByName(key.str().c_str());
}

CItem* CItem::Copy(bool& ok)
{
    CItem* copy = NewItem(m_Type, this);
    if (!copy) {
        ok = false;
        return nullptr;
    }
    // A copied channel must not clash with its source on the same COM port.
    if (copy->m_Type == itChannel)
        copy->MakeNextSettings();
    for (auto& entry : m_Children) {
        CItem* child = entry.second->Copy(ok);
        if (!child) {
            delete copy;
            return nullptr;
        }
        if (!copy->AppendChild(child)) {
            delete child;
            ok = false;
            return copy;
        }
    }
    return copy;
}

bool CItem::MakeNextSettings()
{
    return false;
}

bool CItem::HasChildDublicate(const CItem* item, const CItem* exclude)
{
    if (!item || m_Children.empty())
        return false;
    const CItem* skip = exclude ? exclude : item;
    for (const auto& entry : m_Children) {
        if (entry.second == skip)
            continue;
        if (item->IsDublicate(entry.second))
            return true;
    }
    return false;
}

CItem* CItem::NewItem(enItemType kind, const CItem* source)
{
    if (source && source->m_Type != kind)
        return nullptr;
    switch (kind) {
    case itChannel:
        return new CChannelInfo(static_cast<const CChannelInfo*>(source));
    case itDevice:
        return new CDeviceInfo(static_cast<const CDeviceInfo*>(source));
    case itGroup:
        return new CGroupInfo(static_cast<const CGroupInfo*>(source));
    case itTag:
        return new CDATagInfo(static_cast<const CDATagInfo*>(source));
    default:
        return nullptr;
    }
}

bool CItem::GetFullName(std::string& out)
{
    if (m_pParent && m_pParent->m_Type != itRoot)
        m_pParent->GetFullName(out);
    if (m_Type != itChannel)
        out += ".";
    out += m_Name;
    return true;
}

bool CItem::GetFullName(std::string& out, CItem* base)
{
    if (m_pParent && m_pParent != base)
        m_pParent->GetFullName(out, base);
    if (this == base)
        return true;
    if (m_pParent != base)
        out += ".";
    out += m_Name;
    return true;
}

bool CItem::IncrementName(CItem* parent, std::string& name)
{
    for (;;) {
        name = DataConversion::IncrementName(name);
        if (!parent || !parent->FindChildByName(name.c_str()))
            break;
    }
    return true;
}

bool CItem::IncrementName(CItem* parent)
{
    if (!m_pParent)
        return false;
    return IncrementName(parent, m_Name);
}

bool CItem::AppendChild(CItem* child)
{
    if (!child)
        return false;
    child->m_pParent = this;
    // A taken key keeps its old entry; the caller still owns the child then.
    // Children mostly come in their order, as a file holds them: the end is
    // the first place tried.
    m_Children.emplace_hint(m_Children.end(), child->m_Name, child);
    return true;
}

bool CItem::DeleteChild(CItem* child)
{
    if (m_Children.empty())
        return false;
    for (auto it = m_Children.begin(); it != m_Children.end(); ++it) {
        if (it->second != child)
            continue;
        m_Children.erase(it);
        delete child;
        return true;
    }
    return false;
}

bool CItem::Delete()
{
    if (!m_pParent)
        return false;
    return m_pParent->DeleteChild(this);
}

bool CItem::DeleteAllChildren()
{
    ChildMap children;
    children.swap(m_Children);
    for (auto& entry : children)
        delete entry.second;
    return true;
}

void CItem::SwapChildren(CItem& other)
{
    m_Children.swap(other.m_Children);
    for (auto& entry : m_Children)
        entry.second->m_pParent = this;
    for (auto& entry : other.m_Children)
        entry.second->m_pParent = &other;
}

bool CItem::PopChild(CItem* child)
{
    for (auto it = m_Children.begin(); it != m_Children.end(); ++it) {
        if (it->second == child) {
            m_Children.erase(it);
            return true;
        }
    }
    return false;
}

int CItem::PopChildren(std::list<CItem*>& items)
{
    if (m_Children.empty() || items.empty())
        return 0;
    int found = 0;
    for (CItem* item : items)
        if (PopChild(item))
            ++found;
    return found;
}

bool CItem::InsertChildren(std::list<CItem*>& items, iterator)
{
    for (CItem* item : items) {
        if (!item)
            continue;
        item->m_pParent = this;
        m_Children.emplace(item->m_Name, item);
    }
    items.clear();
    return true;
}

bool CItem::MoveItems(std::list<CItem*> items, iterator position)
{
    try {
        if (position != end() && position->second->m_pParent != this)
            return false;
        if (items.empty() || !items.front())
            return false;
        if (CItem* source = items.front()->m_pParent)
            source->PopChildren(items);
        InsertChildren(items, position);
    } catch (const CivItemExeption&) {
    }
    // Callers can't read success from this: it always answers false.
    return false;
}

CItem::iterator CItem::GetIterator(const CItem* child)
{
    for (auto it = m_Children.begin(); it != m_Children.end(); ++it)
        if (it->second == child)
            return it;
    throw CivItemExeption(ExChildNotFound);
}

CItem::iterator CItem::GetIterator()
{
    if (!m_pParent)
        throw CivItemExeption(ExNoParent);
    return m_pParent->GetIterator(this);
}

uint32_t CItem::GetTotalItems() const
{
    uint32_t total = size();
    if (m_Type > itDevice)
        return total;
    for (const auto& entry : m_Children)
        total += entry.second->GetTotalItems();
    return total;
}

uint32_t CItem::GetItemsCount(enItemType kind) const
{
    if (m_Type == kind - 1)
        return size();
    if (m_Type >= kind || m_Type > itDevice)
        return 0;
    uint32_t count = 0;
    for (const auto& entry : m_Children)
        count += entry.second->GetItemsCount(kind);
    return count;
}

void CItem::AllChildren(void (*fn)(CItem*))
{
    for (auto& entry : m_Children) {
        entry.second->AllChildren(fn);
        fn(entry.second);
    }
}
