#include "model/cchannelinfo.h"
#include "model/dataconversion.h"
#include "model/dataginfo.h"
#include "model/deviceinfo.h"
#include "model/groupinfo.h"
#include "model/portio_cominfo.h"
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

template <typename F> int ErrorCode(F call)
{
    try {
        call();
    } catch (const CItem::CivItemExeption& e) {
        return e.Code();
    }
    return 0;
}

} // namespace

class TestItemTree : public QObject
{
    Q_OBJECT

private slots:
    void appendFindAndRename();
    void orderCountsWalkAndNames();
    void incrementNames();
    void newItemAndDuplicates();
    void moveAndDelete();
    void copies();
};

void TestItemTree::appendFindAndRename()
{
    CTreeItemRoot root;
    auto* first = AddNode<CChannelInfo>(&root, "A");
    auto* second = new CChannelInfo();
    second->SetName("A");
    // A taken key: the call still succeeds and sets the parent, but nothing is inserted.
    QVERIFY(root.AppendChild(second) && second->GetParent() == &root);
    QVERIFY(root.size() == 1 && root.FindChildByName("A") == first);
    // The wide look-up never finds anything.
    QVERIFY(!root.FindChildByName(L"A"));
    delete second;

    // Renaming keeps the old key; re-keying takes a pop and an insert.
    first->SetName("New");
    QVERIFY(root.FindChildByName("A") == first && !root.FindChildByName("New"));
    QVERIFY(root.PopChild(first));
    std::list<CItem*> items{first};
    QVERIFY(root.InsertChildren(items, root.end()) && items.empty());
    QVERIFY(root.FindChildByName("New") == first && !root.FindChildByName("A"));

    // Iterators: a stranger and the root itself throw, with their codes.
    CChannelInfo stranger;
    QCOMPARE(ErrorCode([&] { root.GetIterator(&stranger); }), 1);
    QCOMPARE(ErrorCode([&] { root.GetIterator(); }), 2);
}

void TestItemTree::orderCountsWalkAndNames()
{
    CGroupInfo order;
    for (const char* name : {"Tag_2", "Tag_10", "b", "Я", "B"})
        AddNode<CDATagInfo>(&order, name);
    std::vector<std::string> names;
    for (auto& entry : order)
        names.push_back(entry.first);
    // Byte order: upper case before lower, Cyrillic (0xD0..) after ASCII, Tag_10 before Tag_2.
    QVERIFY((names == std::vector<std::string>{"B", "Tag_10", "Tag_2", "b", "Я"}));

    CTreeItemRoot root;
    auto* channel = AddNode<CChannelInfo>(&root, "C");
    AddNode<CChannelInfo>(&root, "C2");
    auto* d2 = AddNode<CDeviceInfo>(channel, "D2");
    auto* d1 = AddNode<CDeviceInfo>(channel, "D1");
    for (const char* g : {"G1", "G2"}) {
        auto* group = AddNode<CGroupInfo>(d1, g);
        for (const char* t : {"T1", "T2", "T3"})
            AddNode<CDATagInfo>(group, t);
    }
    AddNode<CGroupInfo>(d2, "G3");
    QVERIFY(d1->GetTotalItems() == 8 && root.GetTotalItems() == 13);
    QVERIFY(root.GetItemsCount(itTag) == 6 && d1->GetItemsCount(itDevice) == 0);

    // Post-order, children by key.
    g_visited.clear();
    channel->AllChildren(RecordVisit);
    QCOMPARE(g_visited.size(), size_t(11));
    QVERIFY((std::vector<std::string>(g_visited.end() - 4, g_visited.end()) ==
             std::vector<std::string>{"G2", "D1", "G3", "D2"}));

    // Full names: up to a node, behind what the string already holds; a loose node starts with a dot.
    std::string name = "prefix:";
    d1->FindChildByName("G1")->FindChildByName("T1")->GetFullName(name, d1);
    QCOMPARE(name, std::string("prefix:G1.T1"));
    name.clear();
    CDeviceInfo().GetFullName(name);
    QCOMPARE(name, std::string(".Device_0"));
}

void TestItemTree::incrementNames()
{
    const std::pair<const char*, const char*> cases[] = {
        {"Tag", "Tag1"}, {"", "1"}, {"Tag_007", "Tag_8"}, {"T2147483647", "T-2147483648"}};
    for (const auto& [from, to] : cases)
        QCOMPARE(DataConversion::IncrementName(from), std::string(to));

    CGroupInfo group;
    AddNode<CDATagInfo>(&group, "Tag_1");
    AddNode<CDATagInfo>(&group, "Tag_2");
    std::string free = "Free";
    // Even a free name moves on once.
    QVERIFY(CItem::IncrementName(nullptr, free) && free == "Free1");

    // The member form needs the node's own parent set first.
    CDATagInfo tag;
    tag.SetName("Tag_1");
    QVERIFY(!tag.IncrementName(&group) && tag.GetName() == "Tag_1");
    tag.SetParent(&group);
    QVERIFY(tag.IncrementName(&group) && tag.GetName() == "Tag_3");
}

