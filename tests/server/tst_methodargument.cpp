#include "server/methodargument.h"

#include <QtTest>

using A = CMethodArgument;

namespace {

A Parsed(A::Method m, const std::string& text)
{
    A a;
    std::string error;
    if (!A::Parse(m, text, a, error))
        qFatal("refused: %s: %s", text.c_str(), error.c_str());
    return a;
}

} // namespace

class TestMethodArgument : public QObject
{
    Q_OBJECT
private slots:
    void splitKeepsEmptyFieldsAndStopsAtNul()
    {
        using V = std::vector<std::string>;
        QCOMPARE(A::SplitFields(std::string("a;;b;\0;c", 8)), (V{"a", "", "b", ""}));
        // A delete takes the whole path, semicolons too, up to a NUL.
        QCOMPARE(Parsed(A::Method::Delete, std::string("Ch;x.Dev\0junk", 13)).path, std::string("Ch;x.Dev"));
    }

    void channelsAndGroups()
    {
        const A serial = Parsed(A::Method::Add, "Каналы;1;Линия;0;500;3;0;0;7;19200;8;2;2;1;3;1");
        QCOMPARE(serial.path, std::string("Каналы"));
        QCOMPARE(serial.kind, int(A::KindChannel));
        QCOMPARE(serial.name, std::string("Линия"));
        QCOMPARE(serial.Value(A::ChBaudRate), 19200);
        QCOMPARE(serial.Value(A::ChDtr), 1);

        // TCP: the address as one 32-bit number, three fields fewer.
        const A tcp = Parsed(A::Method::Edit, "Ch;1;Ch;1;500;3;0;2;167815360;502;5000");
        QCOMPARE(tcp.Value(A::ChIp), 167815360);
        QCOMPARE(tcp.Value(A::ChTimeoutConnect), 5000);

        // The largest group rate allowed depends on the unit.
        QCOMPARE(Parsed(A::Method::Add, "C.D;3;G;24;3").Value(A::GrRate), 24);
        QCOMPARE(Parsed(A::Method::Add, "C.D;3;G;86400000;0").Value(A::GrUnit), 0);
    }

    void deviceNumbersTravelAsCharacters()
    {
        const A dev = Parsed(A::Method::Add, "Ch;2;Dev;A;1;0;};\xdf\x90;\x05");
        QCOMPARE(dev.Value(A::DevAddr), 65);
        QCOMPARE(dev.Value(A::DevMaxDiscrets), 2000); // two UTF-8 bytes
        QCOMPARE(dev.Value(A::DevMaxFragmentation), 5);

        // Address 59 is ";" itself and splits into two empty fields.
        const A semi = Parsed(A::Method::Edit, "Ch.Dev;2;Dev;;;1;1;};\xdf\x90;\x05");
        QCOMPARE(semi.Value(A::DevAddr), 59);
        QCOMPARE(semi.Value(A::DevMaxFragmentation), 5);

        // Address 0 is a NUL: the text ends there and the address reads as 0.
        const A zero = Parsed(A::Method::Edit, std::string("Ch.Dev;2;Dev;") + '\0' + ";1;1;}");
        QCOMPARE(zero.Value(A::DevAddr), 0);
        QVERIFY(!zero.Has(A::DevExchange));
    }

    void tagFieldSixHasTwoForms()
    {
        // The adding worker writes decimal digits, the edit dialog a character code...
        QCOMPARE(Parsed(A::Method::Add, "C.D.G;4;T;3;40;0;3;1;1;0;2;1;1;1;2;2").Value(A::TagByteOrder), 3);
        QCOMPARE(Parsed(A::Method::Edit, "C.D.G.T;4;T;3;40;0;\x02;1;1;0;2;1;1;1;2;2").Value(A::TagByteOrder),
                 2);

        // ...and byte order 0 is a NUL: fields 0 to 5 arrive, the order reads 0.
        const A cut =
            Parsed(A::Method::Edit, std::string("C.D.G.T;4;T;3;40;1;") + '\0' + ";1;1;0;2;1;1;1;2;2");
        QCOMPARE(cut.Value(A::TagValType), 1);
        QCOMPARE(cut.Value(A::TagByteOrder), 0);
        QVERIFY(!cut.Has(A::TagRead) && !cut.Has(A::TagEmul));

        // Types without a byte order send 255: a character from the dialog, digits from the worker.
        QCOMPARE(
            Parsed(A::Method::Add, "C.D.G;4;T;3;40;16;\xc3\xbf;1;1;0;0;0;0;0;0;0").Value(A::TagByteOrder),
            255);
        QCOMPARE(Parsed(A::Method::Add, "C.D.G;4;T;0;40;23;255;1;1;0;0;0;0;0;0;0").Value(A::TagByteOrder),
                 255);

        // A paste sends the two leading fields only.
        const A paste = Parsed(A::Method::Add, "C.D.G;4");
        QVERIFY(paste.name.empty() && !paste.Has(A::TagRegType));

        // A cancelled add leaves its two fields in front of the next list, pastes pile up: the
        // last path and kind count.
        const A stale = Parsed(A::Method::Add, "C.D.G;4;C.D.G;4;T;3;40;0;\x02;1;1;0;2;1;1;1;2;2");
        QVERIFY(stale.path == "C.D.G" && stale.name == "T" && stale.Value(A::TagByteOrder) == 2);
        QCOMPARE(Parsed(A::Method::Add, "C.D.G.T1;4;C.D.G.T2;4").path, std::string("C.D.G.T2"));
        QCOMPARE(Parsed(A::Method::Add, "Каналы;1;Каналы;1;Л;0;500;3;0;0;7;19200;8;2;2;1;3;1").name,
                 std::string("Л"));

        // An edit the gateway refused stays in front of the next edit of its kind: the last one counts.
        const A group = Parsed(A::Method::Edit, "C.D.G;3;G2;25;3;C.D.G;3;G3;50;0");
        QVERIFY(group.name == "G3" && group.Value(A::GrRate) == 50);
        QCOMPARE(Parsed(A::Method::Edit, "Ch.Dev;2;D;A;1;0;};\xdf\x90;\x05;Ch.Dev;2;E;B;1;0;};\xdf\x90;\x05")
                     .Value(A::DevAddr),
                 66);
        QCOMPARE(
            Parsed(A::Method::Edit, "Ch;1;Ch;1;500;3;0;2;0;0;5000;Ch;1;Ch;1;500;3;0;2;167815360;502;5000")
                .Value(A::ChIpPort),
            502);
    }

