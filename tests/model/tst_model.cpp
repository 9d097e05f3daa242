#include "model/channeldata.h"
#include "model/dataconversion.h"
#include "model/datagdata.h"
#include "model/devicedata.h"
#include "model/emuldata_const.h"
#include "model/emuldata_sin.h"
#include "model/groupdata.h"
#include "model/modbus_types.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"
#include "model/rangevalidate.h"
#include "model/transform_factordata.h"
#include "model/transform_linescaledata.h"
#include "model/treeitemroot.h"

#include <QtTest>

#include <climits>
#include <memory>
#include <vector>

using RangeValidate::Validate_Range_t;

namespace {

template <typename T> T* AddNode(CItem* parent, const std::string& name)
{
    auto* node = new T();
    node->SetName(name);
    parent->AppendChild(node);
    return node;
}

std::vector<std::string> g_visited;

QString Shown(const StrProps& props, int from = 0)
{
    QStringList out;
    for (const auto& row : props)
        out << QString::fromStdString(row.second);
    return out.mid(from).join('|');
}

CDATagInfo* MakeTag(CItem* group, const std::string& name, const std::wstring& regType,
                    const std::wstring& valType = L"Вещ32")
{
    auto* tag = new CDATagInfo();
    CDATagData data(tag);
    data.Set_Name(name);
    data.Set_RegType(regType);
    data.Set_ValType(valType);
    if (group)
        group->AppendChild(tag);
    return tag;
}

} // namespace

// The configuration tree: its structure, the vocabulary and the property texts of the four levels.
class TestModel : public QObject
{
    Q_OBJECT

private slots:
    void vocabularyAndConversions()
    {
        // Comparison is exact: case, blanks and the misspelt "Togge" all count.
        for (const wchar_t* text : {L"да", L"Да "})
            QCOMPARE(FindTableText(g_wszYesNo, text), -1);
        QCOMPARE(FindTableText(CPortIO_Data_COM::m_wszRtsControl, L"Toggle"), -1);

        // The byte order map knows only the multi-register types; the tag's own count gives 1 for
        // part of a register and 0 past the table. Discrete registers hold booleans whatever the type.
        QVERIFY(ModbusTypes::GetRegsCount(MVT_Real64) == 4 &&
                ModbusTypes::GetRegsCount((unsigned char)6) == 0);
        QVERIFY(CDATagInfo::GetRegsCount(MVT_Bit15) == 1 &&
                CDATagInfo::GetRegsCount(en_ModbusValType(25)) == 0);
        QCOMPARE(ModbusTypes::GetVT(en_ModbusValType(25)), VT_R4);
        QCOMPARE(ModbusTypes::GetValueVT(MRT_Coil, MVT_Real64), VT_BOOL);

        // Empty or non-numeric reads as 0, trailing rubbish is ignored, overflow gives the type's limit.
        QVERIFY(Validate_Range_t<int>(L"", 0, 255) && !Validate_Range_t<int>(L"abc", 1, 125));
        QVERIFY(Validate_Range_t<int>(L"  12abc", 0, 20) && !Validate_Range_t<int>(L"21x", 0, 20));
        QVERIFY(!Validate_Range_t<int>(L"99999999999", 0, 1000) &&
                Validate_Range_t<int>(L"99999999999", 0, INT_MAX));

        // Four UTF-8 bytes for a code point outside the basic plane still fit the buffer; a lone
        // surrogate is no code point.
        using DataConversion::wstringtoUTF8;
        QCOMPARE(wstringtoUTF8(L"\U0001F600\U0001F600"), std::string("\U0001F600\U0001F600"));
        QCOMPARE(wstringtoUTF8(std::wstring(1, wchar_t(0xD800))), std::string());
        QVERIFY(DataConversion::UTF8toCP1251("Привет").empty());
    }

    void keysAreTakenOnInsert()
    {
        CTreeItemRoot root;
        auto* first = AddNode<CChannelInfo>(&root, "A");
        CChannelInfo second;
        second.SetName("A");
        // A taken key: the call still succeeds and sets the parent, but nothing is inserted.
        QVERIFY(root.AppendChild(&second) && second.GetParent() == &root);
        QVERIFY(root.size() == 1 && root.FindChildByName("A") == first && !root.FindChildByName(L"A"));

        // Renaming keeps the old key; re-keying takes a pop and an insert.
        first->SetName("New");
        QVERIFY(root.FindChildByName("A") == first && !root.FindChildByName("New"));
        QVERIFY(root.PopChild(first) && root.AppendChild(first));
        QVERIFY(root.FindChildByName("New") == first && !root.FindChildByName("A"));
        QVERIFY(!root.DeleteChild(&second) && first->Delete() && root.empty() && !CDeviceInfo().Delete());
    }

