// The configuration file: its scrambled form, rows and tail, and reading and
// writing it through CCsvLoader.
#include "config/configtail.h"
#include "config/configwriter.h"
#include "config/csvimporter.h"
#include "config/rowsplitter.h"
#include "config/scrambler.h"
#include "model/cchannelinfo.h"
#include "model/dataginfo.h"
#include "model/emuldata_sin.h"
#include "model/portio_tcpinfo.h"
#include "model/transform_linescaledata.h"
#include "model/treeitemroot.h"
#include "model/usernotifier.h"
#include "tests/common/testfiles.h"

#include <QtTest>

#include <sstream>

namespace {

const QString kData = QStringLiteral(VELMORA_TEST_DATA);

const QString kChannelHead = QStringLiteral("CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n");
const QString kCom1 = QStringLiteral(";Ch_A;COM-порт;MODBUS RTU;500;3;0;1;9600;8;1;Нет;Нет;Нет;Нет\n");
const QString kCom2 = QStringLiteral(";Ch_B;COM-порт;MODBUS RTU;500;3;0;2;9600;8;1;Нет;Нет;Нет;Нет\n");
const QString kDevice = QStringLiteral("DEVICE;1;2;3;4;5;6;7\n;Dev;1;Нет;125;2000;0;Да\n");
const QString kGroup = QStringLiteral("GROUP;1;2;3\n;Grp;50;мс\n");
const QString kTagHead = QStringLiteral("TAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n");
const QString kTag = QStringLiteral(";T;Входной регистр;1;0;0;Да;;;Вещ32;BA DC;Нет;;;;;Константа;0\n");

QString ExportText(CTreeItemRoot& root)
{
    std::wostringstream out;
    CCsvLoader writer(&root);
    writer.Export(out);
    return QString::fromStdWString(out.str());
}

CItem* Child(CItem* parent, const char* name)
{
    return parent ? parent->FindChildByName(name) : nullptr;
}

const QString kTail =
    QStringLiteral("INIFILE\n\n[options]\nport = 4840\nlog = warning\nallowanonimus = true\n"
                   "derFile = \npemFile = \ntrustFolder = \n");

// Lines as the reader hands them over: nothing behind a final LF.
CRowSplitter::Rows Split(const std::wstring& text, bool plain)
{
    CRowSplitter splitter(plain);
    size_t start = 0;
    while (start < text.size()) {
        size_t lf = text.find(L'\n', start);
        if (lf == std::wstring::npos)
            lf = text.size();
        if (!splitter.AddLine(text.data() + start, lf - start))
            break;
        start = lf + 1;
    }
    return CRowSplitter::Rows(splitter.Buffer().begin(), splitter.Buffer().begin() + splitter.Count());
}

} // namespace

class TestCsvLoader : public QObject
{
    Q_OBJECT

private slots:
    void workedExample();
    void failureTableKeepsWhatItCould();
    void headerStateMachine();
    void duplicatesAndTakenNames();
    void scrambledStopWordsAndOddBytes();
    void rowsBeyondOneSlice();
    void writerForms();
    void handWrittenFile();
    void cellsAndRows();

private:
    bool LoadText(CTreeItemRoot& root, const QString& text, bool plain, CCsvLoader* loader = nullptr);
    std::string Write(const char* name, const QByteArray& bytes);
    QTemporaryDir m_dir;
};

std::string TestCsvLoader::Write(const char* name, const QByteArray& bytes)
{
    return writeFile(m_dir.filePath(name), bytes).toStdString();
}

bool TestCsvLoader::LoadText(CTreeItemRoot& root, const QString& text, bool plain, CCsvLoader* loader)
{
    const std::string path =
        plain ? Write("in.csv", text.toUtf8()) : Write("in.cfg", CScrambler::Encode(text));
    CCsvLoader own(&root);
    return (loader ? loader : &own)->Load(path, plain);
}

