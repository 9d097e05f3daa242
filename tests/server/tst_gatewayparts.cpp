#include "config/csvimporter.h"
#include "model/treeitemroot.h"
#include "server/addressspace.h"
#include "server/gatewayconfig.h"
#include "server/tagruntime.h"
#include "server/treeeditor.h"

#include <open62541/plugin/log_stdout.h>
#include <open62541/server_config_default.h>

#include <QtTest>

#include <algorithm>
#include <cmath>

class TestGatewayParts : public QObject
{
    Q_OBJECT
private slots:
    // Emulation spans the raw range: the line scale's input, else what the tag dialog says.
    void emulationSpansTheRawRange()
    {
        const std::int64_t t0 = 1700000000000; // a whole number of 4 s periods
        const auto spread = [t0](const CTagRuntime& r, int samples) {
            QList<double> v;
            for (int i = 0; i < samples; ++i)
                v << r.RawAt(t0 + i * std::int64_t(r.updateMs));
            std::sort(v.begin(), v.end());
            return v;
        };
        CTagRuntime a;
        a.kind = CTagRuntime::UInt16;
        a.emulation = CTagRuntime::Random;
        a.transform = CTagRuntime::LineScale;
        a.srcMin = 27648; // a reversed range is a range all the same
        a.srcMax = 0;
        a.updateMs = 100;
        a.SetSeed("C.D.G.A");
        CTagRuntime b = a;
        b.SetSeed("C.D.G.B");
        QCOMPARE(a.RawAt(t0), a.RawAt(t0 + 99)); // one value per update period
        QVERIFY(a.RawAt(t0) != b.RawAt(t0));     // and its own per tag
        QList<double> v = spread(a, 2000);
        QVERIFY(v.first() >= 0 && v.first() < 100 && v.last() <= 27648 && v.last() > 27500);
        QVERIFY(std::all_of(v.begin(), v.end(), [](double x) { return x == std::floor(x); }));
        a.transform = CTagRuntime::NoTransform;
        a.kind = CTagRuntime::Boolean;
        v = spread(a, 100);
        QVERIFY(v.first() == 0 && v.last() == 1);
        a.kind = CTagRuntime::Double;
        v = spread(a, 100);
        QVERIFY(v.first() >= 0 && v.first() < 0.2 && v.last() > 0.8 && v.last() <= 1);

        // A sine sampled at half its period shows its peaks, not its zero crossings.
        CTagRuntime s;
        s.kind = CTagRuntime::Int16;
        s.emulation = CTagRuntime::Sine;
        s.transform = CTagRuntime::LineScale;
        s.srcMin = 0;
        s.srcMax = 27648;
        s.updateMs = 500;
        const auto near = [](double x, double y) { return std::fabs(x - y) < 1e-6; };
        QVERIFY(near(s.RawAt(t0), 27648) && near(s.RawAt(t0 + 500), 0) && near(s.RawAt(t0 + 1000), 27648));
        s.period = 4;
        s.updateMs = 0;
        s.transform = CTagRuntime::NoTransform;
        QVERIFY(near(s.RawAt(t0 + 1000), 0) && near(s.RawAt(t0 + 2000), -1) && near(s.RawAt(t0), 1));
    }

    void transformations()
    {
        CTagRuntime c;
        c.kind = CTagRuntime::Int16;
        c.constant = 5;
        c.transform = CTagRuntime::LineScale;
        c.srcMax = 10;
        c.dstMin = 100;
        c.dstMax = 200;
        QCOMPARE(c.ValueAt(0), 150.0);
        c.srcMax = 0; // an empty raw range gives the low end
        QCOMPARE(c.ValueAt(0), 100.0);
        c.transform = CTagRuntime::Factor;
        c.factor = -2.5;
        QCOMPARE(c.ValueAt(0), -12.5);
        c.kind = CTagRuntime::Boolean; // bits are never scaled
        QCOMPARE(c.ValueAt(0), 5.0);
    }

