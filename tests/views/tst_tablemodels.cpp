#include "model/dataginfo.h"
#include "model/groupinfo.h"
#include "views/tablemodelmonitoring.h"
#include "views/tablemodelvariable.h"
#include "views/trendbuffer.h"

#include <QtTest>

namespace {

const QString G0 = QStringLiteral("Channel_0.Device_0.Group_0");
const QString G1 = QStringLiteral("Channel_0.Device_0.Group_1");
const int Addr = 2;

void addTag(CItem& group, const std::string& name, uint16_t addr)
{
    auto* tag = new CDATagInfo(nullptr);
    tag->SetName(name);
    tag->Addr = addr;
    group.AppendChild(tag);
}

QStringList column(const QAbstractItemModel& model, int col)
{
    QStringList out;
    for (int r = 0; r < model.rowCount(); ++r)
        out << model.index(r, col).data().toString();
    return out;
}

QList<double> values(const TrendBuffer& buffer)
{
    QList<double> out;
    for (int i = 0; i < buffer.size(); ++i)
        out << buffer.at(i).value;
    return out;
}

QList<QVariant> cells(const QString& value)
{
    return {value, QStringLiteral("Good"), QStringLiteral("2024-01-02 03:04:05.006")};
}

} // namespace

class TestTableModels : public QObject
{
    Q_OBJECT
    CGroupInfo m_group, m_other; // tree order Tag_1 (100), Tag_10 (10), Tag_2 (9); Other (5)
    std::map<QString, CItem*> m_map{{G0, &m_group}, {G1, &m_other}};

private slots:
    void initTestCase()
    {
        addTag(m_group, "Tag_2", 9);
        addTag(m_group, "Tag_1", 100);
        addTag(m_group, "Tag_10", 10);
        addTag(m_other, "Other", 5);
    }

    void variableSortsAsText()
    {
        TableModelVariable model;
        {
            QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
            model.sort(0); // nothing selected yet: no-op
            model.setNameGroup(G0);
            model.setMapItem(m_map);
            QCOMPARE(column(model, 0), (QStringList{"Tag_1", "Tag_10", "Tag_2"}));
            QVERIFY(model.setData(model.index(0, 0), "X") && model.index(0, 0).data() == "Tag_1");

            model.sort(Addr, Qt::DescendingOrder);
            QCOMPARE(column(model, Addr), (QStringList{"9", "100", "10"}));
            for (int col = 0; col < model.columnCount(); ++col)
                model.sort(col, Qt::DescendingOrder);
        }

        // The tree changes before the views hear of it (so no tester here): a tag added
        // after a sort has a row but no place in the order until the next sort.
        CGroupInfo group;
        addTag(group, "b", 1);
        addTag(group, "B", 2);
        model.setMapItem({{G0, &group}});
        model.sort(0, Qt::DescendingOrder);
        QCOMPARE(column(model, 0), (QStringList{"b", "B"})); // case-sensitive
        addTag(group, "c", 3);
        model.insertRows(1, 1, QModelIndex());
        QCOMPARE(column(model, 0), (QStringList{"b", "B", ""}));
        model.sort(0, Qt::AscendingOrder);
        QCOMPARE(column(model, 0), (QStringList{"B", "b", "c"}));
        const QModelIndex stale = model.index(2, 0);
        group.DeleteAllChildren();
        QVERIFY(!model.data(stale).isValid());

        // A name with no group behind it shows an empty table.
        model.setNameGroup(QStringLiteral("missing"));
        QVERIFY(model.rowCount() == 0 && !model.index(0, 0).data().isValid());
    }

    void monitoringCollectsCells()
    {
        TableModelMonitoring model;
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
        model.setNameGroup(G0);
        model.updateData(); // the group is not in the map yet
        model.setMapItem(m_map);
        QVERIFY(model.index(0, 1).data() == QVariant(0) && !model.index(1, 1).data().isValid());

        // Storage grows as rows come in, past the rows shown too.
        for (int row : {0, 1, 7})
            model.setNewData(row, cells(row ? QString::number(row) : "12.5"), G0);
        QCOMPARE(model.groupValues(G0).size(), 4 * 31);
        model.setNewData(0, cells("x"), G1); // never selected: dropped
        model.setNewData(-1, cells("x"), G0);
        model.setNewData(0, {"short"}, G0);
        QVERIFY(model.groupValues(G1).isEmpty());
        QCOMPARE(changed.count(), 0);

        model.updateData();
        QCOMPARE(changed.count(), 1);
        QVERIFY(changed[0][0].toModelIndex() == model.index(0, 0) &&
                changed[0][1].toModelIndex() == model.index(2, 3));
        QCOMPARE(column(model, 1), (QStringList{"12.5", "1", ""}));

        // Coming back to a group shows its last values.
        model.setNameGroup(G1);
        model.setNameGroup(G0);
        QCOMPARE(model.index(0, 1).data().toString(), QStringLiteral("12.5"));

        // A value stays with the tag it came for when the tree moves the tags
        // (the views hear of it only then, so no tester): a tag added in front,
        // one taken away with its value.
        CGroupInfo moving;
        addTag(moving, "b", 1);
        addTag(moving, "d", 2);
        TableModelMonitoring follows;
        follows.setNameGroup(G0);
        follows.setMapItem({{G0, &moving}});
        follows.setNewData(0, cells("1") << G0 + ".b", G0);
        follows.setNewData(1, cells("2") << G0 + ".d", G0);
        addTag(moving, "a", 3);
        follows.setMapItem({{G0, &moving}});
        QCOMPARE(column(follows, 1), (QStringList{"", "1", "2"}));
        moving.DeleteChild(moving.FindChildByName("b"));
        follows.setMapItem({{G0, &moving}});
        QCOMPARE(column(follows, 0) + column(follows, 1), (QStringList{"a", "d", "", "2"}));
    }