void TestCsvLoader::workedExample()
{
    CTreeItemRoot root;
    QVERIFY(CCsvLoader(&root).Load((kData + "/worked_example.csv").toStdString(), true));
    QCOMPARE(root.size(), 2u);

    // Writing back checks the plain values; here what a symmetric slip in
    // reader and writer would hide: bytes of the address, positions, records.
    auto* tcp = dynamic_cast<CChannelInfo*>(Child(&root, "Channel_1"));
    auto* tcpPort = tcp ? dynamic_cast<CPortIO_TCPInfo*>(tcp->Port) : nullptr;
    QVERIFY(tcpPort && tcpPort->IP == ((10u << 24) | (168u << 8) | 192u));
    CItem* group = Child(Child(Child(&root, "Channel_0"), "Device_0"), "Group_0");
    auto* t0 = dynamic_cast<CDATagInfo*>(Child(group, "Tag_0"));
    QVERIFY(t0 && t0->ByteOrder == 2);
    auto* t1 = dynamic_cast<CDATagInfo*>(Child(group, "Tag_1"));
    auto* scale = t1 ? dynamic_cast<CTransform_LineScaleData*>(t1->Transform) : nullptr;
    QVERIFY(scale && scale->DstMax == 10.0f && scale->VarType == VT_UI2);
    auto* sine = dynamic_cast<CEmulData_Sin*>(t1->Emul);
    QVERIFY(sine && sine->Period == 60);

    // Written back byte for byte; the scrambled forms, with their tails, describe the same tree.
    const QString out = m_dir.filePath("out.csv");
    CCsvLoader writer(&root);
    QVERIFY(writer.Export(out.toStdString()) && writer.m_Done == 7u);
    QCOMPARE(readFile(out), readFile(kData + "/worked_example.csv"));
    for (const char* name : {"/worked_example.cfg", "/with_users.cfg"}) {
        CTreeItemRoot fromCfg;
        QVERIFY(CCsvLoader(&fromCfg).Load((kData + name).toStdString(), false));
        QCOMPARE(ExportText(fromCfg), ExportText(root));
    }
}

void TestCsvLoader::failureTableKeepsWhatItCould()
{
    const QString good = kChannelHead + kCom1 + kDevice + kGroup + kTagHead + kTag;
    {
        CTreeItemRoot root;
        for (bool plain : {true, false}) {
            QVERIFY(!CCsvLoader(&root).Load(m_dir.filePath("absent.csv").toStdString(), plain));
            QVERIFY(!CCsvLoader(&root).Load(m_dir.path().toStdString(), plain));
            QVERIFY(!LoadText(root, QString(), plain));
        }
        QVERIFY(!LoadText(root, QStringLiteral("USERS\n\n[users]\nusers = a;1;\n") + good, false));
        QVERIFY(root.empty());
    }
    {
        // One header row and nothing under it is a good, empty file.
        CTreeItemRoot root;
        QVERIFY(LoadText(root, kChannelHead, true) && root.empty());
        // Text behind the last LF is a row, in both forms.
        QVERIFY(LoadText(root, kChannelHead + kCom1.chopped(1), true));
        QVERIFY(LoadText(root, kChannelHead + kCom2.chopped(1), false));
        QCOMPARE(root.size(), 2u);
    }
    // Text, the row error the user sees (empty: not checked), channels and tags kept.
    const QString a = kChannelHead + kCom1 + kDevice, head = a + kGroup + kTagHead;
    const QString tag = QStringLiteral(";T;Входной регистр;1;0;0;Да;;;");
    const std::tuple<QString, const char*, int, int> cases[] = {
        {"CHANEL;1\n" + good, "", 1, 1},
        {head + tag + "Вещ32;BA DC;Нет;;;;;Константа\n",
         "Строка 7: несоответствие количества полей: реальное <16> ожидаемое <17>.", 1, 0},
        // A bad group in the first channel leaves the second intact.
        {a + "GROUP;1;2;3\n;G;25;ч\n" + kTagHead + kTag + "DEVICE;1\n;Dev9;9;Нет;125;2000;0;Да\n" +
             kChannelHead + kCom2 + kDevice + kGroup + kTagHead + kTag,
         "Строка 5: ошибка поля <1>.", 2, 1},
        {kChannelHead + ";C;TCP-соединение;MODBUS TCP;500;3\n",
         "Строка 1: несоответствие количества полей: реальное <5> ожидаемое <6>.", 0, 0},
        // A byte-order mark makes the first row no keyword.
        {QChar(0xFEFF) + good, "", 0, 0},
        // One cell too many, and a megabyte on one line: a bad row each.
        {head + kTag.chopped(1) + ";x;y;z\n",
         "Строка 7: несоответствие количества полей: реальное <18> ожидаемое <17>.", 1, 0},
        {good + ";" + QString(1 << 20, 'x') + "\n", "", 1, 1},
    };
    for (const auto& [text, error, channels, tags] : cases) {
        CTreeItemRoot root;
        CCsvLoader loader(&root);
        QVERIFY2(!LoadText(root, text, true, &loader), qPrintable(text.left(60)));
        if (*error)
            QCOMPARE(QString::fromStdString(loader.LastRowError()), QString::fromUtf8(error));
        QVERIFY2(int(root.size()) == channels && int(root.GetItemsCount(itTag)) == tags,
                 qPrintable(text.left(60)));
    }

    // CRLF line ends are no fault of the plain form.
    CTreeItemRoot root;
    QVERIFY(LoadText(root, QString(good).replace("\n", "\r\n"), true));
    QCOMPARE(root.GetItemsCount(itTag), 1u);
}

