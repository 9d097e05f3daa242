#include "model/cchannelinfo.h"
#include "model/dataconversion.h"
#include "model/dataginfo.h"
#include "model/deviceinfo.h"
#include "model/groupinfo.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"
#include "model/treeitemroot.h"

#include <QtTest>

#include <vector>

namespace {

template <typename T> T* AddNode(CItem* parent, const std::string& name)
{
    auto* node = new T();
    node->SetName(name);
    parent->AppendChild(node);
    return node;
}

std::vector<std::string> g_visited;
void RecordVisit(CItem* item)
{
    g_visited.push_back(item->GetName());
}

} // namespace

class TestItemTree : public QObject
{
    Q_OBJECT

private slots:
    void appendAndFind();
    void renameKeepsKey();
    void order();
    void counts();
    void walkIsPostOrder();
    void fullNames();
    void incrementNames();
    void newItemAndDuplicates();
    void popInsertDelete();
    void iterators();
    void copyChannels();
    void copyTagWithRecords();
};

void TestItemTree::appendAndFind()
{
    CTreeItemRoot root;
    QVERIFY(root.empty());
    QVERIFY(!root.FindChildByName("Channel_0"));
    QVERIFY(!root.FindChildByName(static_cast<const char*>(nullptr)));
    QVERIFY(!root.FindChildByName(""));
    QVERIFY(!root.HasChildDublicate(&root, nullptr));
    QVERIFY(!root.AppendChild(nullptr));

    auto* first = AddNode<CChannelInfo>(&root, "A");
    auto* second = new CChannelInfo();
    second->SetName("A");
    // A taken key: the call still succeeds and sets the parent, but nothing is inserted.
    QVERIFY(root.AppendChild(second));
    QCOMPARE(root.size(), 1u);
    QCOMPARE(second->GetParent(), &root);
    QCOMPARE(root.FindChildByName("A"), first);
    // The wide look-up never finds anything.
    QVERIFY(!root.FindChildByName(L"A"));
    delete second;
}

void TestItemTree::renameKeepsKey()
{
    CTreeItemRoot root;
    auto* channel = AddNode<CChannelInfo>(&root, "Old");
    channel->SetName("New");
    QCOMPARE(root.FindChildByName("Old"), channel);
    QVERIFY(!root.FindChildByName("New"));

    // Re-keying takes a pop and an insert.
    QVERIFY(root.PopChild(channel));
    std::list<CItem*> items{channel};
    QVERIFY(root.InsertChildren(items, root.end()));
    QVERIFY(items.empty());
    QCOMPARE(root.FindChildByName("New"), channel);
    QVERIFY(!root.FindChildByName("Old"));
}

void TestItemTree::order()
{
    CGroupInfo group;
    for (const char* name : {"Tag_2", "Tag_10", "b", "Tag_1", "Я", "B"})
        AddNode<CDATagInfo>(&group, name);
    std::vector<std::string> names;
    for (auto& entry : group)
        names.push_back(entry.first);
    // Byte order: upper case before lower, Cyrillic (0xD0..) after ASCII, Tag_10 before Tag_2.
    const std::vector<std::string> expected{"B", "Tag_1", "Tag_10", "Tag_2", "b", "Я"};
    QVERIFY(names == expected);
    QCOMPARE(group.rbegin()->first, std::string("Я"));
}

void TestItemTree::counts()
{
    CTreeItemRoot root;
    auto* channel = AddNode<CChannelInfo>(&root, "C");
    AddNode<CChannelInfo>(&root, "C2");
    auto* device = AddNode<CDeviceInfo>(channel, "D");
    for (const char* g : {"G1", "G2"}) {
        auto* group = AddNode<CGroupInfo>(device, g);
        for (const char* t : {"T1", "T2", "T3"})
            AddNode<CDATagInfo>(group, t);
    }
    QCOMPARE(device->GetTotalItems(), 8u);
    QCOMPARE(root.GetTotalItems(), 11u);
    QCOMPARE(root.GetItemsCount(itChannel), 2u);
    QCOMPARE(root.GetItemsCount(itDevice), 1u);
    QCOMPARE(root.GetItemsCount(itGroup), 2u);
    QCOMPARE(root.GetItemsCount(itTag), 6u);
    QCOMPARE(device->GetItemsCount(itTag), 6u);
    QCOMPARE(device->GetItemsCount(itDevice), 0u);
    QCOMPARE(device->GetItemsCount(itChannel), 0u);
}

