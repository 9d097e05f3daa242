#include "model/treeitemroot.h"

CTreeItemRoot::CTreeItemRoot() = default;

CTreeItemRoot::~CTreeItemRoot() = default;

bool CTreeItemRoot::IsDublicate(const CItem* other) const
{
    return other && other->GetType() == m_Type && other->GetName() == m_Name;
}

// The root has no properties of its own.
int CTreeItemRoot::GetStrPropCnt()
{
    return 0;
}

int CTreeItemRoot::GetStrPropName(int, wchar_t*, int)
{
    return 1;
}

int CTreeItemRoot::GetStrPropValue(int, wchar_t*, int)
{
    return 1;
}