void TestCsvLoader::headerStateMachine()
{
    CTreeItemRoot root;
    CCsvLoader loader(&root);
    // Row, verdict, then the section and status it leaves (0: not checked).
    const std::tuple<const wchar_t*, bool, int, int> steps[] = {
        {L"TAG", false, 0, 2},   {L"", false, 0, 0},       {L"GROUP", false, 0, 0}, {L"CHANNEL", true, 1, 1},
        {L"TAG", false, 0, 2},   {L"CHANNEL", true, 0, 0}, {L"GROUP", true, 2, 0},  {L"TAG", true, 4, 0},
        {L"DEVICE", true, 3, 0}, {L"Channel", false, 0, 1}};
    QVERIFY(loader.Analyse({}));
    for (const auto& [cell, ok, section, status] : steps) {
        QVERIFY2(loader.Analyse(*cell ? CCsvLoader::Row{cell} : CCsvLoader::Row{L"", L"x"}) == ok,
                 qPrintable(QString::fromWCharArray(cell)));
        QVERIFY(!section || loader.m_Section == section);
        QVERIFY(!status || loader.m_Status == status);
    }

    // Several data rows under one header; blank rows in between count as rows.
    CTreeItemRoot many;
    CCsvLoader manyLoader(&many);
    QVERIFY(LoadText(many, kChannelHead + kCom1 + "\n" + kCom2 + kDevice + ";Dev2;2;Нет;125;2000;0;Да\n",
                     true, &manyLoader));
    QVERIFY(many.size() == 2 && Child(&many, "Ch_B")->size() == 2);
    QCOMPARE(manyLoader.m_RowIndex, 6u);

    // A GROUP straight behind a channel row joins the last device read.
    CTreeItemRoot late;
    QVERIFY(LoadText(late, kChannelHead + kCom1 + kDevice + kChannelHead + kCom2 + kGroup, true));
    QCOMPARE(Child(Child(&late, "Ch_A"), "Dev")->size(), 1u);
    QVERIFY(Child(&late, "Ch_B")->empty());
}

void TestCsvLoader::duplicatesAndTakenNames()
{
    // Warning boxes of the reader, as they would reach the user.
    QStringList warnings;
    CUserNotifier::Install(
        [&warnings](const QString& title, const QString& text) { warnings << title + "|" + text; });
    const auto uninstall = qScopeGuard([] { CUserNotifier::Install(nullptr); });
    CTreeItemRoot root;
    CCsvLoader loader(&root);
    const QString text = kChannelHead + kCom1 + QString(kCom1).replace("Ch_A", "Ch_C") + kChannelHead +
                         kCom2 + kDevice + QStringLiteral(";Dev2;1;Нет;125;2000;0;Да\n");
    QVERIFY(!LoadText(root, text, true, &loader));
    QVERIFY(root.size() == 2 && !Child(&root, "Ch_C") && Child(&root, "Ch_B")->size() == 1);
    QCOMPARE(warnings, (QStringList{QStringLiteral("Внимание|Обнаружено дублирование COM порта"),
                                    QStringLiteral("Внимание|Обнаружено дублирование устройства")}));

    // Two TCP channels on one address load silently.
    warnings.clear();
    CTreeItemRoot net;
    const QString tcp = QStringLiteral(";N1;TCP-соединение;MODBUS TCP;500;3;0;10.0.0.1;502;5000\n");
    QVERIFY(LoadText(net, kChannelHead + tcp + QString(tcp).replace("N1", "N2"), true) && net.size() == 2);

    // A second Ch_A with a free COM port but a taken name is read, kept
    // out of the tree with all that hangs on it, and nobody is told.
    CTreeItemRoot taken;
    QVERIFY(LoadText(taken,
                     kChannelHead + kCom1 + kDevice + kChannelHead + QString(kCom2).replace("Ch_B", "Ch_A") +
                         kDevice + QStringLiteral(";Dev2;2;Нет;125;2000;0;Да\n") + kGroup + kTagHead + kTag,
                     true));
    QVERIFY(taken.size() == 1 && Child(&taken, "Ch_A")->size() == 1 && taken.GetItemsCount(itTag) == 0);
    QVERIFY(warnings.isEmpty());
}

