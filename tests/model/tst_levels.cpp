#include "model/channeldata.h"
#include "model/datagdata.h"
#include "model/devicedata.h"
#include "model/emuldata_const.h"
#include "model/emuldata_sin.h"
#include "model/groupdata.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"
#include "model/transform_factordata.h"
#include "model/transform_linescaledata.h"

#include <QtTest>

#include <memory>

namespace {

QString Shown(const StrProps& props, int from = 0)
{
    QStringList out;
    for (const auto& row : props)
        out << QString::fromStdString(row.second);
    return out.mid(from).join('|');
}

// A text check must take every text of `ok` and refuse every text of `bad`.
template <typename Check>
void Texts(Check check, std::initializer_list<const wchar_t*> ok, std::initializer_list<const wchar_t*> bad)
{
    for (const wchar_t* text : ok)
        QVERIFY2(check(text), qPrintable("refused: " + QString::fromWCharArray(text)));
    for (const wchar_t* text : bad)
        QVERIFY2(!check(text), qPrintable("taken: " + QString::fromWCharArray(text)));
}

#define CHECK(obj, fn) [&](const wchar_t* t) { return obj.fn(t); }

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

class TestLevels : public QObject
{
    Q_OBJECT

private slots:
    void names();
    void channelAndPorts();
    void channelDuplicates();
    void deviceAndGroup();
    void tag();
    void tagDuplicatesAndSeries();
    void transformationsAndEmulations();
};

void TestLevels::names()
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

    // A view on a node of another kind refuses everything.
    CDeviceData wrong(&group);
    QVERIFY(!wrong.Set_Name(std::string("ok")) && wrong.GetStrProps().empty());
}