void TestItemTree::walkIsPostOrder()
{
    CTreeItemRoot root;
    auto* channel = AddNode<CChannelInfo>(&root, "C");
    auto* d2 = AddNode<CDeviceInfo>(channel, "D2");
    auto* d1 = AddNode<CDeviceInfo>(channel, "D1");
    AddNode<CGroupInfo>(d1, "G1");
    AddNode<CGroupInfo>(d2, "G2");
    g_visited.clear();
    root.AllChildren(RecordVisit);
    const std::vector<std::string> expected{"G1", "D1", "G2", "D2", "C"};
    QVERIFY(g_visited == expected);
    g_visited.clear();
    d1->AllChildren(RecordVisit);
    QVERIFY(g_visited == std::vector<std::string>{"G1"});
}

void TestItemTree::fullNames()
{
    CTreeItemRoot root;
    auto* channel = AddNode<CChannelInfo>(&root, "ch");
    auto* device = AddNode<CDeviceInfo>(channel, "dev");
    auto* group = AddNode<CGroupInfo>(device, "grp");
    auto* tag = AddNode<CDATagInfo>(group, "tag");

    std::string name;
    QVERIFY(tag->GetFullName(name));
    QCOMPARE(name, std::string("ch.dev.grp.tag"));
    name = "prefix:";
    channel->GetFullName(name);
    QCOMPARE(name, std::string("prefix:ch"));

    name.clear();
    group->GetFullName(name, &root);
    QCOMPARE(name, std::string("ch.dev.grp"));
    name.clear();
    group->GetFullName(name, device);
    QCOMPARE(name, std::string("grp"));
    name.clear();
    tag->GetFullName(name, channel);
    QCOMPARE(name, std::string("dev.grp.tag"));

    CDeviceInfo loose;
    name.clear();
    loose.GetFullName(name);
    QCOMPARE(name, std::string(".Device_0"));
}

void TestItemTree::incrementNames()
{
    using DataConversion::IncrementName;
    QCOMPARE(IncrementName("Tag_0"), std::string("Tag_1"));
    QCOMPARE(IncrementName("Tag_9"), std::string("Tag_10"));
    QCOMPARE(IncrementName("Tag"), std::string("Tag1"));
    QCOMPARE(IncrementName("41"), std::string("42"));
    QCOMPARE(IncrementName(""), std::string("1"));
    QCOMPARE(IncrementName("Tag_007"), std::string("Tag_8"));
    QCOMPARE(IncrementName("x_Copy1"), std::string("x_Copy2"));
    QCOMPARE(IncrementName("T2147483647"), std::string("T-2147483648"));
    QCOMPARE(IncrementName("Канал9"), std::string("Канал10"));

    CGroupInfo group;
    AddNode<CDATagInfo>(&group, "Tag_1");
    AddNode<CDATagInfo>(&group, "Tag_2");
    std::string name = "Tag_0";
    QVERIFY(CItem::IncrementName(&group, name));
    QCOMPARE(name, std::string("Tag_3"));
    // Even a free name moves on once.
    name = "Free";
    CItem::IncrementName(nullptr, name);
    QCOMPARE(name, std::string("Free1"));

    // The member form needs the node's own parent set first.
    CDATagInfo tag;
    tag.SetName("Tag_1");
    QVERIFY(!tag.IncrementName(&group));
    QCOMPARE(tag.GetName(), std::string("Tag_1"));
    tag.SetParent(&group);
    QVERIFY(tag.IncrementName(&group));
    QCOMPARE(tag.GetName(), std::string("Tag_3"));
}

