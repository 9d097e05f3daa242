// The scrambled form, the tail helpers and the cutting of text into rows.
#include "config/configtail.h"
#include "config/rowsplitter.h"
#include "config/scrambler.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

namespace {

QByteArray ReadBytes(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void WriteBytes(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(f.write(bytes), bytes.size());
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
    void handWrittenFileDecodes();
    void scrambleFileMatchesHandWrittenFile();
    void tailCut();
    void cellsAndRows();
    void stopWordsOnlyInScrambledForm();
};

void TestFileForm::rule()
{
    QCOMPARE(CScrambler::Char(U'\n'), char32_t(0xF5));
    QCOMPARE(CScrambler::Char(U';'), char32_t(0xC4));
    QCOMPARE(CScrambler::Char(U'1'), char32_t(0xCE));
    QCOMPARE(CScrambler::Char(U'а'), char32_t(0x4CF));
    QCOMPARE(CScrambler::Char(0x1F600), char32_t(0x1F6FF));
    // Outside the BMP the file form works on the halves of the surrogate pair.
    const QString emoji = QString::fromUcs4(U"\U0001F600", 1);
    QCOMPARE(CScrambler::CharOfUtf16(0x1F600), CScrambler::Applied(emoji).toUcs4().value(0));
    QCOMPARE(CScrambler::CharOfUtf16(CScrambler::CharOfUtf16(0x1F600)), char32_t(0x1F600));
    QCOMPARE(CScrambler::CharOfUtf16(U'\n'), char32_t(0xF5));

    QCOMPARE(CScrambler::Encode(QStringLiteral("\n")), QByteArray("\xC3\xB5"));
    QCOMPARE(CScrambler::Encode(QStringLiteral(";")), QByteArray("\xC3\x84"));
    QCOMPARE(CScrambler::Encode(QStringLiteral("1")), QByteArray("\xC3\x8E"));
    QCOMPARE(CScrambler::Encode(QStringLiteral("а")), QByteArray("\xD3\x8F"));
    // No line structure survives on disk.
    QVERIFY(!CScrambler::Encode(QStringLiteral("a;b\nc;d\n")).contains('\n'));

    QString all;
    for (char32_t c = 0; c <= 0xFFFF; ++c)
        all.append(QChar(static_cast<char16_t>(c)));
    const QString once = CScrambler::Applied(all);
    QCOMPARE(once.size(), all.size());
    QVERIFY(once != all);
    QCOMPARE(CScrambler::Applied(once), all);
    QVERIFY(CScrambler::Applied(QString()).isEmpty());
    QVERIFY(CScrambler::Encode(QString()).isEmpty());
    QVERIFY(CScrambler::Decode(QByteArray()).isEmpty());
}

void TestFileForm::handWrittenFileDecodes()
{
    const QByteArray disk = ReadBytes(kData + "/worked_example.cfg");
    const QString plain = QString::fromUtf8(ReadBytes(kData + "/worked_example.csv"));
    QVERIFY(!disk.isEmpty());
    QVERIFY(!plain.isEmpty());

    QString clear;
    QVERIFY(CScrambler::ReadFile(kData + "/worked_example.cfg", clear));
    QCOMPARE(clear, plain + kTail);
    QCOMPARE(CScrambler::Encode(clear), disk);
    QVERIFY(!CScrambler::ReadFile(kData + "/no such file.cfg", clear));
}

void TestFileForm::scrambleFileMatchesHandWrittenFile()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("saved.cfg");
    QByteArray plain = ReadBytes(kData + "/worked_example.csv");
    // A stray CRLF, as an editor may leave it, comes out as a bare LF.
    plain.replace("\n", "\r\n");
    WriteBytes(path, plain);
    QVERIFY(CScrambler::ScrambleFile(path));

    const QByteArray disk = ReadBytes(kData + "/worked_example.cfg");
    const QByteArray tail = CScrambler::Encode(kTail);
    QVERIFY(disk.endsWith(tail));
    QCOMPARE(ReadBytes(path), disk.left(disk.size() - tail.size()));

    // Written back through the clear text, the full file is reproduced.
    QString clear;
    QVERIFY(CScrambler::ReadFile(kData + "/worked_example.cfg", clear));
    QVERIFY(CScrambler::WriteFile(path, clear));
    QCOMPARE(ReadBytes(path), disk);

    WriteBytes(path, QByteArray());
    QVERIFY(CScrambler::ScrambleFile(path));
    QVERIFY(ReadBytes(path).isEmpty());

    QVERIFY(!CScrambler::ScrambleFile(dir.filePath("missing.cfg")));
    QVERIFY(!QFile::exists(dir.filePath("missing.cfg")));
    QVERIFY(!CScrambler::WriteFile(dir.filePath("no/such/folder.cfg"), QStringLiteral("x")));
}

void TestFileForm::tailCut()
{
    const QString tree = QStringLiteral("CHANNEL;1\n;c\n");
    const QString ini = QStringLiteral("INIFILE\n\n[options]\nport = 1\n");
    const QString users = QStringLiteral("USERS\n\n[users]\nusers = a;1;b;2;");
    QString t, u;

    QVERIFY(CConfigTail::Cut(tree + ini + users, t, u));
    QCOMPARE(t, tree);
    QCOMPARE(u, users);
    QVERIFY(CConfigTail::Cut(tree + ini, t, u));
    QCOMPARE(t, tree);
    QVERIFY(u.isEmpty());
    QVERIFY(CConfigTail::Cut(tree + users, t, u));
    QCOMPARE(t, tree);
    QCOMPARE(u, users);
    QVERIFY(CConfigTail::Cut(tree, t, u));
    QCOMPARE(t, tree);
    QVERIFY(u.isEmpty());

    // The marker needs its empty line: a tag called INIFILE is no tail.
    QVERIFY(CConfigTail::Cut(QStringLiteral(";INIFILE;x\n") + ini, t, u));
    QCOMPARE(t, QStringLiteral(";INIFILE;x\n"));

    t = QStringLiteral("kept");
    QVERIFY(!CConfigTail::Cut(tree + users + ini, t, u));
    QCOMPARE(t, QStringLiteral("kept"));

    QCOMPARE(CConfigTail::UsersList(tree + ini + users), QStringLiteral("a;1;b;2;"));

    // A hand-written file with both blocks.
    QString clear;
    QVERIFY(CScrambler::ReadFile(kData + "/with_users.cfg", clear));
    QVERIFY(CConfigTail::Cut(clear, t, u));
    QCOMPARE(t, QString::fromUtf8(ReadBytes(kData + "/worked_example.csv")));
    QVERIFY(u.startsWith(CConfigTail::UsersMarker + CConfigTail::UsersHeader));
    QCOMPARE(CConfigTail::UsersList(clear), QStringLiteral("оператор;пароль1;admin;a;b;"));
    QVERIFY(CConfigTail::UsersList(tree + ini).isEmpty());
    QVERIFY(CConfigTail::UsersList(QStringLiteral("USERS\n\n[us")).isEmpty());
}

void TestFileForm::cellsAndRows()
{
    using Rows = CRowSplitter::Rows;
    QCOMPARE(Split(L";a;", true), (Rows{{L"", L"a"}}));
    QCOMPARE(Split(L"a;;", true), (Rows{{L"a", L""}}));
    QCOMPARE(Split(L";", true), (Rows{{L""}}));
    QCOMPARE(Split(L";;", true), (Rows{{L"", L""}}));
    // Blank rows stay, as rows without cells; nothing behind the last LF is no row.
    QCOMPARE(Split(L"A\n\n;b\n", true), (Rows{{L"A"}, {}, {L"", L"b"}}));
    QCOMPARE(Split(L"A\n;b", true), (Rows{{L"A"}, {L"", L"b"}}));
    QCOMPARE(Split(L"", true), Rows{});
    // Cells are taken as they stand.
    QCOMPARE(Split(L" a ;B", true), (Rows{{L" a ", L"B"}}));
    // Carriage returns go in the plain form only.
    QCOMPARE(Split(L";a\r\n;b\r", true), (Rows{{L"", L"a"}, {L"", L"b"}}));
    QCOMPARE(Split(L";a\r\n", false), (Rows{{L"", L"a\r"}}));

    // Buffers are reused after Clear without leaking cells of a longer row.
    CRowSplitter splitter(true);
    QVERIFY(splitter.AddLine(L"a;b;c;d", 7));
    splitter.Clear();
    QVERIFY(splitter.AddLine(L";x", 2));
    QVERIFY(splitter.AddLine(L"", 0));
    QCOMPARE(splitter.Count(), size_t(2));
    QCOMPARE(splitter.Buffer()[0], (CRowSplitter::Row{L"", L"x"}));
    QVERIFY(splitter.Buffer()[1].empty());
}

void TestFileForm::stopWordsOnlyInScrambledForm()
{
    using Rows = CRowSplitter::Rows;
    const std::wstring text = L"CHANNEL;1\n;c\nDEVICE;1\n;USERS;1\n;after\n";
    QCOMPARE(Split(text, false), (Rows{{L"CHANNEL", L"1"}, {L"", L"c"}, {L"DEVICE", L"1"}}));
    QCOMPARE(Split(text, true).size(), size_t(5));
    QCOMPARE(Split(L"INIFILE\n\n[options]\n", false), Rows{});
    QCOMPARE(Split(L";a\n[users]\n", false), (Rows{{L"", L"a"}}));
    QCOMPARE(Split(L";a\n;b;[options]\n", false), (Rows{{L"", L"a"}}));
    // Only whole cells count.
    QCOMPARE(Split(L";INIFILE2;users\n", false), (Rows{{L"", L"INIFILE2", L"users"}}));
}

QTEST_GUILESS_MAIN(TestFileForm)
#include "tst_fileform.moc"