void TestCsvLoader::scrambledStopWordsAndOddBytes()
{
    const QString text = kChannelHead + kCom1 + kDevice + kGroup + kTagHead + kTag +
                         QStringLiteral("DEVICE;1\n;USERS;2;Нет;125;2000;0;Да\n") + kChannelHead + kCom2;
    CTreeItemRoot root;
    QVERIFY(LoadText(root, text, false));
    QVERIFY(root.size() == 1 && Child(&root, "Ch_A")->size() == 1 && root.GetItemsCount(itTag) == 1);
    // The plain form has no stop words: the same device is just a device.
    CTreeItemRoot plain;
    QVERIFY(LoadText(plain, text, true) && plain.size() == 2);

    // In a .cfg, bytes that aren't UTF-8 read as replacement characters, as
    // the rest of the program reads them; characters beyond the BMP pass.
    const QString emoji = QString::fromUcs4(U"\U0001F600", 1);
    const QString head = kChannelHead + kCom1 + kDevice + kGroup + kTagHead + QStringLiteral(";T");
    const QByteArray odd[] = {"\xFF", CScrambler::Encode(emoji)};
    const QString names[] = {QStringLiteral("T\uFF02"), QStringLiteral("T") + emoji};
    for (int i = 0; i < 2; ++i) {
        CTreeItemRoot tree;
        QVERIFY(CCsvLoader(&tree).Load(
            Write("odd.cfg", CScrambler::Encode(head) + odd[i] + CScrambler::Encode(kTag.mid(2))), false));
        CItem* group = Child(Child(Child(&tree, "Ch_A"), "Dev"), "Grp");
        QVERIFY(group && group->size() == 1);
        QCOMPARE(QString::fromStdString(group->begin()->first), names[i]);
    }

    CTreeItemRoot broken;
    QVERIFY(!CCsvLoader(&broken).Load(
        Write("broken.csv", (kChannelHead + kCom1).toUtf8() + ";Ch_\xC0\x80;COM-порт\n" + kCom2.toUtf8()),
        true));
    QCOMPARE(broken.size(), 1u);
}

void TestCsvLoader::rowsBeyondOneSlice()
{
    // Long files are analysed in slices; numbering and verdict run on across them.
    QString text = kChannelHead + kCom1 + kDevice + kGroup + kTagHead;
    for (int i = 0; i < 9000; ++i) {
        const int addr = i == 8000 ? 0 : 1 + i % 1000;
        text += QStringLiteral(";T%1;Входной регистр;%2;0;0;Да;;;Цел16;AB;Нет;;;;;Случайное число;\n")
                    .arg(i)
                    .arg(addr);
    }
    for (bool plain : {true, false}) {
        CTreeItemRoot root;
        CCsvLoader loader(&root);
        QVERIFY(!LoadText(root, text + QStringLiteral("USERS\n\n") + kChannelHead + kCom2, plain, &loader));
        QCOMPARE(root.GetItemsCount(itTag), 8999u);
        QCOMPARE(QString::fromStdString(loader.LastRowError()),
                 QStringLiteral("Строка 8007: ошибка поля <3>."));
        QCOMPARE(root.size(), plain ? 2u : 1u);
    }
}

void TestCsvLoader::writerForms()
{
    CTreeItemRoot root;
    QVERIFY(CCsvLoader(&root).Export(m_dir.filePath("empty.csv").toStdString()));
    QVERIFY(readFile(m_dir.filePath("empty.csv")).isEmpty());

    const QString stateTag =
        QStringLiteral(";B;Входное состояние;9;0;0;Да") + QString(10, ';') + "Синусоида;5\n";
    QVERIFY(LoadText(
        root,
        kChannelHead + kCom1 + kDevice + QStringLiteral("GROUP;1\n;Empty;1;ч\n") + kGroup + kTagHead +
            QStringLiteral(";A;Выходной регистр;7;2;1;Нет;Нет;Одиночная;Цел16(знак);XX;Линейная шкала;"
                           "-100;100;0.5;1234567;Константа;0.5\n") +
            stateTag,
        true));
    const QString text = ExportText(root);
    // An empty group gets no TAG header.
    QVERIFY(text.contains(QStringLiteral("GROUP;1;2;3\n;Empty;1;ч\nGROUP")));
    // Byte order not in its row: stored as 255, written empty; reals in 6 digits.
    QVERIFY(text.contains(
        QStringLiteral(";A;Выходной регистр;7;2;1;Нет;Нет;Одиночная;Цел16(знак);;Линейная шкала;"
                       "-100;100;0.5;1.23457e+06;Константа;0.5\n")));
    QVERIFY(text.contains(stateTag));
}