void TestItemTree::newItemAndDuplicates()
{
    std::unique_ptr<CItem> channel(CItem::NewItem(itChannel, nullptr));
    QVERIFY(channel && channel->GetName() == "Channel_0");
    QVERIFY(!CItem::NewItem(itRoot, nullptr) && !CItem::NewItem(itDevice, channel.get()));

    CChannelInfo parent;
    auto* d1 = AddNode<CDeviceInfo>(&parent, "D1");
    auto* d2 = AddNode<CDeviceInfo>(&parent, "D2");
    d2->Addr = 7;
    CDeviceInfo candidate;
    candidate.SetName("D1");
    candidate.Addr = 7;
    // Leaving out the one that clashes; a node in the tree is not its own duplicate.
    QVERIFY(parent.HasChildDublicate(&candidate, nullptr) && !parent.HasChildDublicate(&candidate, d2));
    d1->Addr = 9;
    QVERIFY(!parent.HasChildDublicate(d1, nullptr) && !parent.HasChildDublicate(nullptr, nullptr));
    // Nodes of another kind never clash.
    CGroupInfo group;
    QVERIFY(!d1->IsDublicate(&group));
}

void TestItemTree::moveAndDelete()
{
    CTreeItemRoot root;
    auto* c1 = AddNode<CChannelInfo>(&root, "C1");
    auto* c2 = AddNode<CChannelInfo>(&root, "C2");
    auto* d1 = AddNode<CDeviceInfo>(c1, "D1");
    auto* d2 = AddNode<CDeviceInfo>(c1, "D2");
    AddNode<CDeviceInfo>(c2, "D2");

    // Moving: D1 goes over, D2 clashes with the name there and is dropped from both maps.
    QVERIFY(!c2->MoveItems({d1, d2}, c2->end()));
    QVERIFY(c1->size() == 0 && c2->size() == 2);
    QVERIFY(c2->FindChildByName("D1") == d1 && d1->GetParent() == c2);
    QVERIFY(c2->FindChildByName("D2") != d2);
    delete d2;
    // A position that isn't a child here refuses the move.
    AddNode<CDeviceInfo>(c1, "X");
    QVERIFY(!c2->MoveItems({d1}, c1->begin()) && d1->GetParent() == c2);

    QVERIFY(!c1->DeleteChild(d1) && d1->Delete() && c2->size() == 1);
    QVERIFY(!CDeviceInfo().Delete());
    QVERIFY(root.DeleteAllChildren() && root.empty());
}

void TestItemTree::copies()
{
    CTreeItemRoot root;
    auto* serial = AddNode<CChannelInfo>(&root, "S");
    serial->Init();
    auto* serialPort = static_cast<CPortIO_COMInfo*>(serial->Port);
    serialPort->ComNo = 5;
    serialPort->BaudRate = 19200;
    auto* device = AddNode<CDeviceInfo>(serial, "D");
    device->Addr = 17;
    AddNode<CDATagInfo>(AddNode<CGroupInfo>(device, "G"), "T");

    // A channel copy is deep, parentless, and takes the next COM port.
    bool ok = true;
    std::unique_ptr<CItem> copy(serial->Copy(ok));
    QVERIFY(ok && copy && !copy->GetParent());
    auto* port = dynamic_cast<CPortIO_COMInfo*>(static_cast<CChannelInfo*>(copy.get())->Port);
    QVERIFY(port && port != serialPort && port->BaudRate == 19200);
    QVERIFY(port->ComNo == 6 && serialPort->ComNo == 5);
    QCOMPARE(copy->GetTotalItems(), 3u);
    auto* deviceCopy = static_cast<CDeviceInfo*>(copy->FindChildByName("D"));
    QVERIFY(deviceCopy && deviceCopy != device && deviceCopy->Addr == 17);
    QCOMPARE(deviceCopy->GetParent(), copy.get());

    // A tag copy keeps its address (the next settings are the paste command's business) and owns its records.
    CDATagInfo tag;
    tag.TransformType = TT_LineScale;
    tag.Transform = CDATagInfo::New_Transform(TT_LineScale, nullptr);
    tag.Addr = 40;
    std::unique_ptr<CItem> tagCopy(tag.Copy(ok));
    auto* copied = static_cast<CDATagInfo*>(tagCopy.get());
    QVERIFY(ok && copied->Addr == 40 && tag.IsDublicate(copied));
    QVERIFY(copied->Transform && copied->Transform != tag.Transform);
    QVERIFY(copied->Emul && copied->Emul != tag.Emul);
}

QTEST_GUILESS_MAIN(TestItemTree)
#include "tst_itemtree.moc"