    void malformedArgumentsAreRefused()
    {
        const std::pair<A::Method, std::string> cases[] = {
            {A::Method::Add, ""},
            {A::Method::Add, "Каналы"},
            {A::Method::Add, "Каналы;5;X"},
            {A::Method::Add, "C.D;3;G;50;0;extra"},
            {A::Method::Add, "C.D;3;" + std::string(65, 'g') + ";50;0"},
            {A::Method::Add, "C.D;3;\xff\xfe;50;0"}, // not UTF-8
            {A::Method::Delete, std::string("\0C", 2)},
            {A::Method::Add, "Каналы;1;Линия;0;500;3;0;0;7;19201;8;1;0;0;0;0"}, // no such baud rate
            {A::Method::Add, "Каналы;1;Линия;0;19;3;0;0;7;9600;8;1;0;0;0;0"},   // timeout below 20
            {A::Method::Add, "Каналы;1;Ли.ния;0;500;3;0;0;7;9600;8;1;0;0;0;0"}, // point in a name
            {A::Method::Add, "C.D;3;G;25;3"},
            {A::Method::Add, "Ch;2;Dev;AB;1;0;}"},                      // two characters
            {A::Method::Add, "Ch;2;Dev;A;1;0;~"},                       // 126 registers
            {A::Method::Add, "C.D.G;4;T;2;40;0;0;1;0;0;124;0;0;0;0;0"}, // registers: at most 123
            {A::Method::Add, "C.D.G;4;T;0;40;8;0;1;0;0;10;11;0;0;0;0"}, // position beyond segment
            {A::Method::Add, "C.D.G;4;T;3;40;0;4;1;1;0;2;1;1;1;2;2"},   // byte order 4
            {A::Method::Add, "C.D.G;4;T;3;40;0;3;2;1;0;2;1;1;1;2;2"},   // flag 2
            {A::Method::Add, "C.D.G;4;T;3;40;0;;1;1;0;2;1;1;1;2;2"},    // empty order mid-text
        };
        for (const auto& [method, text] : cases) {
            A a;
            std::string error;
            QVERIFY2(!A::Parse(method, text, a, error) && !error.empty(), text.c_str());
        }

        // A refusal names the field, what it held and why; a number sent as a character shows its code.
        const std::pair<std::string, const char*> told[] = {
            {"C.D.G;4;T;3;40;0;\x04;1;1;0;2;1;1;1;2;2",
             "поле 6 «Порядок байт» = «символ с кодом 4»: вне диапазона 0–3 (или 255 — нет порядка)"},
            {"C.D;3;G;25;3", "поле 3 «Период опроса» = «25»: больше 24 в этих единицах"},
            {"C.D.G;4;T;3;40;0;3;2;1;0;2;1;1;1;2;2", "поле 7 «Чтение» = «2»: ожидается 0 или 1"},
            {"C.D;3;G;50;0;extra", "полей больше, чем у элемента этого вида: 6 вместо 5"}};
        for (const auto& [text, reason] : told) {
            A a;
            std::string error;
            QVERIFY(!A::Parse(A::Method::Add, text, a, error));
            QCOMPARE(QString::fromStdString(error), QString(reason));
        }
    }
};

QTEST_GUILESS_MAIN(TestMethodArgument)
#include "tst_methodargument.moc"