void TestItemTree::newItemAndDuplicates()
{
    std::unique_ptr<CItem> channel(CItem::NewItem(itChannel, nullptr));
    QVERIFY(channel);
    QCOMPARE(channel->GetType(), itChannel);
    QCOMPARE(channel->GetName(), std::string("Channel_0"));
    QVERIFY(!CItem::NewItem(itRoot, nullptr));
    QVERIFY(!CItem::NewItem(static_cast<enItemType>(5), nullptr));
    QVERIFY(!CItem::NewItem(itDevice, channel.get()));
    for (auto [kind, name] : {std::pair{itDevice, "Device_0"}, {itGroup, "Group_0"}, {itTag, "Tag_0"}}) {
        std::unique_ptr<CItem> item(CItem::NewItem(kind, nullptr));
        QCOMPARE(item->GetType(), kind);
        QCOMPARE(item->GetName(), std::string(name));
    }

    CChannelInfo parent;
    auto* d1 = AddNode<CDeviceInfo>(&parent, "D1");
    auto* d2 = AddNode<CDeviceInfo>(&parent, "D2");
    d2->Addr = 7;
    CDeviceInfo candidate;
    candidate.SetName("D1");
    candidate.Addr = 7;
    QVERIFY(parent.HasChildDublicate(&candidate, nullptr));
    // Leaving out the one that clashes.
    QVERIFY(!parent.HasChildDublicate(&candidate, d2));
    // A node in the tree is not its own duplicate.
    d1->Addr = 9;
    QVERIFY(!parent.HasChildDublicate(d1, nullptr));
    QVERIFY(!parent.HasChildDublicate(nullptr, nullptr));
    // Nodes of another kind never clash.
    CGroupInfo group;
    QVERIFY(!d1->IsDublicate(&group));
    QVERIFY(!d1->IsDublicate(nullptr));

    CTreeItemRoot r1, r2;
    QVERIFY(r1.IsDublicate(&r2));
}

void TestItemTree::popInsertDelete()
{
    CTreeItemRoot root;
    auto* c1 = AddNode<CChannelInfo>(&root, "C1");
    auto* c2 = AddNode<CChannelInfo>(&root, "C2");
    auto* d1 = AddNode<CDeviceInfo>(c1, "D1");
    auto* d2 = AddNode<CDeviceInfo>(c1, "D2");
    AddNode<CDeviceInfo>(c2, "D2");

    std::list<CItem*> none;
    QCOMPARE(c1->PopChildren(none), 0);

    // Moving: D1 goes over, D2 clashes with the name there and is dropped from both maps.
    QVERIFY(!c2->MoveItems({d1, d2}, c2->end()));
    QCOMPARE(c1->size(), 0u);
    QCOMPARE(c2->size(), 2u);
    QCOMPARE(c2->FindChildByName("D1"), d1);
    QCOMPARE(d1->GetParent(), c2);
    QVERIFY(c2->FindChildByName("D2") != d2);
    delete d2;
    // A position that isn't a child here refuses the move.
    AddNode<CDeviceInfo>(c1, "X");
    QVERIFY(!c2->MoveItems({d1}, c1->begin()));
    QCOMPARE(d1->GetParent(), c2);

    CChannelInfo empty;
    QVERIFY(!empty.DeleteChild(d1));
    QVERIFY(!c1->DeleteChild(d1));
    QVERIFY(d1->Delete());
    QCOMPARE(c2->size(), 1u);
    CDeviceInfo detached;
    QVERIFY(!detached.Delete());
    QVERIFY(root.DeleteAllChildren());
    QVERIFY(root.empty());
}

void TestItemTree::iterators()
{
    CTreeItemRoot root;
    auto* channel = AddNode<CChannelInfo>(&root, "C");
    QCOMPARE(channel->GetIterator()->second, channel);
    QCOMPARE(root.GetIterator(channel)->first, std::string("C"));
    CChannelInfo stranger;
    try {
        root.GetIterator(&stranger);
        QFAIL("no exception for a stranger");
    } catch (const CItem::CivItemExeption& e) {
        QCOMPARE(e.Code(), 1);
    }
    try {
        root.GetIterator();
        QFAIL("no exception for the root");
    } catch (const CItem::CivItemExeption& e) {
        QCOMPARE(e.Code(), 2);
    }
}

