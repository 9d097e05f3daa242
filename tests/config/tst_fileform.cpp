// The scrambled form, the tail helpers and the cutting of text into rows.
#include "config/configtail.h"
#include "config/configwriter.h"
#include "config/csvimporter.h"
#include "config/rowsplitter.h"
#include "config/scrambler.h"
#include "model/treeitemroot.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

namespace {

QByteArray ReadBytes(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

const QString kData = QStringLiteral(VELMORA_TEST_DATA);
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

class TestFileForm : public QObject
{
    Q_OBJECT

private slots:
    void rule();
    void handWrittenFile();
    void tailCut();
    void cellsAndRows();
};

void TestFileForm::rule()
{
    QCOMPARE(CScrambler::Encode(QStringLiteral(";1\nа")), QByteArray("\xC3\x84\xC3\x8E\xC3\xB5\xD3\x8F"));
    QCOMPARE(CScrambler::Char(0x1F600), char32_t(0x1F6FF));
    // Outside the BMP the file form works on the halves of the surrogate pair.
    const QString emoji = QString::fromUcs4(U"\U0001F600", 1);
    QCOMPARE(CScrambler::CharOfUtf16(0x1F600), CScrambler::Applied(emoji).toUcs4().value(0));
    QCOMPARE(CScrambler::CharOfUtf16(CScrambler::CharOfUtf16(0x1F600)), char32_t(0x1F600));

    // The rule undoes itself over the whole BMP.
    QString all;
    for (char32_t c = 0; c <= 0xFFFF; ++c)
        all.append(QChar(static_cast<char16_t>(c)));
    const QString once = CScrambler::Applied(all);
    QVERIFY(once.size() == all.size() && once != all);
    QCOMPARE(CScrambler::Applied(once), all);
}

void TestFileForm::handWrittenFile()
{
    const QByteArray disk = ReadBytes(kData + "/worked_example.cfg");
    const QByteArray plain = ReadBytes(kData + "/worked_example.csv");
    QString clear;
    QVERIFY(CScrambler::ReadFile(kData + "/worked_example.cfg", clear));
    QCOMPARE(clear, QString::fromUtf8(plain) + kTail);
    QVERIFY(!CScrambler::ReadFile(kData + "/no such file.cfg", clear));
    // A hand-written file with both blocks.
    QString withUsers, t, u;
    QVERIFY(CScrambler::ReadFile(kData + "/with_users.cfg", withUsers) && CConfigTail::Cut(withUsers, t, u));
    QCOMPARE(t, QString::fromUtf8(plain));
    QCOMPARE(CConfigTail::UsersList(withUsers), QStringLiteral("оператор;пароль1;admin;a;b;"));

    // The scrambled save of the tree is the hand-written file without its
    // tail; written back through the clear text, the full file is reproduced.
    QTemporaryDir dir;
    const QString path = dir.filePath("saved.cfg");
    CTreeItemRoot root;
    QVERIFY(CCsvLoader(&root).Load((kData + "/worked_example.csv").toStdString(), true));
    QCOMPARE(CConfigWriter::Save(root, path, false), CConfigWriter::Saved);
    QCOMPARE(ReadBytes(path), disk.left(disk.size() - CScrambler::Encode(kTail).size()));
    QVERIFY(CScrambler::WriteFile(path, clear));
    QCOMPARE(ReadBytes(path), disk);
    QVERIFY(!CScrambler::WriteFile(dir.filePath("no/such/folder.cfg"), QStringLiteral("x")));
}

void TestFileForm::tailCut()
{
    const QString tree = QStringLiteral("CHANNEL;1\n;c\n");
    const QString ini = QStringLiteral("INIFILE\n\n[options]\nport = 1\n");
    const QString users = QStringLiteral("USERS\n\n[users]\nusers = a;1;b;2;");
    // The marker needs its empty line: a tag called INIFILE is no tail.
    const std::tuple<QString, QString, QString> cases[] = {{tree + ini + users, tree, users},
                                                           {tree + users, tree, users},
                                                           {";INIFILE;x\n" + ini, ";INIFILE;x\n", ""}};
    QString t, u;
    for (const auto& [text, wantTree, wantUsers] : cases) {
        QVERIFY(CConfigTail::Cut(text, t, u));
        QCOMPARE(t, wantTree);
        QCOMPARE(u, wantUsers);
    }
    t = QStringLiteral("kept");
    QVERIFY(!CConfigTail::Cut(tree + users + ini, t, u));
    QCOMPARE(t, QStringLiteral("kept"));
    QVERIFY(CConfigTail::UsersList("USERS\n\n[us").isEmpty());
}

void TestFileForm::cellsAndRows()
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
        {"whole cells", L";INIFILE2;users\n", false, {{L"", L"INIFILE2", L"users"}}}};
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

QTEST_GUILESS_MAIN(TestFileForm)
#include "tst_fileform.moc"
