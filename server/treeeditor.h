#pragma once

#include "server/methodargument.h"

#include <open62541/types.h>

#include <string>

class CAddressSpace;
class CDATagInfo;
class CItem;
class CTreeItemRoot;

// Carries out addNode, editNode and deleteNode on the tree held in memory and
// on the address space together. Every refusal is decided before anything
// changes, so a refused call leaves both as they were.
class CTreeEditor
{
public:
    CTreeEditor(CTreeItemRoot* root, CAddressSpace* space);

    UA_StatusCode Add(const CMethodArgument& arg);
    UA_StatusCode Edit(const CMethodArgument& arg);
    UA_StatusCode Delete(const CMethodArgument& arg);

    // "Каналы" is the root; otherwise names joined by ".". Null when absent.
    CItem* Find(const std::string& path) const;

private:
    static void Apply(const CMethodArgument& arg, CItem* item);
    // Refuses a tag whose registers cannot be read, with a line naming it.
    static bool Readable(const CDATagInfo* tag, const std::string& fullName);
    // The full name a child called `name` of `parent` has.
    static std::string FullNameUnder(CItem* parent, const std::string& name);
    // Moves the item to its new key under the same parent.
    static void Rename(CItem* item, const std::string& name);

    CTreeItemRoot* m_root;
    CAddressSpace* m_space;
};