void TestCsvLoader::handWrittenFile()
{
    // The rule, on the characters that carry the structure.
    QCOMPARE(CScrambler::Encode(QStringLiteral(";1\nа")), QByteArray("\xC3\x84\xC3\x8E\xC3\xB5\xD3\x8F"));
    QCOMPARE(CScrambler::Char(0x1F600), char32_t(0x1F6FF));
    const QByteArray disk = readFile(kData + "/worked_example.cfg");
    const QByteArray plain = readFile(kData + "/worked_example.csv");
    QString clear;
    QVERIFY(CScrambler::ReadFile(kData + "/worked_example.cfg", clear));
    QCOMPARE(clear, QString::fromUtf8(plain) + kTail);
    QVERIFY(!CScrambler::ReadFile(kData + "/no such file.cfg", clear));
    // A hand-written file with both blocks.
    QString withUsers, t, u;
    QVERIFY(CScrambler::ReadFile(kData + "/with_users.cfg", withUsers) && CConfigTail::Cut(withUsers, t, u));
    QCOMPARE(t, QString::fromUtf8(plain));
    QCOMPARE(CConfigTail::UsersList(withUsers), QStringLiteral("оператор;пароль1;admin;a;b;"));
    // The marker needs its empty line: a tag called INIFILE is no tail.
    QVERIFY(CConfigTail::Cut(";INIFILE;x\n" + kTail, t, u) && t == ";INIFILE;x\n");

    // The scrambled save of the tree is the hand-written file without its
    // tail; written back through the clear text, the full file is reproduced.
    QTemporaryDir dir;
    const QString path = dir.filePath("saved.cfg");
    CTreeItemRoot root;
    QVERIFY(CCsvLoader(&root).Load((kData + "/worked_example.csv").toStdString(), true));
    QCOMPARE(CConfigWriter::Save(root, path, false), CConfigWriter::Saved);
    QCOMPARE(readFile(path), disk.left(disk.size() - CScrambler::Encode(kTail).size()));
    QVERIFY(CScrambler::WriteFile(path, clear));
    QCOMPARE(readFile(path), disk);
    QVERIFY(!CScrambler::WriteFile(dir.filePath("no/such/folder.cfg"), QStringLiteral("x")));
}

void TestCsvLoader::cellsAndRows()
{
    using Rows = CRowSplitter::Rows;
    const std::wstring stop = L"CHANNEL;1\n;c\nDEVICE;1\n;USERS;1\n;after\n";
    const std::tuple<const char*, std::wstring, bool, Rows> cases[] = {
        {"trailing cell", L";a;", true, {{L"", L"a"}}},
        // Blank rows stay, as rows without cells.
        {"blank row", L"A\n\n;b\n", true, {{L"A"}, {}, {L"", L"b"}}},
        {"cells as they stand", L" a ;B", true, {{L" a ", L"B"}}},
        // Carriage returns go in the plain form only.
        {"CR plain", L";a\r\n;b\r", true, {{L"", L"a"}, {L"", L"b"}}},
        {"CR scrambled", L";a\r\n", false, {{L"", L"a\r"}}},
        // Stop words end the scrambled form, and only as whole cells.
        {"stop word", stop, false, {{L"CHANNEL", L"1"}, {L"", L"c"}, {L"DEVICE", L"1"}}},
        {"[options] cell", L";a\n;b;[options]\n", false, {{L"", L"a"}}},
        {"whole cells", L";INIFILE2;users\n", false, {{L"", L"INIFILE2", L"users"}}},
        // Past one cell too many the rest of a row isn't kept.
        {"too many cells", std::wstring(30, L';') + L"a", true, {Rows::value_type(19)}}};
    for (const auto& [name, text, plain, rows] : cases)
        QVERIFY2(Split(text, plain) == rows, name);

    // Buffers are reused after Clear without leaking cells of a longer row.
    CRowSplitter splitter(true);
    QVERIFY(splitter.AddLine(L"a;b;c;d", 7));
    splitter.Clear();
    QVERIFY(splitter.AddLine(L";x", 2) && splitter.AddLine(L"", 0) && splitter.Count() == 2);
    QCOMPARE(splitter.Buffer()[0], (CRowSplitter::Row{L"", L"x"}));
    QVERIFY(splitter.Buffer()[1].empty());
}

QTEST_GUILESS_MAIN(TestCsvLoader)
#include "tst_csvloader.moc"
