#include "model/channeldata.h"
#include "model/datagdata.h"
#include "model/devicedata.h"
#include "model/emuldata_const.h"
#include "model/emuldata_random.h"
#include "model/emuldata_sin.h"
#include "model/groupdata.h"
#include "model/portio_cominfo.h"
#include "model/portio_tcpinfo.h"
#include "model/transform_factordata.h"
#include "model/transform_linescaledata.h"
#include "model/treeitemroot.h"

#include <QtTest>

#include <memory>

namespace {

// Row captions of a property list, to check order and count at once.
QStringList Captions(const StrProps& props)
{
    QStringList out;
    for (const auto& row : props)
        out << QString::fromStdString(row.first);
    return out;
}

QStringList Values(const StrProps& props)
{
    QStringList out;
    for (const auto& row : props)
        out << QString::fromStdString(row.second);
    return out;
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

class TestLevels : public QObject
{
    Q_OBJECT

private slots:
    void names();
    void channelProperties();
    void serialPort();
    void tcpPort();
    void channelDuplicates();
    void channelProps();
    void device();
    void group();
    void tagDependentRanges();
    void tagByteOrder();
    void tagProps();
    void tagDuplicatesAndSeries();
    void transformations();
    void emulations();
};

void TestLevels::names()
{
    CDATagInfo tag;
    CDATagData data(&tag);
    const std::string narrow64(64, 'n');
    QVERIFY(data.Set_Name(narrow64));
    QVERIFY(!data.Set_Name(narrow64 + "n"));
    QCOMPARE(tag.GetName(), narrow64);
    QVERIFY(!data.Set_Name(std::string()));
    QVERIFY(!data.Set_Name(static_cast<const char*>(nullptr)));
    QVERIFY(!data.Set_Name("a.b"));
    QVERIFY(!data.Set_Name(std::wstring(L"a.b")));

    // A Cyrillic letter takes two bytes: 32 letters fill a narrow name, a wide one holds 64.
    std::string cyr32;
    for (int i = 0; i < 32; ++i)
        cyr32 += "Ж";
    QVERIFY(data.Validate_Name(cyr32));
    QVERIFY(!data.Validate_Name(cyr32 + "Ж"));
    QVERIFY(data.Set_Name(std::wstring(64, L'Ж')));
    QCOMPARE(tag.GetName().size(), size_t(128));
    QVERIFY(!data.Set_Name(std::wstring(65, L'Ж')));

    CDeviceInfo device;
    CDeviceData deviceData(&device);
    QVERIFY(!deviceData.Validate_Name(std::wstring(L"Устр.1")));
    QVERIFY(deviceData.Set_Name(std::wstring(L"Устройство")));
    QCOMPARE(device.GetName(), std::string("Устройство"));

    CChannelInfo channel;
    CChannelData channelData(&channel);
    QVERIFY(!channelData.Set_Name(std::wstring(L"")));
    QVERIFY(!channelData.Set_Name(std::wstring(65, L'c')));
    QVERIFY(channelData.Set_Name(std::wstring(L"Канал")));
    QCOMPARE(channel.GetName(), std::string("Канал"));

    // The group's wide setter takes anything; only its std::string form checks.
    CGroupInfo group;
    CGroupData groupData(&group);
    QVERIFY(groupData.Validate_Name(L"a.b"));
    QVERIFY(groupData.Set_Name(std::wstring(L"a.b")));
    QCOMPARE(group.GetName(), std::string("a.b"));
    QVERIFY(groupData.Set_Name(std::wstring()));
    QCOMPARE(group.GetName(), std::string());
    QVERIFY(!groupData.Set_Name(std::string("x.y")));
    QVERIFY(!groupData.Set_Name("x.y"));
    QVERIFY(!groupData.Set_Name(std::string(65, 'g')));

    // A view on a node of another kind refuses everything.
    CDeviceData wrong(&group);
    QVERIFY(!wrong.Set_Name(std::string("ok")));
    QVERIFY(wrong.GetStrProps().empty());
}

void TestLevels::channelProperties()
{
    CChannelInfo channel;
    CChannelData data(&channel);
    QVERIFY(data.Set_TypeProtocol(L"MODBUS TCP"));
    QCOMPARE(channel.TypeProtocol, 2);
    QVERIFY(!data.Set_TypeProtocol(L"modbus tcp"));
    QCOMPARE(channel.TypeProtocol, 2);

    QVERIFY(!data.Validate_Timeout(L"19"));
    QVERIFY(data.Validate_Timeout(L"20"));
    QVERIFY(data.Validate_Timeout(L"60000"));
    QVERIFY(!data.Validate_Timeout(L"60001"));
    QVERIFY(data.Set_Timeout(L"120ms"));
    QCOMPARE(channel.Timeout, uint64_t(120));
    QVERIFY(!data.Set_Timeout(L""));
    QCOMPARE(channel.Timeout, uint64_t(120));

    QVERIFY(!data.Set_QuanRetry(L"0"));
    QVERIFY(!data.Set_QuanRetry(L"21"));
    QVERIFY(data.Set_QuanRetry(L"20"));
    QCOMPARE(channel.QuanRetry, uint8_t(20));

    // 0 is in range, so an empty text passes, and the read into the field doesn't start.
    QVERIFY(data.Set_TimeBusy(L"500"));
    QVERIFY(data.Set_TimeBusy(L""));
    QCOMPARE(channel.TimeBusy, uint64_t(500));
    QVERIFY(data.Set_TimeBusy(L"x"));
    QCOMPARE(channel.TimeBusy, uint64_t(0));
    QVERIFY(!data.Set_TimeBusy(L"10001"));

    // Setting the type leaves the port to Init.
    channel.Init();
    QVERIFY(dynamic_cast<CPortIO_COMInfo*>(channel.Port));
    QVERIFY(data.Set_TypeChannel(L"TCP-соединение"));
    QCOMPARE(channel.TypeChannel, 1);
    QVERIFY(dynamic_cast<CPortIO_COMInfo*>(channel.Port));
    channel.Init();
    QVERIFY(dynamic_cast<CPortIO_TCPInfo*>(channel.Port));
    QCOMPARE(channel.Port->PortType, 2);
    channel.TypeChannel = 2;
    QVERIFY(channel.Init());
    QVERIFY(!channel.Port);
}

void TestLevels::serialPort()
{
    CPortIO_COMInfo port;
    QCOMPARE(port.PortType, 1);
    QVERIFY(port.Validate_ComNo(L"0"));
    QVERIFY(port.Validate_ComNo(L"1000"));
    QVERIFY(!port.Validate_ComNo(L"1001"));
    QVERIFY(port.Set_ComNo(L"17"));
    QCOMPARE(port.ComNo, 17u);

    // Tables that store the number the text spells.
    QVERIFY(port.Set_BaudRate(L"115200"));
    QCOMPARE(port.BaudRate, uint64_t(115200));
    QVERIFY(!port.Set_BaudRate(L"115201"));
    QCOMPARE(port.BaudRate, uint64_t(115200));
    QVERIFY(port.Set_DataBits(L"7"));
    QCOMPARE(port.DataBits, uint8_t(7));

    QVERIFY(port.Set_Parity(L"Чет"));
    QCOMPARE(port.Parity, uint8_t(2));
    QVERIFY(!port.Set_Parity(L"чет"));
    QCOMPARE(port.Parity, uint8_t(2));
    QVERIFY(port.Set_RtsControl(L"Togge"));
    QCOMPARE(port.RtsControl, uint8_t(3));
    QVERIFY(!port.Set_DtrControl(L"Togge"));
    QVERIFY(port.Set_DtrControl(L"Handshake"));
    QCOMPARE(port.DtrControl, uint8_t(2));

    // Echo can't be switched on from text.
    port.bEcho = true;
    QVERIFY(port.Set_bEcho(L"Да"));
    QVERIFY(!port.bEcho);
    QVERIFY(!port.Set_bEcho(L"1"));

    CPortIO_COMInfo copy(port);
    QCOMPARE(copy.PortType, 1);
    QCOMPARE(copy.BaudRate, uint64_t(115200));
}

void TestLevels::tcpPort()
{
    CPortIO_TCPInfo port;
    QCOMPARE(port.PortType, 2);
    QCOMPARE(port.GetIpString(), std::string("0.0.0.0"));

    QVERIFY(port.Set_IP(L"10.1.2.3"));
    QCOMPARE(port.IP, 0x0302010Au);
    QCOMPARE(port.GetIpString(), std::string("10.1.2.3"));
    for (const wchar_t* bad : {L"10.0.0", L"10.0.0.256", L"", L"1.2.3.", L"1.2.3.-1"}) {
        QVERIFY2(!port.Set_IP(bad), qPrintable(QString::fromWCharArray(bad)));
        QCOMPARE(port.GetIpString(), std::string("10.1.2.3"));
    }
    QVERIFY(port.Set_IP(L"10..0.1"));
    QCOMPARE(port.GetIpString(), std::string("10.0.0.1"));
    QVERIFY(port.Set_IP(L"1.2.3.4.999"));
    QCOMPARE(port.GetIpString(), std::string("1.2.3.4"));
    QVERIFY(port.Set_IP(L"255.255.255.255x"));
    QCOMPARE(port.IP, 0xFFFFFFFFu);

    QVERIFY(!port.Validate_IP_Port(L"0"));
    QVERIFY(port.Validate_IP_Port(L"65535"));
    QVERIFY(!port.Validate_IP_Port(L"65536"));
    QVERIFY(port.Validate_TimeoutConnect(L"120000"));
    QVERIFY(!port.Validate_TimeoutConnect(L"120001"));
    QVERIFY(!port.Validate_TimeoutConnect(L"19"));
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
    QVERIFY(a.MakeNextSettings());
    QVERIFY(!a.IsDublicate(&b));

    CChannelInfo t1, t2;
    t1.TypeChannel = t2.TypeChannel = 1;
    t1.Init();
    t2.Init();
    auto* p1 = static_cast<CPortIO_TCPInfo*>(t1.Port);
    auto* p2 = static_cast<CPortIO_TCPInfo*>(t2.Port);
    p1->Set_IP(L"10.0.0.1");
    p2->Set_IP(L"10.0.0.1");
    p2->TimeoutConnect = 100;
    QVERIFY(t1.IsDublicate(&t2));
    p2->IP_Port = 503;
    QVERIFY(!t1.IsDublicate(&t2));
    QVERIFY(!a.IsDublicate(&t1));
    QVERIFY(!a.Port->IsDublicate(t1.Port));
    QVERIFY(!a.IsDublicate(nullptr));

    // The next settings of a TCP channel are the same; COM numbers run past their range.
    QVERIFY(t1.MakeNextSettings());
    QCOMPARE(p1->GetIpString(), std::string("10.0.0.1"));
    static_cast<CPortIO_COMInfo*>(a.Port)->ComNo = 1000;
    a.MakeNextSettings();
    QCOMPARE(static_cast<CPortIO_COMInfo*>(a.Port)->ComNo, 1001u);

    CTreeItemRoot root;
    auto* c1 = new CChannelInfo();
    c1->Init();
    root.AppendChild(c1);
    CChannelInfo candidate;
    candidate.Init();
    QVERIFY(root.HasChildDublicate(&candidate, nullptr));
}

void TestLevels::channelProps()
{
    CChannelInfo serial;
    serial.SetName("Линия");
    serial.Init();
    auto* com = static_cast<CPortIO_COMInfo*>(serial.Port);
    com->ComNo = 3;
    com->Set_Parity(L"Маркер");
    com->Set_RtsControl(L"Togge");
    serial.AppendChild(new CDeviceInfo());
    const StrProps props = CChannelData(&serial).GetStrProps();
    QCOMPARE(Captions(props).join('|'), QString("Имя|Тип канала|Тип протокола|Таймаут ожидания ответа (мс)|"
                                                "Кол-во попыток|Пауза перед запросом (мс)|COM-порт|"
                                                "Скорость обмена|Количество бит данных|"
                                                "Количество стоп-бит данных|Контроль чётности|Наличие эха|"
                                                "Управление RTS|Управление DTR||Кол-во устройств"));
    QCOMPARE(Values(props).join('|'),
             QString("Линия|COM-порт|MODBUS RTU|500|3|0|3|9600|8|1|Маркер|Нет|Togge|Нет||1"));

    CChannelInfo tcp;
    CChannelData data(&tcp);
    data.Set_TypeChannel(L"TCP-соединение");
    data.Set_TypeProtocol(L"MODBUS TCP");
    tcp.Init();
    static_cast<CPortIO_TCPInfo*>(tcp.Port)->Set_IP(L"192.168.0.7");
    const StrProps tcpProps = data.GetStrProps();
    QCOMPARE(tcpProps.size(), size_t(11));
    QCOMPARE(
        Captions(tcpProps).mid(6),
        (QStringList{"IP-адрес", "TCP-порт", "Таймаут установки соединения (мс)", "", "Кол-во устройств"}));
    QCOMPARE(Values(tcpProps).mid(1, 2), (QStringList{"TCP-соединение", "MODBUS TCP"}));
    QCOMPARE(Values(tcpProps).mid(6), (QStringList{"192.168.0.7", "502", "5000", "", "0"}));

    // Without a port the rows of the port are left out.
    CChannelInfo bare;
    QCOMPARE(CChannelData(&bare).GetStrProps().size(), size_t(8));
}

void TestLevels::device()
{
    CDeviceInfo device;
    CDeviceData data(&device);
    QVERIFY(data.Validate_Addr(L"0"));
    QVERIFY(data.Validate_Addr(L"255"));
    QVERIFY(!data.Validate_Addr(L"256"));
    QVERIFY(data.Set_Addr(L"247"));
    QCOMPARE(device.Addr, uint8_t(247));
    // Empty passes (it reads as 0) and a byte field then takes 0.
    QVERIFY(data.Set_Addr(L""));
    QCOMPARE(device.Addr, uint8_t(0));
    QVERIFY(!data.Validate_MaxRegsInReqv(L"0"));
    QVERIFY(!data.Validate_MaxRegsInReqv(L"126"));
    QVERIFY(data.Set_MaxRegsInReqv(L"125"));
    QVERIFY(data.Validate_MaxFragmentation(L"0"));
    QVERIFY(data.Validate_MaxFragmentation(L"123"));
    QVERIFY(!data.Validate_MaxFragmentation(L"124"));
    QVERIFY(!data.Validate_MaxDiscretsInReqv(L"2001"));
    QVERIFY(data.Set_MaxDiscretsInReqv(L"1999"));
    QCOMPARE(device.MaxDiscretsInReqv, uint16_t(1999));
    QVERIFY(data.Set_bExchange(L"Нет"));
    QVERIFY(!device.bExchange);
    QVERIFY(!data.Set_bExchange(L"Yes"));
    QVERIFY(!device.bExchange);

    StrProps props = data.GetStrProps();
    QCOMPARE(Captions(props),
             (QStringList{"Имя", "Адрес Modbus", "Обмен с устройством", "Эмуляция",
                          "Макс. кол-во регистров в запросе", "Макс. кол-во состояний в запросе",
                          "Макс. допустимая фрагментация", "", "Кол-во групп", "Кол-во тегов"}));
    QCOMPARE(Values(props), (QStringList{"Device_0", "0", "Нет", "Нет", "125", "1999", "0", "", "0", "0"}));

    for (const char* g : {"G1", "G2"}) {
        auto* group = new CGroupInfo();
        group->SetName(g);
        device.AppendChild(group);
        MakeTag(group, "T1", L"Входной регистр");
        MakeTag(group, "T2", L"Входной регистр");
    }
    props = data.GetStrProps();
    QCOMPARE(Values(props).mid(8), (QStringList{"2", "4"}));

    // Address alone decides.
    CDeviceInfo other;
    other.SetName("Other");
    other.Addr = device.Addr;
    QVERIFY(device.IsDublicate(&other));
    other.Addr = 1;
    QVERIFY(!device.IsDublicate(&other));
    QVERIFY(!device.MakeNextSettings());
}

void TestLevels::group()
{
    CGroupInfo group;
    CGroupData data(&group);
    const struct
    {
        const wchar_t* unit;
        const wchar_t* max;
        const wchar_t* over;
    } units[] = {{L"мс", L"86400000", L"86400001"},
                 {L"с", L"86400", L"86401"},
                 {L"мин.", L"1440", L"1441"},
                 {L"ч", L"24", L"25"}};
    for (const auto& u : units) {
        QVERIFY(data.Set_MU_UpdateRate(u.unit));
        QVERIFY(data.Validate_UpdateRate(L"0"));
        QVERIFY(data.Validate_UpdateRate(u.max));
        QVERIFY(!data.Validate_UpdateRate(u.over));
    }
    QVERIFY(!data.Set_MU_UpdateRate(L"мин"));
    QCOMPARE(group.MU_UpdateRate, 3);

    // The unit must come first: changing it afterwards neither converts nor rechecks.
    QVERIFY(data.Set_MU_UpdateRate(L"мс"));
    QVERIFY(data.Set_UpdateRate(L"1000"));
    QVERIFY(data.Set_MU_UpdateRate(L"ч"));
    QCOMPARE(group.UpdateRate, uint64_t(1000));
    QVERIFY(!data.Validate_UpdateRate(L"1000"));
    QVERIFY(!data.Set_UpdateRate(L"1000"));
    group.MU_UpdateRate = 4;
    QVERIFY(!data.Validate_UpdateRate(L"0"));

    group.MU_UpdateRate = 2;
    group.UpdateRate = 15;
    StrProps props = data.GetStrProps();
    QCOMPARE(Captions(props), (QStringList{"Имя", "Период опроса (мин)", "", "Кол-во тегов"}));
    QCOMPARE(Values(props), (QStringList{"Group_0", "15", "", "0"}));
    // The rate shows as its low 32 bits, signed.
    group.UpdateRate = 0xFFFFFFFFull;
    MakeTag(&group, "T", L"Входной регистр");
    props = data.GetStrProps();
    QCOMPARE(Values(props).at(1), QString("-1"));
    QCOMPARE(Values(props).at(3), QString("1"));
    group.SetName("\xFFhidden");
    QVERIFY(data.GetStrProps().empty());

    CGroupInfo twin;
    twin.SetName(group.GetName());
    twin.UpdateRate = 1;
    QVERIFY(group.IsDublicate(&twin));
    twin.SetName("other");
    QVERIFY(!group.IsDublicate(&twin));
    QVERIFY(!group.MakeNextSettings());
}

void TestLevels::tagDependentRanges()
{
    CDATagInfo tag;
    CDATagData data(&tag);
    QVERIFY(!data.Validate_Addr(L"0"));
    QVERIFY(data.Validate_Addr(L"65535"));
    QVERIFY(!data.Validate_Addr(L"65536"));
    QVERIFY(data.Set_Addr(L"65535"));
    QCOMPARE(tag.Addr, uint16_t(65535));

    QVERIFY(data.Set_RegType(L"Входное состояние"));
    QVERIFY(data.Validate_RegsInSegment(L"2000"));
    QVERIFY(!data.Validate_RegsInSegment(L"2001"));
    QVERIFY(data.Set_RegType(L"Входной регистр"));
    QVERIFY(!data.Validate_RegsInSegment(L"2000"));
    QVERIFY(data.Validate_RegsInSegment(L"123"));
    QVERIFY(!data.Validate_RegsInSegment(L"124"));
    tag.RegType = static_cast<en_ModbusRegType>(4);
    QVERIFY(!data.Validate_RegsInSegment(L"0"));
    QVERIFY(data.Set_RegType(L"Выходной регистр"));

    // The position runs up to the current segment size.
    QVERIFY(data.Validate_SegmentPos(L"0"));
    QVERIFY(!data.Validate_SegmentPos(L"1"));
    QVERIFY(data.Set_RegsInSegment(L"10"));
    QVERIFY(data.Set_SegmentPos(L"10"));
    QVERIFY(!data.Set_SegmentPos(L"11"));
    QCOMPARE(tag.SegmentPos, uint16_t(10));

    QVERIFY(data.Set_bWriteGroup(L"Одиночная"));
    QVERIFY(!tag.bWriteGroup);
    QVERIFY(!data.Set_bWriteGroup(L"Да"));
    QVERIFY(data.Set_bRead(L"Нет"));
    QVERIFY(!tag.bRead);
    QVERIFY(data.Set_ValType(L"Бит3"));
    QCOMPARE(tag.ValType, en_ModbusValType(11));
    QVERIFY(!data.Set_ValType(L"бит3"));

    // Setting the kinds doesn't exchange the records.
    CEmulation* emul = tag.Emul;
    QVERIFY(data.Set_EmulType(L"Синусоида"));
    QCOMPARE(tag.Emul, emul);
    QVERIFY(data.Set_TransformType(L"Линейная шкала"));
    QVERIFY(!tag.Transform);
}

void TestLevels::tagByteOrder()
{
    CDATagInfo tag;
    CDATagData data(&tag);
    // The same text names different positions, or none, by the value type.
    QVERIFY(data.Set_ByteOrder(L"AB"));
    QCOMPARE(tag.ByteOrder, uint8_t(0xFF));
    QVERIFY(data.Set_ByteOrder(L"DC BA"));
    QCOMPARE(tag.ByteOrder, uint8_t(3));
    data.Set_ValType(L"Цел16");
    QVERIFY(data.Set_ByteOrder(L"AB"));
    QCOMPARE(tag.ByteOrder, uint8_t(0));
    QVERIFY(data.Set_ByteOrder(L"BA"));
    QCOMPARE(tag.ByteOrder, uint8_t(1));
    data.Set_ValType(L"Вещ64");
    QVERIFY(data.Set_ByteOrder(L"GH EF CD AB"));
    QCOMPARE(tag.ByteOrder, uint8_t(1));
    QVERIFY(data.Set_ByteOrder(L"CD AB"));
    QCOMPARE(tag.ByteOrder, uint8_t(0xFF));
    data.Set_ValType(L"Младший байт");
    QVERIFY(data.Set_ByteOrder(L""));
    QCOMPARE(tag.ByteOrder, uint8_t(0));
}

void TestLevels::tagProps()
{
    const QString captions("Имя|Тип регистра|Адрес|Чтение|Запись|Режим записи|Тип значения|Порядок байт|"
                           "Размер сегмента|Смещение в сегменте|Тип преобразования|Тип эмуляции");
    std::unique_ptr<CDATagInfo> input(MakeTag(nullptr, "in", L"Входное состояние"));
    input->Addr = 5;
    StrProps props = CDATagData(input.get()).GetStrProps();
    QCOMPARE(Captions(props).join('|'), captions);
    QCOMPARE(Values(props), (QStringList{"in", "Входное состояние", "5", "Да", "-", "-", "-", "-", "0", "0",
                                         "-", "Константа"}));

    std::unique_ptr<CDATagInfo> coil(MakeTag(nullptr, "coil", L"Выходное состояние"));
    CDATagData coilData(coil.get());
    QCOMPARE(Values(coilData.GetStrProps()).mid(4, 4), (QStringList{"Да", "Групповая", "-", "-"}));
    coilData.Set_bWrite(L"Нет");
    QCOMPARE(Values(coilData.GetStrProps()).mid(4, 4), (QStringList{"Нет", "-", "-", "-"}));

    std::unique_ptr<CDATagInfo> inReg(MakeTag(nullptr, "ir", L"Входной регистр", L"Цел32(знак)"));
    CDATagData inRegData(inReg.get());
    inRegData.Set_ByteOrder(L"BA DC");
    inRegData.Set_EmulType(L"Случайное число");
    QCOMPARE(Values(inRegData.GetStrProps()).mid(4),
             (QStringList{"-", "-", "Цел32(знак)", "BA DC", "0", "0", "Нет", "Случайное число"}));

    // Bytes have no byte order but a transformation; bits have neither.
    std::unique_ptr<CDATagInfo> holding(MakeTag(nullptr, "hr", L"Выходной регистр", L"Старший байт"));
    CDATagData holdingData(holding.get());
    holdingData.Set_bWriteGroup(L"Одиночная");
    holdingData.Set_TransformType(L"Множитель");
    QCOMPARE(Values(holdingData.GetStrProps()).mid(4),
             (QStringList{"Да", "Одиночная", "Старший байт", "-", "0", "0", "Множитель", "Константа"}));
    holdingData.Set_ValType(L"Бит0");
    QCOMPARE(Values(holdingData.GetStrProps()).at(10), QString("-"));
    QCOMPARE(Values(holdingData.GetStrProps()).at(6), QString("Бит0"));
}

void TestLevels::tagDuplicatesAndSeries()
{
    CGroupInfo group;
    CDATagInfo* a = MakeTag(&group, "a", L"Входной регистр", L"Бит15");
    a->Addr = 65535;
    CDATagInfo b(a);
    QVERIFY(a->IsDublicate(&b));
    b.ByteOrder = 0;
    b.bRead = false;
    QVERIFY(a->IsDublicate(&b));
    b.SegmentPos = 1;
    QVERIFY(!a->IsDublicate(&b));

    // A discrete tag's value type still counts.
    CDATagInfo* d1 = MakeTag(&group, "d1", L"Входное состояние", L"Цел16");
    CDATagInfo d2(d1);
    QVERIFY(d1->IsDublicate(&d2));
    d2.ValType = MVT_UInt32;
    QVERIFY(!d1->IsDublicate(&d2));
    QVERIFY(group.HasChildDublicate(&b, nullptr) == false);
    b.SegmentPos = 0;
    QVERIFY(group.HasChildDublicate(&b, nullptr));

    QVERIFY(a->MakeNextSettings());
    QCOMPARE(a->ValType, MVT_Bit0);
    QCOMPARE(a->Addr, uint16_t(1));
    a->MakeNextSettings();
    QCOMPARE(a->ValType, en_ModbusValType(9));
    QCOMPARE(a->Addr, uint16_t(1));

    CDATagInfo real;
    real.Addr = 10;
    real.MakeNextSettings();
    QCOMPARE(real.Addr, uint16_t(11));
    real.ValType = MVT_Real64;
    real.Addr = 65535;
    real.MakeNextSettings();
    QCOMPARE(real.Addr, uint16_t(1));

    CDATagInfo discrete;
    discrete.RegType = MRT_Coil;
    discrete.ValType = MVT_UInt16;
    discrete.Addr = 65535;
    discrete.MakeNextSettings();
    QCOMPARE(discrete.Addr, uint16_t(0));

    CDATagInfo odd;
    odd.RegType = static_cast<en_ModbusRegType>(9);
    odd.Addr = 3;
    QVERIFY(odd.MakeNextSettings());
    QCOMPARE(odd.Addr, uint16_t(3));
}

void TestLevels::transformations()
{
    CTransform_LineScaleData scale;
    QCOMPARE(scale.SrcMin, 0.0f);
    QCOMPARE(scale.SrcMax, 1000.0f);
    QCOMPARE(scale.DstMax, 1000.0f);
    scale.VarType = VT_I2;
    QVERIFY(scale.Validate_SrcMin(L"-32768"));
    QVERIFY(!scale.Validate_SrcMin(L"32768"));
    scale.VarType = VT_R4;
    QVERIFY(scale.Validate_SrcMax(L"10000000"));
    QVERIFY(!scale.Validate_SrcMax(L"10000001"));
    scale.VarType = VT_BOOL;
    QVERIFY(scale.Validate_SrcMax(L"1"));
    QVERIFY(!scale.Validate_SrcMax(L"2"));
    QVERIFY(!scale.Validate_SrcMax(L"-1"));
    // The 32-bit cut of the VT_UI4 maximum leaves nothing.
    scale.VarType = VT_UI4;
    QVERIFY(!scale.Set_SrcMin(L"0"));
    QVERIFY(!scale.Validate_SrcMax(L"1"));

    // Checked as a whole number, stored as a float.
    scale.VarType = VT_UI2;
    QVERIFY(scale.Set_SrcMin(L"0.5"));
    QCOMPARE(scale.SrcMin, 0.5f);
    QVERIFY(scale.Set_DstMax(L"-1e30"));
    QCOMPARE(scale.DstMax, -1e30f);
    QVERIFY(scale.Set_DstMax(L"abc"));
    QCOMPARE(scale.DstMax, 0.0f);
    QVERIFY(scale.Set_DstMin(L"2.5"));

    CTransform_LineScaleData copy(&scale);
    QCOMPARE(copy.SrcMin, 0.5f);
    QCOMPARE(copy.DstMin, 2.5f);
    QCOMPARE(copy.VarType, VT_R4);

    CTransform_FactorData factor;
    QCOMPARE(factor.Factor, 1.0f);
    for (const wchar_t* ok : {L"100000", L"-100000", L"0.001"})
        QVERIFY(factor.Validate_Factor(ok));
    for (const wchar_t* bad : {L"0", L"100000.5", L"", L"x", L"-0"})
        QVERIFY(!factor.Validate_Factor(bad));
    QVERIFY(factor.Set_Factor(L"2.5"));
    QVERIFY(!factor.Set_Factor(L"0"));
    QCOMPARE(CTransform_FactorData(&factor).Factor, 2.5f);

    CDATagInfo tag;
    tag.TransformType = TT_Factor;
    tag.Transform = CDATagInfo::New_Transform(TT_Factor, &factor);
    CDATagInfo tagCopy(&tag);
    auto* copied = dynamic_cast<CTransform_FactorData*>(tagCopy.Transform);
    QVERIFY(copied && copied != tag.Transform);
    QCOMPARE(copied->Factor, 2.5f);
    QVERIFY(!CDATagInfo::New_Transform(TT_None, nullptr));
    QVERIFY(!CDATagInfo::New_Emul(static_cast<en_EmulType>(3), nullptr));
}

void TestLevels::emulations()
{
    CEmulData_Const value;
    QCOMPARE(value.Const.vt, VT_R8);
    QCOMPARE(value.Const.dblVal, 0.0);
    value.Const.vt = VT_BOOL;
    QVERIFY(value.Validate_Const(L"1"));
    QVERIFY(!value.Validate_Const(L"2"));
    value.Const.vt = VT_UI1;
    QVERIFY(value.Validate_Const(L"255"));
    value.Const.vt = VT_I2;
    QVERIFY(!value.Validate_Const(L"40000"));
    value.Const.vt = VT_UI4;
    QVERIFY(value.Validate_Const(L"4294967295"));
    QVERIFY(!value.Validate_Const(L"-1"));
    value.Const.vt = VT_R8;
    QVERIFY(value.Validate_Const(L"1000000000"));
    QVERIFY(!value.Validate_Const(L"1000000000.5"));
    value.Const.vt = VT_R4;
    QVERIFY(value.Validate_Const(L"-10000000"));
    QVERIFY(!value.Validate_Const(L"10000001"));
    // VT_INT is an integer type without a range of its own; code 8 is no number at all.
    value.Const.vt = VT_INT;
    QVERIFY(value.Validate_Const(L"0"));
    QVERIFY(!value.Validate_Const(L"1"));
    value.Const.vt = 8;
    QVERIFY(!value.Validate_Const(L"0"));

    value.Const.vt = VT_I2;
    QVERIFY(value.Set_Const(L"7"));
    QCOMPARE(value.Const.vt, VT_R8);
    QCOMPARE(value.Const.dblVal, 7.0);
    value.Const.vt = VT_I2;
    QVERIFY(!value.Set_Const(L"40000"));
    QCOMPARE(value.Const.vt, VT_I2);
    QCOMPARE(value.Const.dblVal, 7.0);
    QCOMPARE(CEmulData_Const(&value).Const.dblVal, 7.0);

    CEmulData_Sin sine;
    QCOMPARE(sine.Period, 1u);
    QVERIFY(!sine.Validate_Period(L"0"));
    QVERIFY(!sine.Validate_Period(L"61"));
    QVERIFY(sine.Set_Period(L"60"));
    QCOMPARE(CEmulData_Sin(&sine).Period, 60u);
    // A record of another kind gives the defaults.
    QCOMPARE(CEmulData_Sin(&value).Period, 1u);

    CEmulData_Random random(&sine);
    const tagVARIANT any;
    QVERIFY(random.Emulate(nullptr, any));
    QVERIFY(sine.Emulate(nullptr, any));
    QVERIFY(value.Emulate(nullptr, any));
}

QTEST_GUILESS_MAIN(TestLevels)
#include "tst_levels.moc"