void TestLevels::channelAndPorts()
{
    CChannelInfo channel;
    CChannelData data(&channel);
    QVERIFY(data.Set_TypeProtocol(L"MODBUS TCP") && !data.Set_TypeProtocol(L"modbus tcp"));
    Texts(CHECK(data, Validate_Timeout), {L"20", L"60000"}, {L"19", L"60001"});

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

    // Tables store the number the text spells or the position of the text; RTS alone knows "Togge".
    CPortIO_COMInfo port;
    QVERIFY(port.Set_BaudRate(L"115200") && !port.Set_BaudRate(L"115201") && port.BaudRate == 115200);
    QVERIFY(port.Set_RtsControl(L"Togge") && !port.Set_DtrControl(L"Togge") && port.RtsControl == 3);
    // Echo can't be switched on from text.
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

void TestLevels::channelDuplicates()
{
    CChannelInfo a, b;
    // No port yet: no duplicate of anything, itself included.
    QVERIFY(!a.IsDublicate(&a));
    a.Init();
    b.Init();
    static_cast<CPortIO_COMInfo*>(b.Port)->BaudRate = 300;
    QVERIFY(a.IsDublicate(&b));
    QVERIFY(a.MakeNextSettings() && !a.IsDublicate(&b));

    CChannelInfo t1, t2;
    t1.TypeChannel = t2.TypeChannel = 1;
    t1.Init();
    t2.Init();
    auto* p2 = static_cast<CPortIO_TCPInfo*>(t2.Port);
    static_cast<CPortIO_TCPInfo*>(t1.Port)->Set_IP(L"10.0.0.1");
    p2->Set_IP(L"10.0.0.1");
    p2->TimeoutConnect = 100;
    QVERIFY(t1.IsDublicate(&t2));
    p2->IP_Port = 503;
    QVERIFY(!t1.IsDublicate(&t2) && !a.IsDublicate(&t1) && !a.IsDublicate(nullptr));

    // The next settings of a TCP channel are the same; COM numbers run past their range.
    QVERIFY(t1.MakeNextSettings() && t1.IsDublicate(&t1));
    static_cast<CPortIO_COMInfo*>(a.Port)->ComNo = 1000;
    a.MakeNextSettings();
    QCOMPARE(static_cast<CPortIO_COMInfo*>(a.Port)->ComNo, 1001u);
}

void TestLevels::deviceAndGroup()
{
    CDeviceInfo device;
    CDeviceData data(&device);
    Texts(CHECK(data, Validate_Addr), {L"0", L"255"}, {L"256"});
    // Empty passes (it reads as 0) and a byte field then takes 0.
    QVERIFY(data.Set_Addr(L"247") && data.Set_Addr(L"") && device.Addr == 0);

    for (const char* g : {"G1", "G2"}) {
        auto* group = new CGroupInfo();
        group->SetName(g);
        device.AppendChild(group);
        MakeTag(group, "T1", L"Входной регистр");
        MakeTag(group, "T2", L"Входной регистр");
    }
    QCOMPARE(Shown(data.GetStrProps(), 8), QString("2|4"));

    // Address alone decides.
    CDeviceInfo other;
    other.SetName("Other");
    other.Addr = device.Addr;
    QVERIFY(device.IsDublicate(&other));
    other.Addr = 1;
    QVERIFY(!device.IsDublicate(&other) && !device.MakeNextSettings());

    // The range of a group's rate follows its unit, which must come first: changing it
    // afterwards neither converts nor rechecks.
    CGroupInfo group;
    CGroupData groupData(&group);
    QVERIFY(groupData.Set_MU_UpdateRate(L"ч") && !groupData.Set_MU_UpdateRate(L"мин"));
    Texts(CHECK(groupData, Validate_UpdateRate), {L"0", L"24"}, {L"25"});
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

void TestLevels::tag()
{
    CDATagInfo tag;
    CDATagData data(&tag);
    Texts(CHECK(data, Validate_Addr), {L"65535"}, {L"0", L"65536"});

    // The segment size follows the register kind, the position the segment size.
    QVERIFY(data.Set_RegType(L"Входное состояние"));
    Texts(CHECK(data, Validate_RegsInSegment), {L"2000"}, {L"2001"});
    QVERIFY(data.Set_RegType(L"Входной регистр"));
    Texts(CHECK(data, Validate_RegsInSegment), {L"123"}, {L"124"});
    tag.RegType = static_cast<en_ModbusRegType>(4);
    QVERIFY(!data.Validate_RegsInSegment(L"0"));
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
    std::unique_ptr<CDATagInfo> input(MakeTag(nullptr, "in", L"Входное состояние"));
    input->Addr = 5;
    QCOMPARE(Shown(CDATagData(input.get()).GetStrProps()),
             QString("in|Входное состояние|5|Да|-|-|-|-|0|0|-|Константа"));
    std::unique_ptr<CDATagInfo> coil(MakeTag(nullptr, "coil", L"Выходное состояние"));
    CDATagData(coil.get()).Set_bWrite(L"Нет");
    QCOMPARE(Shown(CDATagData(coil.get()).GetStrProps(), 4).left(5), QString("Нет|-"));
    std::unique_ptr<CDATagInfo> inReg(MakeTag(nullptr, "ir", L"Входной регистр", L"Цел32(знак)"));
    CDATagData(inReg.get()).Set_ByteOrder(L"BA DC");
    QCOMPARE(Shown(CDATagData(inReg.get()).GetStrProps(), 4),
             QString("-|-|Цел32(знак)|BA DC|0|0|Нет|Константа"));
    std::unique_ptr<CDATagInfo> holding(MakeTag(nullptr, "hr", L"Выходной регистр", L"Старший байт"));
    CDATagData holdingData(holding.get());
    holdingData.Set_bWriteGroup(L"Одиночная");
    holdingData.Set_TransformType(L"Множитель");
    QCOMPARE(Shown(holdingData.GetStrProps(), 4),
             QString("Да|Одиночная|Старший байт|-|0|0|Множитель|Константа"));
    holdingData.Set_ValType(L"Бит0");
    QCOMPARE(Shown(holdingData.GetStrProps(), 10), QString("-|Константа"));
}

void TestLevels::tagDuplicatesAndSeries()
{
    CGroupInfo group;
    CDATagInfo* a = MakeTag(&group, "a", L"Входной регистр", L"Бит15");
    a->Addr = 65535;
    // Byte order and access don't count, the bit position does.
    CDATagInfo b(a);
    b.ByteOrder = 0;
    b.bRead = false;
    QVERIFY(a->IsDublicate(&b) && group.HasChildDublicate(&b, nullptr));
    b.SegmentPos = 1;
    QVERIFY(!a->IsDublicate(&b));

    // A discrete tag's value type still counts.
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
        {static_cast<en_ModbusRegType>(9), MVT_Real32, 3, 3}};
    for (const auto& [reg, val, from, to] : series) {
        CDATagInfo t;
        t.RegType = reg;
        t.ValType = val;
        t.Addr = from;
        QVERIFY(t.MakeNextSettings());
        QCOMPARE(t.Addr, to);
    }
}

void TestLevels::transformationsAndEmulations()
{
    // The scale's range follows its variant type; the 32-bit cut of the VT_UI4 maximum leaves nothing.
    CTransform_LineScaleData scale;
    scale.VarType = VT_I2;
    Texts(CHECK(scale, Validate_SrcMin), {L"-32768"}, {L"32768"});
    scale.VarType = VT_UI4;
    Texts(CHECK(scale, Validate_SrcMax), {}, {L"0", L"1"});
    // Checked as a whole number, stored as a float.
    scale.VarType = VT_UI2;
    QVERIFY(scale.Set_SrcMin(L"0.5") && scale.Set_DstMax(L"abc") && scale.DstMax == 0.0f);
    QCOMPARE(CTransform_LineScaleData(&scale).SrcMin, 0.5f);

    CTransform_FactorData factor;
    Texts(CHECK(factor, Validate_Factor), {L"-100000", L"0.001"}, {L"0", L"100000.5", L"-0"});
    QVERIFY(!CDATagInfo::New_Transform(TT_None, nullptr) && !CDATagInfo::New_Emul(en_EmulType(3), nullptr));

    // A constant's range follows its variant type; VT_INT has no range of its own, 8 is no number.
    CEmulData_Const value;
    const std::tuple<unsigned short, const wchar_t*, const wchar_t*> consts[] = {
        {VT_I2, L"-32768", L"40000"}, {VT_UI4, L"4294967295", L"-1"}, {VT_INT, L"0", L"1"}};
    for (const auto& [vt, ok, bad] : consts) {
        value.Const.vt = vt;
        Texts(CHECK(value, Validate_Const), {ok}, {bad});
    }
    value.Const.vt = 8;
    QVERIFY(!value.Validate_Const(L"0"));
    // A stored constant becomes a double.
    value.Const.vt = VT_I2;
    QVERIFY(value.Set_Const(L"7") && value.Const.vt == VT_R8);
    value.Const.vt = VT_I2;
    QVERIFY(!value.Set_Const(L"40000") && value.Const.vt == VT_I2);
    QCOMPARE(CEmulData_Const(&value).Const.dblVal, 7.0);

    CEmulData_Sin sine;
    Texts(CHECK(sine, Validate_Period), {L"60"}, {L"0", L"61"});
    // A record of another kind gives the defaults.
    QCOMPARE(CEmulData_Sin(&value).Period, 1u);
}

QTEST_GUILESS_MAIN(TestLevels)
#include "tst_levels.moc"
