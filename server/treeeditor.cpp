#include "server/treeeditor.h"

#include "server/addressspace.h"
#include "server/modbus/modbusbridge.h"
#include "server/serverlog.h"

#include "config/csvimporter.h"

#include "model/cchannelinfo.h"
#include "model/dataginfo.h"
#include "model/deviceinfo.h"
#include "model/groupinfo.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"
#include "model/treeitemroot.h"

#include <memory>

using A = CMethodArgument;

CTreeEditor::CTreeEditor(CTreeItemRoot* root, CAddressSpace* space) : m_root(root), m_space(space) {}

CItem* CTreeEditor::Find(const std::string& path) const
{
    if (path == CAddressSpace::kChannelsId)
        return m_root;
    CItem* item = m_root;
    std::size_t start = 0;
    while (item) {
        const std::size_t dot = path.find('.', start);
        const std::string name =
            path.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
        item = name.empty() ? nullptr : item->FindChildByName(name.c_str());
        if (dot == std::string::npos)
            break;
        start = dot + 1;
    }
    return item;
}

void CTreeEditor::Apply(const CMethodArgument& a, CItem* item)
{
    switch (item->GetType()) {
    case itChannel: {
        auto* ch = static_cast<CChannelInfo*>(item);
        if (a.Has(A::ChType) && (a.Value(A::ChType) != ch->TypeChannel || !ch->Port)) {
            ch->TypeChannel = int32_t(a.Value(A::ChType));
            ch->Init();
        }
        ch->TypeProtocol = int32_t(a.ValueOr(A::ChProtocol, ch->TypeProtocol));
        ch->Timeout = uint64_t(a.ValueOr(A::ChTimeout, std::int64_t(ch->Timeout)));
        ch->QuanRetry = uint8_t(a.ValueOr(A::ChRetries, ch->QuanRetry));
        ch->TimeBusy = uint64_t(a.ValueOr(A::ChBusy, std::int64_t(ch->TimeBusy)));
        if (auto* com = dynamic_cast<CPortIO_COMInfo*>(ch->Port)) {
            com->ComNo = uint32_t(a.ValueOr(A::ChComNo, com->ComNo));
            com->BaudRate = uint64_t(a.ValueOr(A::ChBaudRate, std::int64_t(com->BaudRate)));
            com->DataBits = uint8_t(a.ValueOr(A::ChDataBits, com->DataBits));
            com->StopBits = uint8_t(a.ValueOr(A::ChStopBits, com->StopBits));
            com->Parity = uint8_t(a.ValueOr(A::ChParity, com->Parity));
            com->bEcho = a.ValueOr(A::ChEcho, com->bEcho) != 0;
            com->RtsControl = uint8_t(a.ValueOr(A::ChRts, com->RtsControl));
            com->DtrControl = uint8_t(a.ValueOr(A::ChDtr, com->DtrControl));
        } else if (auto* tcp = dynamic_cast<CPortIO_TCPInfo*>(ch->Port)) {
            tcp->IP = uint32_t(a.ValueOr(A::ChIp, tcp->IP));
            tcp->IP_Port = uint16_t(a.ValueOr(A::ChIpPort, tcp->IP_Port));
            tcp->TimeoutConnect = uint64_t(a.ValueOr(A::ChTimeoutConnect, std::int64_t(tcp->TimeoutConnect)));
        }
        break;
    }
    case itDevice: {
        auto* dev = static_cast<CDeviceInfo*>(item);
        dev->Addr = uint8_t(a.ValueOr(A::DevAddr, dev->Addr));
        dev->bExchange = a.ValueOr(A::DevExchange, dev->bExchange) != 0;
        dev->bEmulation = a.ValueOr(A::DevEmulation, dev->bEmulation) != 0;
        dev->MaxRegsInReqv = uint8_t(a.ValueOr(A::DevMaxRegs, dev->MaxRegsInReqv));
        dev->MaxDiscretsInReqv = uint16_t(a.ValueOr(A::DevMaxDiscrets, dev->MaxDiscretsInReqv));
        dev->MaxFragmentation = uint8_t(a.ValueOr(A::DevMaxFragmentation, dev->MaxFragmentation));
        break;
    }
    case itGroup: {
        auto* gr = static_cast<CGroupInfo*>(item);
        gr->UpdateRate = uint64_t(a.ValueOr(A::GrRate, std::int64_t(gr->UpdateRate)));
        gr->MU_UpdateRate = int32_t(a.ValueOr(A::GrUnit, gr->MU_UpdateRate));
        break;
    }
    case itTag: {
        auto* tag = static_cast<CDATagInfo*>(item);
        tag->RegType = en_ModbusRegType(a.ValueOr(A::TagRegType, tag->RegType));
        tag->Addr = uint16_t(a.ValueOr(A::TagAddr, tag->Addr));
        tag->ValType = en_ModbusValType(a.ValueOr(A::TagValType, tag->ValType));
        tag->ByteOrder = uint8_t(a.ValueOr(A::TagByteOrder, tag->ByteOrder));
        tag->bRead = a.ValueOr(A::TagRead, tag->bRead) != 0;
        tag->bWrite = a.ValueOr(A::TagWrite, tag->bWrite) != 0;
        tag->bWriteGroup = a.ValueOr(A::TagWriteGroup, tag->bWriteGroup) != 0;
        tag->RegsInSegment = uint16_t(a.ValueOr(A::TagRegsInSegment, tag->RegsInSegment));
        tag->SegmentPos = uint16_t(a.ValueOr(A::TagSegmentPos, tag->SegmentPos));
        // The parameters of a transformation or emulation never travel: a new
        // kind starts from its defaults, the same kind keeps what it had.
        if (a.Has(A::TagTransform) && a.Value(A::TagTransform) != tag->TransformType) {
            tag->TransformType = en_TransformType(a.Value(A::TagTransform));
            delete tag->Transform;
            tag->Transform = CDATagInfo::New_Transform(tag->TransformType, nullptr);
        }
        if (a.Has(A::TagEmul) && a.Value(A::TagEmul) != tag->EmulType) {
            tag->EmulType = en_EmulType(a.Value(A::TagEmul));
            delete tag->Emul;
            tag->Emul = CDATagInfo::New_Emul(tag->EmulType, nullptr);
        }
        break;
    }
    default:
        break;
    }
}

