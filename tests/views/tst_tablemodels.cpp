#include "model/dataginfo.h"
#include "model/groupinfo.h"
#include "views/tablemodelmonitoring.h"
#include "views/tablemodelvariable.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QtTest>

#include <memory>
#include <stdexcept>

namespace {

const QString GroupKey = QStringLiteral("Channel_0.Device_0.Group_0");
const int AddrColumn = 2;

CDATagInfo* addTag(CItem* group, const std::string& name, uint16_t addr)
{
    auto* tag = new CDATagInfo(nullptr);
    tag->SetName(name);
    tag->Addr = addr;
    group->AppendChild(tag);
    return tag;
}

QStringList column(const QAbstractItemModel& model, int col)
{
    QStringList out;
    for (int r = 0; r < model.rowCount(); ++r)
        out << model.index(r, col).data().toString();
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
private slots:
    void init();
    void cleanup();

    void variableContract();
    void variableSortIsTextual();
    void variableRowOrderAfterTreeChanges();
    void monitoringContract();
    void monitoringCellsAndResize();
    void monitoringRepaintOnlyOnTick();
    void cleanupOldGroupsKeepsMappedOnly();
    void editNameGroupRekeys();

private:
    std::unique_ptr<CGroupInfo> m_group;
    std::unique_ptr<CGroupInfo> m_other;
    std::map<QString, CItem*> m_map;
};

void TestTableModels::init()
{
    m_group = std::make_unique<CGroupInfo>();
    // Tree order is byte order of the names: Tag_1, Tag_10, Tag_2.
    addTag(m_group.get(), "Tag_2", 9);
    addTag(m_group.get(), "Tag_1", 100);
    addTag(m_group.get(), "Tag_10", 10);
    m_other = std::make_unique<CGroupInfo>();
    addTag(m_other.get(), "Other", 5);
    m_map = {{GroupKey, m_group.get()}, {QStringLiteral("Channel_0.Device_0.Group_1"), m_other.get()}};
}

void TestTableModels::cleanup()
{
    m_map.clear();
    m_group.reset();
    m_other.reset();
}

void TestTableModels::variableContract()
{
    TableModelVariable model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);

    // Nothing selected yet: an empty table, and a sort is a no-op.
    QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
    QCOMPARE(model.rowCount(), 0);
    model.sort(0);
    QCOMPARE(resets.count(), 0);

    model.setNameGroup(GroupKey);
    model.setMapItem(m_map);
    QCOMPARE(model.rowCount(), 3);
    QCOMPARE(model.columnCount(), 12);
    QCOMPARE(column(model, 0), (QStringList{"Tag_1", "Tag_10", "Tag_2"}));
    QCOMPARE(column(model, AddrColumn), (QStringList{"100", "10", "9"}));
    QCOMPARE(model.headerData(0, Qt::Horizontal).toString(), QStringLiteral("Имя тега"));
    QCOMPARE(model.headerData(9, Qt::Horizontal).toString(), QStringLiteral("Смещение в сегменте"));
    QCOMPARE(model.headerData(11, Qt::Horizontal).toString(), QStringLiteral("Тип эмуляции"));
    QVERIFY(!model.headerData(0, Qt::Vertical).isValid());
    QVERIFY(!model.headerData(0, Qt::Horizontal, Qt::ToolTipRole).isValid());
    QVERIFY(!model.index(0, 0).data(Qt::EditRole).isValid());
    QCOMPARE(model.roleNames(), (QHash<int, QByteArray>{{Qt::DisplayRole, "display"}}));

    // Edits go through the dialogs, never through the table.
    QVERIFY(model.setData(model.index(0, 0), QStringLiteral("X")));
    QCOMPARE(model.index(0, 0).data().toString(), QStringLiteral("Tag_1"));

    // The cells read the tree live.
    std::next(m_group->begin(), 2)->second->SetName("Renamed");
    QCOMPARE(model.index(2, 0).data().toString(), QStringLiteral("Renamed"));

    for (int col = 0; col < model.columnCount(); ++col) {
        model.sort(col, Qt::AscendingOrder);
        model.sort(col, Qt::DescendingOrder);
    }

    // Callers must select a known group first; an unknown one is a checked lookup.
    model.setNameGroup(QStringLiteral("missing"));
    QVERIFY_THROWS_EXCEPTION(std::out_of_range, model.rowCount());
    model.setNameGroup(GroupKey);
}

void TestTableModels::variableSortIsTextual()
{
    TableModelVariable model;
    model.setNameGroup(GroupKey);
    model.setMapItem(m_map);

    model.sort(AddrColumn, Qt::AscendingOrder);
    QCOMPARE(column(model, AddrColumn), (QStringList{"10", "100", "9"}));
    QCOMPARE(column(model, 0), (QStringList{"Tag_10", "Tag_1", "Tag_2"}));
    model.sort(AddrColumn, Qt::DescendingOrder);
    QCOMPARE(column(model, AddrColumn), (QStringList{"9", "100", "10"}));

    // Case matters: capitals sort before small letters.
    addTag(m_group.get(), "a", 1);
    addTag(m_group.get(), "B", 2);
    model.setMapItem(m_map);
    model.sort(0, Qt::AscendingOrder);
    QCOMPARE(column(model, 0), (QStringList{"B", "Tag_1", "Tag_10", "Tag_2", "a"}));

    // Equal texts: every row is still there exactly once.
    model.sort(3, Qt::DescendingOrder);
    QStringList names = column(model, 0);
    names.sort();
    QCOMPARE(names, (QStringList{"B", "Tag_1", "Tag_10", "Tag_2", "a"}));
}

