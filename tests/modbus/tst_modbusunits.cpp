#include "server/modbus/requestplanner.h"
#include "server/modbus/valuecodec.h"

#include <QtTest>

#include <cmath>

using Words = std::vector<std::uint16_t>;
using Items = std::vector<CPlanItem>;

namespace {

Items Run(int table, int first, int count, int width, int step)
{
    Items items;
    for (int i = 0; i < count; ++i)
        items.push_back({table, std::uint16_t(first + i * step), std::uint16_t(width)});
    return items;
}

} // namespace

// Request planning and value coding: nothing here needs a device.
class TestModbusUnits : public QObject
{
    Q_OBJECT

private slots:
    // Each case: the count of requests, and every item read whole inside a
    // request within the limits, or in pieces when it is larger than one.
    void plan()
    {
        const auto check = [](const char* what, const Items& items, CPlanLimits limits, int requests) {
            const std::vector<CPlannedRequest> plan = CRequestPlanner::Plan(items, limits);
            QVERIFY2(int(plan.size()) == requests, what);
            std::vector<int> covered(items.size(), 0), pieces(items.size(), 0);
            for (const CPlannedRequest& r : plan) {
                const int limit = std::min(r.table < 2 ? limits.maxBits : limits.maxRegisters,
                                           CRequestPlanner::ProtocolLimit(r.table));
                QVERIFY(r.count >= 1 && r.count <= limit);
                for (int i : r.items) {
                    const CPlanItem& item = items[i];
                    QCOMPARE(r.table, item.table);
                    covered[i] += std::min<long>(item.start + item.count, r.start + r.count) -
                                  std::max(item.start, r.start);
                    pieces[i] += 1;
                    QVERIFY2(item.count > limit || pieces[i] == 1, what);
                }
            }
            for (std::size_t i = 0; i < items.size(); ++i)
                QCOMPARE(covered[i], std::min<int>(items[i].count, 65536 - items[i].start));
        };
        const CPlanLimits full{125, 2000, 0};
        check("250 registers in two full requests", Run(3, 0, 250, 1, 1), full, 2);
        check("32-bit values are not split: 62 per request", Run(3, 0, 125, 2, 2), full, 3);
        check("a gap of one splits without fragmentation", Run(2, 0, 10, 1, 2), full, 10);
        check("a gap of one is read across with fragmentation 1", Run(2, 0, 10, 1, 2),
              CPlanLimits{125, 2000, 1}, 1);
        check("bits of one register and a segment share a request",
              Items{{3, 10, 1}, {3, 10, 1}, {3, 8, 6}, {3, 12, 1}}, full, 1);
        check("tables never mix", Items{{0, 0, 1}, {1, 0, 1}, {2, 0, 1}, {3, 0, 1}, {3, 1, 1}}, full, 4);
        check("2001 coils", Run(1, 0, 2001, 1, 1), full, 2);
        check("the device's own bit limit", Run(0, 0, 2001, 1, 1), CPlanLimits{125, 100, 0}, 21);
        check("limits above the protocol's are cut to it", Run(3, 0, 250, 1, 1), CPlanLimits{255, 65535, 0},
              2);
        check("a 64-bit value larger than the limit is read in pieces", Items{{3, 0, 4}, {3, 4, 1}},
              CPlanLimits{2, 2000, 0}, 3);
        // Pieces share requests with their neighbours: 12 registers in 4 requests of 3.
        Items wide = Run(3, 0, 4, 1, 1);
        wide.push_back({3, 4, 4});
        for (const CPlanItem& item : Run(3, 8, 4, 1, 1))
            wide.push_back(item);
        check("a value larger than a request fills requests to the brim", wide, CPlanLimits{3, 2000, 0}, 4);
        check("a bit inside a segment read in pieces", Items{{3, 0, 10}, {3, 4, 1}, {3, 2, 2}, {3, 10, 1}},
              CPlanLimits{3, 2000, 0}, 5);
        check("the end of the table", Items{{3, 65534, 4}}, full, 1);
        check("unsorted input", Items{{3, 9, 1}, {3, 200, 1}, {3, 0, 1}, {3, 5, 4}},
              CPlanLimits{125, 2000, 4}, 2);
    }

    // Every whole value type and byte order: what is encoded decodes to the
    // same value. The simulator test holds decoding against an encoder of its own.
    void codec()
    {
        const double values[] = {1.5, 1e10 + 0.5, 54321, 305419896, -300, -100000};
        Words w;
        std::string why;
        for (int type = 0; type <= 5; ++type) {
            const int orders = type == 2 || type == 4 ? 2 : 4;
            for (int order = 0; order < orders; ++order) {
                const CValueCodec codec(3, type, order, CValueCodec::Scale());
                QVERIFY(codec.Encode(values[type], 0, w, why));
                QCOMPARE(codec.Decode(w.data()), values[type]);
            }
        }
        // No order stored reads as the first.
        const Words abcd{0x3FC0, 0};
        QCOMPARE(CValueCodec(3, 0, 0xFF, CValueCodec::Scale()).Decode(abcd.data()), 1.5);

        // Writing a bit or a byte keeps the rest of the register.
        const CValueCodec::Scale none;
        const std::uint16_t reg = 0x1234;
        QCOMPARE(CValueCodec(0, 0, 0, none).Decode(&reg), 1.0); // a bit table ignores the value type
        QVERIFY(CValueCodec(3, 8 + 3, 0, none).Encode(1, 0x0100, w, why));
        QCOMPARE(w, Words{0x0108});
        QVERIFY(CValueCodec(3, 8 + 8, 0, none).Encode(0, 0xFFFF, w, why));
        QCOMPARE(w, Words{0xFEFF});
        QVERIFY(CValueCodec(3, 7, 0, none).Encode(0xAB, 0x1234, w, why));
        QCOMPARE(w, Words{0xAB34});

        // Writes go through the scale backwards; the file keeps no scale for bits.
        QVERIFY(CValueCodec(3, 2, 0, {1, 0, 1000, 0, 10, 1}).Encode(2.5, 0, w, why));
        QCOMPARE(w, Words{250});
        QVERIFY(CValueCodec(3, 2, 0, {2, 0, 0, 0, 0, 0.1}).Encode(21.5, 0, w, why));
        QCOMPARE(w, Words{215});
        QCOMPARE(CValueCodec(3, 8, 0, {2, 0, 0, 0, 0, 0.1}).Decode(&reg), 0.0);

        QVERIFY(!CValueCodec(3, 2, 0, none).Encode(70000, 0, w, why));
        QVERIFY(!CValueCodec(3, 6, 0, none).Encode(256, 0, w, why));
        QVERIFY(!CValueCodec(3, 0, 0, none).Encode(std::nan(""), 0, w, why));
        QVERIFY(!why.empty());
    }
};

QTEST_GUILESS_MAIN(TestModbusUnits)
#include "tst_modbusunits.moc"
