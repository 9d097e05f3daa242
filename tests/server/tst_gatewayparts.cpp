#include "server/exchangeclock.h"
#include "server/gatewayconfig.h"
#include "server/tagruntime.h"

#include <QtTest>

#include <cmath>

class TestGatewayParts : public QObject
{
    Q_OBJECT
private slots:
    // The common kinds show in the gateway test; these are the odd ones.
    void oddDataKinds()
    {
        using R = CTagRuntime;
        QCOMPARE(R::KindFor(2, 7), R::Byte);
        QCOMPARE(R::KindFor(2, 23), R::Boolean); // a register read as bits
        QCOMPARE(R::KindFor(1, 0), R::Boolean);  // states, whatever value type they hold
    }

    void emulationAndTransformations()
    {
        const std::int64_t t0 = 1700000000000; // a whole number of 4 s periods
        // Random: one value per update period, in 0..1, evenly spread, its own per tag.
        CTagRuntime a;
        a.emulation = CTagRuntime::Random;
        a.updateMs = 100;
        a.SetSeed("C.D.G.A");
        CTagRuntime b = a;
        b.SetSeed("C.D.G.B");
        QCOMPARE(a.RawAt(t0), a.RawAt(t0 + 99));
        QVERIFY(a.RawAt(t0) != b.RawAt(t0));
        QSet<double> seen;
        double sum = 0;
        for (int i = 0; i < 2000; ++i) {
            const double v = a.RawAt(t0 + i * 100);
            QVERIFY(v >= 0.0 && v < 1.0);
            seen << v;
            sum += v;
        }
        QVERIFY(seen.size() > 1990 && std::fabs(sum / 2000 - 0.5) < 0.05);

        CTagRuntime s;
        s.emulation = CTagRuntime::Sine;
        s.period = 4;
        s.updateMs = 0;
        const auto near = [](double x, double y) { return std::fabs(x - y) < 1e-9; };
        QVERIFY(near(s.RawAt(t0), 0) && near(s.RawAt(t0 + 1000), 1) && near(s.RawAt(t0 + 3000), -1));
        s.updateMs = 1000; // sampled at the start of each second
        QCOMPARE(s.RawAt(t0 + 1999), s.RawAt(t0 + 1000));

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

    void stoppedClockStandsStill()
    {
        CExchangeClock clock;
        clock.Stop();
        const std::int64_t frozen = clock.NowMs();
        QTest::qWait(20);
        clock.Stop(); // a second stop keeps the first moment
        QCOMPARE(clock.NowMs(), frozen);
        clock.Start();
        QVERIFY(clock.NowMs() >= frozen + 20);
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