void TestTableModels::variableRowOrderAfterTreeChanges()
{
    TableModelVariable model;
    model.setNameGroup(GroupKey);
    model.setMapItem(m_map);
    model.sort(AddrColumn, Qt::DescendingOrder);

    // A tag added after the sort has a row but no place in the order yet.
    addTag(m_group.get(), "Tag_3", 8);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    QVERIFY(model.insertRows(1, 1, QModelIndex()));
    QCOMPARE(inserted.count(), 1);
    QCOMPARE(inserted.first().at(1).toInt(), 1);
    QCOMPARE(inserted.first().at(2).toInt(), 1);
    QCOMPARE(model.rowCount(), 4);
    QVERIFY(!model.index(3, 0).data().isValid());
    QCOMPARE(column(model, AddrColumn).mid(0, 3), (QStringList{"9", "100", "10"}));

    // The next sort starts from tree order again and takes the new tag in.
    model.sort(AddrColumn, Qt::DescendingOrder);
    QCOMPARE(column(model, AddrColumn), (QStringList{"9", "8", "100", "10"}));

    // Tags deleted before the views are told must not be read through stale rows.
    m_group->DeleteAllChildren();
    QCOMPARE(model.rowCount(), 0);
    QVERIFY(!model.data(model.index(0, 0)).isValid());
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    QVERIFY(model.removeRows(0, 4, QModelIndex()));
    QCOMPARE(removed.count(), 1);
    QCOMPARE(removed.first().at(2).toInt(), 3);
    model.setMapItem(m_map);
    QCOMPARE(model.rowCount(), 0);
}

void TestTableModels::monitoringContract()
{
    TableModelMonitoring model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QCOMPARE(model.rowCount(), 0);

    model.setNameGroup(GroupKey);
    model.setMapItem(m_map);
    QCOMPARE(model.rowCount(), 3);
    QCOMPARE(model.columnCount(), 4);
    QCOMPARE(column(model, 0), (QStringList{"Tag_1", "Tag_10", "Tag_2"}));
    const QStringList headers{"Имя тега", "Значение", "Качество", "Время"};
    for (int c = 0; c < 4; ++c)
        QCOMPARE(model.headerData(c, Qt::Horizontal).toString(), headers[c]);
    QCOMPARE(model.roleNames(), (QHash<int, QByteArray>{{Qt::DisplayRole, "display"}}));

    model.setNewData(2, cells("1.5"), GroupKey);
    model.updateData();
    QCOMPARE(model.index(2, 1).data().toString(), QStringLiteral("1.5"));
    QVERIFY(!model.index(2, 1).data(Qt::EditRole).isValid());
    QVERIFY(model.setData(model.index(2, 1), 7));
    QCOMPARE(model.index(2, 1).data().toString(), QStringLiteral("1.5"));

    // Switching groups and coming back keeps the collected values.
    model.setNameGroup(QStringLiteral("Channel_0.Device_0.Group_1"));
    model.setMapItem(m_map);
    QCOMPARE(column(model, 0), QStringList{"Other"});
    model.setNameGroup(GroupKey);
    model.setMapItem(m_map);
    QCOMPARE(model.index(2, 3).data().toString(), QStringLiteral("2024-01-02 03:04:05.006"));
}

void TestTableModels::monitoringCellsAndResize()
{
    TableModelMonitoring model;
    model.setNameGroup(GroupKey);
    model.setMapItem(m_map);

    // A freshly selected group shows 0 in its first row until values come.
    QCOMPARE(model.groupValues(GroupKey).size(), 4);
    for (int c = 1; c < 4; ++c)
        QCOMPARE(model.index(0, c).data(), QVariant(0));
    QVERIFY(!model.index(1, 1).data().isValid());

    model.setNewData(0, cells("12.5"), GroupKey);
    QCOMPARE(model.groupValues(GroupKey).size(), 4);
    QCOMPARE(model.index(0, 1).data().toString(), QStringLiteral("12.5"));
    QCOMPARE(model.index(0, 2).data().toString(), QStringLiteral("Good"));
    QCOMPARE(model.index(0, 3).data().toString(), QStringLiteral("2024-01-02 03:04:05.006"));

    // Row 1 needs cell 7: the list grows to four times that plus a row's worth.
    model.setNewData(1, cells("3"), GroupKey);
    QCOMPARE(model.groupValues(GroupKey).size(), 28);
    QCOMPARE(model.index(1, 1).data().toString(), QStringLiteral("3"));
    QVERIFY(!model.index(2, 1).data().isValid());
    QCOMPARE(model.groupValues(GroupKey).at(0), QVariant(0));
    QVERIFY(!model.groupValues(GroupKey).at(8).isValid());

    // Rows inside the grown list need no resize; a far row grows it again.
    model.setNewData(6, cells("6"), GroupKey);
    QCOMPARE(model.groupValues(GroupKey).size(), 28);
    QCOMPARE(model.groupValues(GroupKey).at(27).toString(), QStringLiteral("2024-01-02 03:04:05.006"));
    model.setNewData(7, cells("7"), GroupKey);
    QCOMPARE(model.groupValues(GroupKey).size(), 4 * 31);

    // Values of a group never selected are dropped; bad input changes nothing.
    model.setNewData(0, cells("9"), QStringLiteral("Channel_0.Device_0.Group_1"));
    QVERIFY(model.groupValues(QStringLiteral("Channel_0.Device_0.Group_1")).isEmpty());
    model.setNewData(-1, cells("9"), GroupKey);
    model.setNewData(0, {QStringLiteral("short")}, GroupKey);
    QCOMPARE(model.groupValues(GroupKey).size(), 4 * 31);
    QCOMPARE(model.index(0, 1).data().toString(), QStringLiteral("12.5"));
}