void TestItemTree::copyChannels()
{
    CTreeItemRoot root;
    auto* serial = AddNode<CChannelInfo>(&root, "S");
    serial->Init();
    static_cast<CPortIO_COMInfo*>(serial->Port)->ComNo = 5;
    static_cast<CPortIO_COMInfo*>(serial->Port)->BaudRate = 19200;
    serial->Timeout = 900;
    auto* device = AddNode<CDeviceInfo>(serial, "D");
    device->Addr = 17;
    AddNode<CDATagInfo>(AddNode<CGroupInfo>(device, "G"), "T");

    bool ok = true;
    std::unique_ptr<CItem> copy(serial->Copy(ok));
    QVERIFY(ok);
    QVERIFY(copy);
    auto* serialCopy = static_cast<CChannelInfo*>(copy.get());
    QCOMPARE(serialCopy->GetName(), std::string("S"));
    QVERIFY(!serialCopy->GetParent());
    QCOMPARE(serialCopy->Timeout, uint64_t(900));
    QVERIFY(serialCopy->Port != serial->Port);
    auto* port = dynamic_cast<CPortIO_COMInfo*>(serialCopy->Port);
    QVERIFY(port);
    QCOMPARE(port->ComNo, 6u);
    QCOMPARE(port->BaudRate, uint64_t(19200));
    QCOMPARE(port->PortType, 1);
    QCOMPARE(static_cast<CPortIO_COMInfo*>(serial->Port)->ComNo, 5u);
    QCOMPARE(serialCopy->GetTotalItems(), 3u);
    auto* deviceCopy = static_cast<CDeviceInfo*>(serialCopy->FindChildByName("D"));
    QVERIFY(deviceCopy && deviceCopy != device);
    QCOMPARE(deviceCopy->Addr, uint8_t(17));
    QCOMPARE(deviceCopy->GetParent(), copy.get());
    QVERIFY(!serial->IsDublicate(serialCopy));

    auto* tcp = AddNode<CChannelInfo>(&root, "T");
    tcp->TypeChannel = 1;
    tcp->Init();
    auto* tcpPort = static_cast<CPortIO_TCPInfo*>(tcp->Port);
    QVERIFY(tcpPort->Set_IP(L"192.168.1.20"));
    tcpPort->IP_Port = 1502;
    std::unique_ptr<CItem> tcpCopy(tcp->Copy(ok));
    auto* copiedPort = dynamic_cast<CPortIO_TCPInfo*>(static_cast<CChannelInfo*>(tcpCopy.get())->Port);
    QVERIFY(copiedPort);
    QCOMPARE(copiedPort->GetIpString(), std::string("192.168.1.20"));
    QCOMPARE(copiedPort->IP_Port, uint16_t(1502));
    QVERIFY(tcp->IsDublicate(tcpCopy.get()));
}

void TestItemTree::copyTagWithRecords()
{
    CDATagInfo tag;
    QVERIFY(tag.Emul);
    QVERIFY(!tag.Transform);
    tag.TransformType = TT_LineScale;
    tag.Transform = CDATagInfo::New_Transform(TT_LineScale, nullptr);
    tag.EmulType = ET_Sin;
    delete tag.Emul;
    tag.Emul = CDATagInfo::New_Emul(ET_Sin, nullptr);
    tag.Addr = 40;

    bool ok = true;
    std::unique_ptr<CItem> copy(tag.Copy(ok));
    auto* tagCopy = static_cast<CDATagInfo*>(copy.get());
    QVERIFY(ok);
    // A tag copy keeps its address: the next settings are the paste command's business.
    QCOMPARE(tagCopy->Addr, uint16_t(40));
    QVERIFY(tagCopy->Transform && tagCopy->Transform != tag.Transform);
    QVERIFY(tagCopy->Emul && tagCopy->Emul != tag.Emul);
    QVERIFY(tag.IsDublicate(tagCopy));
}

QTEST_GUILESS_MAIN(TestItemTree)
#include "tst_itemtree.moc"