    void monitoringGroupKeys()
    {
        const QString renamed = QStringLiteral("Channel_0.Device_0.Renamed");
        const QString gone = QStringLiteral("Channel_0.Device_0.Gone");
        TableModelMonitoring model;
        for (const QString& name : {gone, G1, G0})
            model.setNameGroup(name);
        model.setMapItem(m_map);
        model.setNewData(0, cells("42"), G0);
        model.cleanupOldGroups();
        QVERIFY(model.groupValues(gone).isEmpty() && model.groupValues(G1).size() == 4);

        model.editNameGroup(G0, renamed);
        model.setNameGroup(renamed);
        QVERIFY(model.index(0, 0).data() == "Tag_1" && model.index(0, 1).data() == "42");
        // Onto a taken key: the moved entries are dropped, the ones in place stay.
        model.editNameGroup(renamed, G1);
        QVERIFY(model.groupValues(renamed).isEmpty());
        model.setNameGroup(G1);
        QVERIFY(column(model, 0) == QStringList{"Other"} && model.index(0, 1).data() == QVariant(0));

        TableModelVariable variable;
        variable.setNameGroup(G0);
        variable.setMapItem(m_map);
        variable.editNameGroup(G0, renamed);
        variable.editNameGroup(QStringLiteral("absent"), G0);
        QCOMPARE(variable.rowCount(), 0);
        variable.setNameGroup(renamed);
        QCOMPARE(variable.rowCount(), 3);
    }

    // The trend's points: one a take unless the status changes, an hour at
    // most and never past the capacity, in order also while the ring grows.
    void trendKeepsABoundedHour()
    {
        const qint64 t0 = 1700000000000;
        TrendBuffer small(4);
        small.add(t0, 1, "Good");
        small.add(t0, 2, "Good");
        small.add(t0, 3, "UncertainLastUsableValue");
        small.seal();
        small.add(t0, 4, "UncertainLastUsableValue");
        QCOMPARE(values(small), (QList<double>{2, 3, 4}));
        QCOMPARE(small.at(1).quality, TrendBuffer::Uncertain);
        for (int i = 5; i <= 9; ++i)
            small.add(t0 + i, i, "BadTimeout");
        QVERIFY(values(small) == (QList<double>{6, 7, 8, 9}) && small.added() == 8);
        QCOMPARE(TrendBuffer::statusName(small.at(0).status), QString("BadTimeout"));
        small.addBreak(t0 + 10);
        small.addBreak(t0 + 11);
        QVERIFY(small.size() == 4 && small.at(3).quality == TrendBuffer::Break);
        small.add(t0 + TrendBuffer::kSpanMs + 9, 10, "Good");
        // An hour later than the 9: the older ones go.
        QVERIFY(small.size() == 3 && small.at(0).value == 9 && small.at(2).value == 10);

        TrendBuffer growing(3000);
        for (int i = 0; i < 2500; ++i)
            growing.add(qint64(i) * 2000, i, "Good");
        QVERIFY(growing.size() == 1801 && growing.at(0).value == 699 && growing.added() == 2500);
        for (int i = 1; i < growing.size(); ++i)
            QVERIFY(growing.at(i).ms > growing.at(i - 1).ms);

        // CSV rows in order of time, the break left out.
        TrendBuffer other;
        other.add(t0 + 5, 0.1, "Good");
        QBuffer csv;
        csv.open(QIODevice::WriteOnly);
        QVERIFY(TrendBuffer::writeCsv(csv, {"a.b", "c.d"}, {&small, &other}));
        const QString time = QDateTime::fromMSecsSinceEpoch(t0 + 5).toString("yyyy-MM-dd hh:mm:ss.zzz");
        const QStringList rows = QString::fromUtf8(csv.data()).split('\n');
        QCOMPARE(rows.size(), 1 + 3 + 1);
        QVERIFY2(csv.data().startsWith("\xEF\xBB\xBF") &&
                     rows.at(0).endsWith("Время;Тег;Значение;Качество") &&
                     rows.at(1) == time + ";c.d;0.1;Good" && rows.at(2).endsWith(";a.b;9;BadTimeout") &&
                     rows.at(3).endsWith(";a.b;10;Good"),
                 qPrintable(rows.join('\n')));
    }
};

QTEST_GUILESS_MAIN(TestTableModels)
#include "tst_tablemodels.moc"