void TestTableModels::monitoringRepaintOnlyOnTick()
{
    TableModelMonitoring model;
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);

    // No group in the map: the tick does nothing.
    model.setNameGroup(GroupKey);
    model.updateData();
    QCOMPARE(changed.count(), 0);

    model.setMapItem(m_map);
    for (int i = 0; i < 50; ++i)
        model.setNewData(i % 3, cells(QString::number(i)), GroupKey);
    QCOMPARE(changed.count(), 0);

    model.updateData();
    QCOMPARE(changed.count(), 1);
    const QList<QVariant> args = changed.first();
    QCOMPARE(args.at(0).toModelIndex(), model.index(0, 0));
    QCOMPARE(args.at(1).toModelIndex(), model.index(2, 3));
    QCOMPARE(args.at(2).value<QList<int>>(), QList<int>{Qt::DisplayRole});
}

void TestTableModels::cleanupOldGroupsKeepsMappedOnly()
{
    const QString gone = QStringLiteral("Channel_0.Device_0.Gone");
    TableModelMonitoring model;
    model.setNameGroup(gone);
    model.setNameGroup(GroupKey);
    model.setMapItem(m_map);
    model.setNewData(0, cells("1"), GroupKey);
    QCOMPARE(model.groupValues(gone).size(), 4);

    model.cleanupOldGroups();
    QVERIFY(model.groupValues(gone).isEmpty());
    QCOMPARE(model.index(0, 1).data().toString(), QStringLiteral("1"));

    // The group on show loses its values once the map no longer knows it.
    std::map<QString, CItem*> reduced{{QStringLiteral("Channel_0.Device_0.Group_1"), m_other.get()}};
    model.setNameGroup(QStringLiteral("Channel_0.Device_0.Group_1"));
    model.setMapItem(reduced);
    model.cleanupOldGroups();
    QVERIFY(model.groupValues(GroupKey).isEmpty());
    model.setNewData(0, cells("2"), GroupKey);
    QVERIFY(model.groupValues(GroupKey).isEmpty());
}

void TestTableModels::editNameGroupRekeys()
{
    const QString renamed = QStringLiteral("Channel_0.Device_0.Renamed");
    const QString group1 = QStringLiteral("Channel_0.Device_0.Group_1");

    TableModelVariable variable;
    variable.setNameGroup(GroupKey);
    variable.setMapItem(m_map);
    variable.editNameGroup(GroupKey, renamed);
    QVERIFY_THROWS_EXCEPTION(std::out_of_range, variable.rowCount());
    variable.setNameGroup(renamed);
    QCOMPARE(column(variable, 0), (QStringList{"Tag_1", "Tag_10", "Tag_2"}));
    variable.editNameGroup(QStringLiteral("absent"), GroupKey);
    QCOMPARE(column(variable, 0).size(), 3);

    TableModelMonitoring monitoring;
    monitoring.setNameGroup(group1);
    monitoring.setNameGroup(GroupKey);
    monitoring.setMapItem(m_map);
    monitoring.setNewData(0, cells("42"), GroupKey);
    monitoring.editNameGroup(GroupKey, renamed);
    QVERIFY(monitoring.groupValues(GroupKey).isEmpty());
    monitoring.setNameGroup(renamed);
    QCOMPARE(monitoring.index(0, 0).data().toString(), QStringLiteral("Tag_1"));
    QCOMPARE(monitoring.index(0, 1).data().toString(), QStringLiteral("42"));

    // Renaming onto a taken key drops the moved entry and keeps the one in place.
    monitoring.editNameGroup(renamed, group1);
    QCOMPARE(monitoring.groupValues(group1).at(1), QVariant(0));
    monitoring.setNameGroup(group1);
    QCOMPARE(column(monitoring, 0), QStringList{"Other"});
    QVERIFY(monitoring.groupValues(renamed).isEmpty());
}

QTEST_GUILESS_MAIN(TestTableModels)
#include "tst_tablemodels.moc"