    void filledValuesAreClampedAndTimed()
    {
        CTagRuntime t;
        t.kind = CTagRuntime::Int16;
        t.constant = 1e6; // out of range: clamped, not wrapped
        t.emulated = true;
        UA_DataValue dv;
        UA_DataValue_init(&dv);
        t.Fill(1700000000123, true, &dv);
        QVERIFY(dv.hasValue && !dv.hasStatus);
        QCOMPARE(*static_cast<UA_Int16*>(dv.value.data), UA_Int16(32767));
        QCOMPARE(dv.sourceTimestamp, UA_DATETIME_UNIX_EPOCH + 1700000000100LL * UA_DATETIME_MSEC);
        UA_DataValue_clear(&dv);

        t.kind = CTagRuntime::Byte;
        t.constant = -3;
        t.Fill(0, false, &dv);
        QCOMPARE(*static_cast<UA_Byte*>(dv.value.data), UA_Byte(0));
        QVERIFY(!dv.hasSourceTimestamp);
        UA_DataValue_clear(&dv);
    }

    // A node gone under the tree (as a client's DeleteNodes once took it) makes
    // edits below it refused, and a node the library refused is never left over
    // a freed runtime: reading it under the sanitizers tells.
    void editsWhereTheParentNodeIsGone()
    {
        CTreeItemRoot root;
        QVERIFY(CCsvLoader(&root).Load(VELMORA_TEST_DATA "/worked_example.cfg", false));
        UA_ServerConfig config{};
        config.logging = UA_Log_Stdout_new(UA_LOGLEVEL_FATAL);
        UA_ServerConfig_setDefault(&config);
        UA_Server* server = UA_Server_newWithConfig(&config);
        CExchangeClock clock;
        auto space = std::make_unique<CAddressSpace>(server, &clock);
        CTreeEditor editor(&root, space.get());
        QCOMPARE(space->CreateRoot(), UA_STATUSCODE_GOOD);
        QCOMPARE(space->Build(&root), UA_STATUSCODE_GOOD);
        const std::string group = "Channel_0.Device_0.Group_0";
        const std::string tag = group + ".Tag_0";
        QCOMPARE(UA_Server_deleteNode(server, CAddressSpace::NodeId(group), true), UA_STATUSCODE_GOOD);

        using M = CMethodArgument::Method;
        const std::pair<M, std::string> calls[] = {{M::Edit, tag + ";4;Tag_0;3;40;5;0;1;1;0;2;0;0;0;0;0"},
                                                   {M::Add, group + ";4;Новый;3;40;5;0;1;1;0;2;0;0;0;0;0"},
                                                   {M::Delete, tag}};
        for (const auto& [method, text] : calls) {
            CMethodArgument argument;
            std::string why;
            QVERIFY2(CMethodArgument::Parse(method, text, argument, why), why.c_str());
            const UA_StatusCode rc = method == M::Edit  ? editor.Edit(argument)
                                     : method == M::Add ? editor.Add(argument)
                                                        : editor.Delete(argument);
            QVERIFY2(rc == UA_STATUSCODE_BADPARENTNODEIDINVALID, text.c_str());
        }
        CItem* item = editor.Find(tag);
        QVERIFY(item && !editor.Find(group + ".Новый"));
        QVERIFY(space->Build(item) != UA_STATUSCODE_GOOD);
        UA_Variant value;
        UA_Variant_init(&value);
        QVERIFY(UA_Server_readValue(server, CAddressSpace::NodeId(tag), &value) != UA_STATUSCODE_GOOD);
        UA_Variant_clear(&value);
        UA_Server_delete(server);
        space.reset();
    }

    void tailAndUsersBlock()
    {
        CGatewayConfig config;
        config.Parse(";row;of;the;tree\nINIFILE\n\n[options]\nport = 4841\nlog = debug\n"
                     "derFile = \ntrustFolder = /t\nUSERS\n\n[users]\nusers = оператор;секрет;admin;;x;");
        QCOMPARE(config.options.at("port"), std::string("4841"));
        QCOMPARE(config.options.at("derFile"), std::string());
        QVERIFY(!config.options.count("users"));
        // A login without its password at the end is no user.
        using User = std::pair<std::string, std::string>;
        QCOMPARE(config.users, (std::vector<User>{{"оператор", "секрет"}, {"admin", ""}}));

        config.Parse(";tree only\n");
        QVERIFY(config.options.empty() && config.users.empty());
    }
};

QTEST_GUILESS_MAIN(TestGatewayParts)
#include "tst_gatewayparts.moc"