    void orderCountsWalkAndNames()
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
        for (const char* g : {"G1", "G2"})
            for (const char* t : {"T1", "T2", "T3"})
                AddNode<CDATagInfo>(
                    d1->FindChildByName(g) ? d1->FindChildByName(g) : AddNode<CGroupInfo>(d1, g), t);
        AddNode<CGroupInfo>(d2, "G3");
        QVERIFY(root.GetItemsCount(itTag) == 6 && d1->GetItemsCount(itDevice) == 0);

        // Post-order, children by key.
        g_visited.clear();
        channel->AllChildren([](CItem* item) { g_visited.push_back(item->GetName()); });
        QCOMPARE(g_visited.size(), size_t(11));
        QVERIFY((std::vector<std::string>(g_visited.end() - 4, g_visited.end()) ==
                 std::vector<std::string>{"G2", "D1", "G3", "D2"}));

        // Full names go behind what the string already holds; a loose node starts with a dot.
        std::string name = "prefix:";
        d1->FindChildByName("G1")->FindChildByName("T1")->GetFullName(name);
        CDeviceInfo().GetFullName(name);
        QCOMPARE(name, std::string("prefix:C.D1.G1.T1.Device_0"));
    }

    void incrementNamesAndDuplicates()
    {
        const std::pair<const char*, const char*> cases[] = {
            {"Tag", "Tag1"}, {"", "1"}, {"Tag_007", "Tag_8"}, {"T2147483647", "T-2147483648"}};
        for (const auto& [from, to] : cases)
            QCOMPARE(DataConversion::IncrementName(from), std::string(to));

        // Even a free name moves on once.
        std::string free = "Free";
        QVERIFY(CItem::IncrementName(nullptr, free) && free == "Free1");

        // A channel without a port is no duplicate, itself included; serial ports clash on the number
        // alone, TCP ones on address and port.
        CChannelInfo a, b, t1, t2;
        QVERIFY(!a.IsDublicate(&a));
        a.Init();
        b.Init();
        static_cast<CPortIO_COMInfo*>(b.Port)->BaudRate = 300;
        QVERIFY(a.IsDublicate(&b) && a.MakeNextSettings() && !a.IsDublicate(&b));
        t1.TypeChannel = t2.TypeChannel = 1;
        t1.Init();
        t2.Init();
        auto* p2 = static_cast<CPortIO_TCPInfo*>(t2.Port);
        p2->TimeoutConnect = 100;
        QVERIFY(t1.IsDublicate(&t2) && t1.MakeNextSettings() && t1.IsDublicate(&t2));
        p2->IP_Port = 503;
        QVERIFY(!t1.IsDublicate(&t2) && !a.IsDublicate(&t1));
        // COM numbers run past their range.
        static_cast<CPortIO_COMInfo*>(a.Port)->ComNo = 1000;
        a.MakeNextSettings();
        QCOMPARE(static_cast<CPortIO_COMInfo*>(a.Port)->ComNo, 1001u);
    }

    void copies()
    {
        bool ok = true;
        // A tag copy keeps its address (the next settings are the paste command's business) and owns its
        // records.
        CDATagInfo tag;
        tag.TransformType = TT_LineScale;
        tag.Transform = CDATagInfo::New_Transform(TT_LineScale, nullptr);
        tag.Addr = 40;
        std::unique_ptr<CItem> tagCopy(tag.Copy(ok));
        auto* copied = static_cast<CDATagInfo*>(tagCopy.get());
        QVERIFY(ok && copied->Addr == 40 && tag.IsDublicate(copied));
        QVERIFY(copied->Transform && copied->Transform != tag.Transform && copied->Emul &&
                copied->Emul != tag.Emul);
    }

    void names()
    {
        CDATagInfo tag;
        CDATagData data(&tag);
        const std::string narrow64(64, 'n');
        QVERIFY(data.Set_Name(narrow64) && !data.Set_Name(narrow64 + "n"));
        QVERIFY(!data.Set_Name(std::string()) && !data.Set_Name(std::wstring(L"a.b")));

        // A Cyrillic letter takes two bytes: 32 letters fill a narrow name, a wide one holds 64.
        std::string cyr32;
        for (int i = 0; i < 32; ++i)
            cyr32 += "Ж";
        QVERIFY(data.Validate_Name(cyr32) && !data.Validate_Name(cyr32 + "Ж"));
        QVERIFY(data.Set_Name(std::wstring(64, L'Ж')) && !data.Set_Name(std::wstring(65, L'Ж')));

        // The group's wide setter takes anything; only its std::string form checks.
        CGroupInfo group;
        CGroupData groupData(&group);
        QVERIFY(groupData.Set_Name(std::wstring(L"a.b")) && groupData.Set_Name(std::wstring()));
        QVERIFY(!groupData.Set_Name(std::string("x.y")) && !groupData.Set_Name(std::string(65, 'g')));
    }

    void channelAndPorts()
    {
        CChannelInfo channel;
        CChannelData data(&channel);
        QVERIFY(data.Set_TypeProtocol(L"MODBUS TCP") && !data.Set_TypeProtocol(L"modbus tcp"));

        // 0 is in range, so an empty text passes, and the read into the field doesn't start.
        QVERIFY(data.Set_TimeBusy(L"500") && data.Set_TimeBusy(L"") && channel.TimeBusy == 500);
        QVERIFY(data.Set_TimeBusy(L"x") && channel.TimeBusy == 0);

        // Setting the type leaves the port to Init.
        channel.Init();
        QVERIFY(data.Set_TypeChannel(L"TCP-соединение") && dynamic_cast<CPortIO_COMInfo*>(channel.Port));
        channel.Init();
        auto* tcp = dynamic_cast<CPortIO_TCPInfo*>(channel.Port);
        QVERIFY(tcp && tcp->Set_IP(L"10.1.2.3") && tcp->IP == 0x0302010Au);
        for (const wchar_t* bad : {L"10.0.0", L"10.0.0.256", L"1.2.3."})
            QVERIFY2(!tcp->Set_IP(bad) && tcp->GetIpString() == "10.1.2.3",
                     qPrintable(QString::fromWCharArray(bad)));
        // Rubbish after four numbers is ignored, an empty number reads as 0.
        QVERIFY(tcp->Set_IP(L"1.2.3.4.999") && tcp->GetIpString() == "1.2.3.4");
        QVERIFY(tcp->Set_IP(L"192.168..7") && tcp->GetIpString() == "192.168.0.7");

        // Tables store the number the text spells or the position of the text; RTS alone knows "Togge",
        // and echo can't be switched on from text.
        CPortIO_COMInfo port;
        QVERIFY(port.Set_BaudRate(L"115200") && port.BaudRate == 115200);
        QVERIFY(port.Set_RtsControl(L"Togge") && !port.Set_DtrControl(L"Togge") && port.RtsControl == 3);
        port.bEcho = true;
        QVERIFY(port.Set_bEcho(L"Да") && !port.bEcho && !port.Set_bEcho(L"1"));

        // Properties: the port's rows follow the channel's; without a port they are left out.
        CChannelInfo serial;
        serial.SetName("Линия");
        serial.Init();
        auto* com = static_cast<CPortIO_COMInfo*>(serial.Port);
        com->ComNo = 3;
        com->Set_Parity(L"Маркер");
        com->Set_RtsControl(L"Togge");
        serial.AppendChild(new CDeviceInfo());
        QCOMPARE(Shown(CChannelData(&serial).GetStrProps()),
                 QString("Линия|COM-порт|MODBUS RTU|500|3|0|3|9600|8|1|Маркер|Нет|Togge|Нет||1"));
        QCOMPARE(Shown(data.GetStrProps(), 1),
                 QString("TCP-соединение|MODBUS TCP|500|3|0|192.168.0.7|502|5000||0"));
        channel.TypeChannel = 2;
        QVERIFY(channel.Init() && !channel.Port);
        QCOMPARE(data.GetStrProps().size(), size_t(8));
    }

    void deviceAndGroup()
    {
        CDeviceInfo device;
        CDeviceData data(&device);
        // Empty passes (it reads as 0) and a byte field then takes 0.
        QVERIFY(data.Set_Addr(L"247") && data.Set_Addr(L"") && device.Addr == 0);
        for (const char* g : {"G1", "G2"}) {
            auto* group = AddNode<CGroupInfo>(&device, g);
            MakeTag(group, "T1", L"Входной регистр");
            MakeTag(group, "T2", L"Входной регистр");
        }
        QCOMPARE(Shown(data.GetStrProps(), 8), QString("2|4"));

        // The range of a group's rate follows its unit, which must come first: changing it
        // afterwards neither converts nor rechecks.
        CGroupInfo group;
        CGroupData groupData(&group);
        QVERIFY(groupData.Set_MU_UpdateRate(L"ч") && !groupData.Set_MU_UpdateRate(L"мин"));
        QVERIFY(groupData.Validate_UpdateRate(L"24") && !groupData.Validate_UpdateRate(L"25"));
        QVERIFY(groupData.Set_MU_UpdateRate(L"мс") && groupData.Set_UpdateRate(L"86400000"));
        QVERIFY(!groupData.Validate_UpdateRate(L"86400001") && groupData.Set_MU_UpdateRate(L"ч"));
        QVERIFY(group.UpdateRate == 86400000 && !groupData.Set_UpdateRate(L"1000"));
        group.MU_UpdateRate = 4;
        QVERIFY(!groupData.Validate_UpdateRate(L"0"));

        // The rate shows as its low 32 bits, signed; a name that isn't UTF-8 hides the rows.
        group.MU_UpdateRate = 2;
        group.UpdateRate = 0xFFFFFFFFull;
        MakeTag(&group, "T", L"Входной регистр");
        QCOMPARE(Shown(groupData.GetStrProps()), QString("Group_0|-1||1"));
        CGroupInfo twin;
        twin.SetName(group.GetName());
        twin.UpdateRate = 1;
        QVERIFY(group.IsDublicate(&twin) && !group.MakeNextSettings());
        group.SetName("\xFFhidden");
        QVERIFY(groupData.GetStrProps().empty() && !group.IsDublicate(&twin));
    }

    void tag()
    {
        CDATagInfo tag;
        CDATagData data(&tag);
        // The segment size follows the register kind, the position the segment size.
        QVERIFY(data.Set_RegType(L"Входное состояние") && data.Validate_RegsInSegment(L"2000"));
        QVERIFY(data.Set_RegType(L"Входной регистр") && !data.Validate_RegsInSegment(L"2000"));
        QVERIFY(data.Set_RegType(L"Выходной регистр"));
        QVERIFY(data.Set_RegsInSegment(L"10") && data.Set_SegmentPos(L"10") && !data.Set_SegmentPos(L"11"));

        // Setting the kinds doesn't exchange the records.
        CEmulation* emul = tag.Emul;
        QVERIFY(data.Set_EmulType(L"Синусоида") && tag.Emul == emul);
        QVERIFY(data.Set_TransformType(L"Линейная шкала") && !tag.Transform);

        // The same text names different positions, or none, by the value type.
        const std::tuple<const wchar_t*, const wchar_t*, uint8_t> orders[] = {
            {L"Вещ32", L"AB", 0xFF}, {L"Цел16", L"BA", 1}, {L"Вещ64", L"GH EF CD AB", 1}};
        for (const auto& [valType, order, code] : orders) {
            QVERIFY(data.Set_ValType(valType) && data.Set_ByteOrder(order));
            QCOMPARE(tag.ByteOrder, code);
        }

        // Rows that don't apply show "-": inputs have no write rows, coils no write group, bits
        // neither byte order nor transformation, bytes only a transformation.
        struct Row
        {
            const wchar_t *reg, *val, *write, *order, *transform;
            int from;
            const char* shown;
        };
        const Row rows[] = {
            {L"Входное состояние", L"Вещ32", L"", L"", L"", 0,
             "in|Входное состояние|0|Да|-|-|-|-|0|0|-|Константа"},
            {L"Выходное состояние", L"Вещ32", L"Нет", L"", L"", 4, "Нет|-|-|-|0|0|-|Константа"},
            {L"Входной регистр", L"Цел32(знак)", L"", L"BA DC", L"", 4,
             "-|-|Цел32(знак)|BA DC|0|0|Нет|Константа"},
            {L"Выходной регистр", L"Старший байт", L"", L"", L"Множитель", 4,
             "Да|Групповая|Старший байт|-|0|0|Множитель|Константа"},
            {L"Выходной регистр", L"Бит0", L"", L"", L"Множитель", 10, "-|Константа"}};
        for (const Row& row : rows) {
            std::unique_ptr<CDATagInfo> t(MakeTag(nullptr, "in", row.reg, row.val));
            CDATagData view(t.get());
            view.Set_bWrite(row.write);
            view.Set_ByteOrder(row.order);
            view.Set_TransformType(row.transform);
            QCOMPARE(Shown(view.GetStrProps(), row.from), QString(row.shown));
        }

        CGroupInfo group;
        CDATagInfo* a = MakeTag(&group, "a", L"Входной регистр", L"Бит15");
        a->Addr = 65535;
        // Byte order and access don't count, the bit position does; so does a discrete tag's value type.
        CDATagInfo b(a);
        b.ByteOrder = 0;
        b.bRead = false;
        QVERIFY(a->IsDublicate(&b) && group.HasChildDublicate(&b, nullptr));
        b.SegmentPos = 1;
        QVERIFY(!a->IsDublicate(&b));
        CDATagInfo* d1 = MakeTag(&group, "d1", L"Входное состояние", L"Цел16");
        CDATagInfo d2(d1);
        QVERIFY(d1->IsDublicate(&d2));
        d2.ValType = MVT_UInt32;
        QVERIFY(!d1->IsDublicate(&d2));

        // Bits run through the register before the address moves; the address wraps by the kind.
        QVERIFY(a->MakeNextSettings() && a->ValType == MVT_Bit0 && a->Addr == 1);
        QVERIFY(a->MakeNextSettings() && a->ValType == en_ModbusValType(9) && a->Addr == 1);
        const std::tuple<en_ModbusRegType, en_ModbusValType, uint16_t, uint16_t> series[] = {
            {MRT_HoldingRegister, MVT_Real64, 65535, 1},
            {MRT_Coil, MVT_UInt16, 65535, 0},
            {en_ModbusRegType(9), MVT_Real32, 3, 3}};
        for (const auto& [reg, val, from, to] : series) {
            CDATagInfo t;
            t.RegType = reg;
            t.ValType = val;
            t.Addr = from;
            QVERIFY(t.MakeNextSettings());
            QCOMPARE(t.Addr, to);
        }
    }

    void transformationsAndEmulations()
    {
        // The scale's range follows its variant type; the 32-bit cut of the VT_UI4 maximum leaves nothing.
        CTransform_LineScaleData scale;
        scale.VarType = VT_I2;
        QVERIFY(scale.Validate_SrcMin(L"-32768") && !scale.Validate_SrcMin(L"32768"));
        scale.VarType = VT_UI4;
        QVERIFY(!scale.Validate_SrcMax(L"0") && !scale.Validate_SrcMax(L"1"));
        // Checked as a whole number, stored as a float.
        scale.VarType = VT_UI2;
        QVERIFY(scale.Set_SrcMin(L"0.5") && scale.Set_DstMax(L"abc") && scale.DstMax == 0.0f);
        QCOMPARE(CTransform_LineScaleData(&scale).SrcMin, 0.5f);

        CTransform_FactorData factor;
        QVERIFY(factor.Validate_Factor(L"0.001") && !factor.Validate_Factor(L"0") &&
                !factor.Validate_Factor(L"-0"));
        QVERIFY(!CDATagInfo::New_Transform(TT_None, nullptr) &&
                !CDATagInfo::New_Emul(en_EmulType(3), nullptr));

        // A constant's range follows its variant type; VT_INT has no range of its own, 8 is no number.
        CEmulData_Const value;
        const std::tuple<unsigned short, const wchar_t*, const wchar_t*> consts[] = {
            {VT_I2, L"-32768", L"40000"},
            {VT_UI4, L"4294967295", L"-1"},
            {VT_INT, L"0", L"1"},
            {8, nullptr, L"0"}};
        for (const auto& [vt, ok, bad] : consts) {
            value.Const.vt = vt;
            QVERIFY(!value.Validate_Const(bad) && (!ok || value.Validate_Const(ok)));
        }
        // A stored constant becomes a double; a refused one leaves the type.
        value.Const.vt = VT_I2;
        QVERIFY(!value.Set_Const(L"40000") && value.Const.vt == VT_I2);
        QVERIFY(value.Set_Const(L"7") && value.Const.vt == VT_R8);
        QCOMPARE(CEmulData_Const(&value).Const.dblVal, 7.0);

        // A record of another kind gives the defaults.
        QCOMPARE(CEmulData_Sin(&value).Period, 1u);
    }
};

QTEST_GUILESS_MAIN(TestModel)
#include "tst_model.moc"
