#pragma once

#include <cstdint>
#include <fstream>
#include <list>
#include <map>
#include <string>

// Kind of a tree node; the value is also the node's depth below the root.
enum enItemType : int32_t
{
    itRoot = 0,
    itChannel = 1,
    itDevice = 2,
    itGroup = 3,
    itTag = 4,
};

// Base of every node of the configuration tree. A node owns its children, which
// are kept in byte order of their names; the map key is the name at insertion time.
class CItem
{
public:
    class CivItemExeption
    {
    public:
        explicit CivItemExeption(int32_t code) : m_Code(code) {}
        int32_t Code() const { return m_Code; }

    private:
        int32_t m_Code;
    };
    enum : int32_t
    {
        ExChildNotFound = 1,
        ExNoParent = 2,
    };

    using ChildMap = std::map<std::string, CItem*>;
    using iterator = ChildMap::iterator;
    using const_iterator = ChildMap::const_iterator;
    using reverse_iterator = ChildMap::reverse_iterator;

    CItem();
    explicit CItem(const CItem* source);
    CItem(const CItem&) = delete;
    CItem& operator=(const CItem&) = delete;
    virtual ~CItem();

    virtual bool IsDublicate(const CItem* other) const = 0;
    virtual void Serialize(std::basic_ifstream<char>&, unsigned char) {}
    virtual CItem* FindChildByName(const char* name);
    virtual CItem* FindChildByName(const wchar_t* name);
    virtual CItem* Copy(bool& ok);
    virtual bool MakeNextSettings();
    virtual bool HasChildDublicate(const CItem* item, const CItem* exclude);

    static CItem* NewItem(enItemType kind, const CItem* source);

    const std::string& GetName() const { return m_Name; }
    // Changes the name only; the key under the parent stays as it was.
    void SetName(const std::string& name) { m_Name = name; }
    enItemType GetType() const { return m_Type; }
    CItem* GetParent() const { return m_pParent; }
    void SetParent(CItem* parent) { m_pParent = parent; }

    bool GetFullName(std::string& out);
    bool GetFullName(std::string& out, CItem* base);
    static bool IncrementName(CItem* parent, std::string& name);
    bool IncrementName(CItem* parent);

    bool AppendChild(CItem* child);
    bool DeleteChild(CItem* child);
    bool Delete();
    bool DeleteAllChildren();
    // Exchanges the children of two nodes; each child's parent follows.
    void SwapChildren(CItem& other);
    bool PopChild(CItem* child);
    int PopChildren(std::list<CItem*>& items);
    bool InsertChildren(std::list<CItem*>& items, iterator position);
    bool MoveItems(std::list<CItem*> items, iterator position);

    iterator begin() { return m_Children.begin(); }
    iterator end() { return m_Children.end(); }
    const_iterator begin() const { return m_Children.begin(); }
    const_iterator end() const { return m_Children.end(); }
    reverse_iterator rbegin() { return m_Children.rbegin(); }
    reverse_iterator rend() { return m_Children.rend(); }
    uint32_t size() const { return static_cast<uint32_t>(m_Children.size()); }
    bool empty() const { return m_Children.empty(); }

    iterator GetIterator(const CItem* child);
    iterator GetIterator();
    uint32_t GetTotalItems() const;
    uint32_t GetItemsCount(enItemType kind) const;
    void AllChildren(void (*fn)(CItem*));

protected:
    std::string m_Name;
    enItemType m_Type = itRoot;
    CItem* m_pParent = nullptr;
    ChildMap m_Children;
};
