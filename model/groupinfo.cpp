#include "model/groupinfo.h"

CGroupInfo::CGroupInfo(const CGroupInfo* source) : CItem(source)
{
    m_Type = itGroup;
    if (!source) {
        m_Name = "Group_0";
        return;
    }
    UpdateRate = source->UpdateRate;
    MU_UpdateRate = source->MU_UpdateRate;
}

CGroupInfo::~CGroupInfo() = default;

bool CGroupInfo::IsDublicate(const CItem* other) const
{
    if (!other || other->GetType() != m_Type)
        return false;
    return other->GetName() == m_Name;
}

void CGroupInfo::Init() {}

void CGroupInfo::DeInit() {}