UA_StatusCode CTreeEditor::Add(const CMethodArgument& a)
{
    CItem* parent = Find(a.path);
    std::string name = a.name;
    if (!parent && a.kind == A::KindTag && name.empty() && a.path.rfind('.') != std::string::npos) {
        // A pasted tag arrives as the path it will have and nothing more.
        const std::size_t dot = a.path.rfind('.');
        parent = Find(a.path.substr(0, dot));
        name = a.path.substr(dot + 1);
        if (name.empty())
            return UA_STATUSCODE_BADINVALIDARGUMENT;
    }
    const bool pasted = a.kind == A::KindTag && !a.Has(A::TagRegType);
    if (!parent)
        return UA_STATUSCODE_BADNODEIDUNKNOWN;
    if (pasted && parent->GetType() == itTag)
        return UA_STATUSCODE_BADNODEIDEXISTS;
    if (int(parent->GetType()) != a.kind - 1)
        return UA_STATUSCODE_BADINVALIDARGUMENT;
    if (!m_space->Has(parent))
        return UA_STATUSCODE_BADPARENTNODEIDINVALID;
    std::unique_ptr<CItem> item(CItem::NewItem(enItemType(a.kind), nullptr));
    if (!item)
        return UA_STATUSCODE_BADINVALIDARGUMENT;
    if (name.empty()) {
        // A tag pasted into a group gets a free default name.
        name = item->GetName();
        if (parent->FindChildByName(name.c_str()))
            CItem::IncrementName(parent, name);
    } else if (parent->FindChildByName(name.c_str())) {
        return UA_STATUSCODE_BADNODEIDEXISTS;
    }
    // A channel named like the object of the methods would take its id.
    const std::string fullName = FullNameUnder(parent, name);
    if (!m_space->Free(item.get(), fullName))
        return UA_STATUSCODE_BADNODEIDEXISTS;
    item->SetName(name);
    if (a.kind == A::KindChannel)
        static_cast<CChannelInfo*>(item.get())->Init();
    // Its settings never travel with a paste: it starts at the first register.
    if (pasted)
        static_cast<CDATagInfo*>(item.get())->Addr = 1;
    Apply(a, item.get());
    if (a.kind == A::KindTag && !Readable(static_cast<CDATagInfo*>(item.get()), fullName))
        return UA_STATUSCODE_BADOUTOFRANGE;
    CItem* raw = item.release();
    parent->AppendChild(raw);
    const UA_StatusCode rc = m_space->Build(raw);
    if (rc != UA_STATUSCODE_GOOD)
        parent->DeleteChild(raw);
    else if (CServerLog::Enabled(CServerLog::Debug))
        CServerLog::Write(CServerLog::Debug, "Добавлен " + fullName + ": " + CCsvLoader::RowOf(raw));
    return rc;
}

bool CTreeEditor::Readable(const CDATagInfo* tag, const std::string& fullName)
{
    const std::string why = CModbusBridge::OutOfBounds(tag);
    if (!why.empty())
        CServerLog::Write(CServerLog::Warning, "Тег " + fullName + " не принят: " + why);
    return why.empty();
}

std::string CTreeEditor::FullNameUnder(CItem* parent, const std::string& name)
{
    std::string full;
    if (parent->GetType() != itRoot) {
        parent->GetFullName(full);
        full += ".";
    }
    return full + name;
}

UA_StatusCode CTreeEditor::Edit(const CMethodArgument& a)
{
    CItem* item = Find(a.path);
    if (!item)
        return UA_STATUSCODE_BADNODEIDUNKNOWN;
    if (int(item->GetType()) != a.kind)
        return UA_STATUSCODE_BADINVALIDARGUMENT;
    CItem* parent = item->GetParent();
    if (!m_space->Has(parent))
        return UA_STATUSCODE_BADPARENTNODEIDINVALID;
    const std::string oldName = item->GetName();
    const bool rename = !a.name.empty() && a.name != oldName;
    if (rename &&
        (parent->FindChildByName(a.name.c_str()) || !m_space->Free(item, FullNameUnder(parent, a.name))))
        return UA_STATUSCODE_BADNODEIDEXISTS;
    if (item->GetType() == itTag) {
        // Tried on a copy first: a refused edit leaves the tag as it was.
        CDATagInfo probe(static_cast<CDATagInfo*>(item));
        Apply(a, &probe);
        if (!Readable(&probe, a.path))
            return UA_STATUSCODE_BADOUTOFRANGE;
    }

    // Node ids are paths, so an edit rebuilds the item's nodes from the tree.
    m_space->Remove(item);
    Apply(a, item);
    if (rename)
        Rename(item, a.name);
    const UA_StatusCode rc = m_space->Build(item);
    if (rc != UA_STATUSCODE_GOOD) {
        // The new ids were free, so this takes a failure of the server itself;
        // the item keeps its place and its nodes all the same.
        if (rename)
            Rename(item, oldName);
        m_space->Build(item);
    } else if (CServerLog::Enabled(CServerLog::Debug)) {
        std::string fullName;
        item->GetFullName(fullName);
        CServerLog::Write(CServerLog::Debug, "Изменён " + fullName + ": " + CCsvLoader::RowOf(item));
    }
    return rc;
}

void CTreeEditor::Rename(CItem* item, const std::string& name)
{
    CItem* parent = item->GetParent();
    parent->PopChild(item);
    item->SetName(name);
    parent->AppendChild(item);
}

UA_StatusCode CTreeEditor::Delete(const CMethodArgument& a)
{
    CItem* item = Find(a.path);
    if (!item)
        return UA_STATUSCODE_BADNODEIDUNKNOWN;
    if (item == m_root)
        return UA_STATUSCODE_BADINVALIDARGUMENT;
    if (!m_space->Has(item->GetParent()))
        return UA_STATUSCODE_BADPARENTNODEIDINVALID;
    m_space->Remove(item);
    item->Delete();
    return UA_STATUSCODE_GOOD;
}
