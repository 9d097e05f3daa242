#include "views/tablemodelmonitoring.h"

#include "model/item.h"

#include <QHash>

#include <iterator>

namespace {

const int ColumnCount = 4;
const int CellsPerRow = 4;

const char* const Headers[ColumnCount] = {"Имя тега", "Значение", "Качество", "Время"};

// Moves the entry of oldName to newName; a taken newName drops the entry.
template <typename Map> void rekey(Map& map, const QString& oldName, const QString& newName)
{
    auto node = map.extract(oldName);
    if (node.empty())
        return;
    node.key() = newName;
    map.insert(std::move(node));
}

} // namespace

TableModelMonitoring::TableModelMonitoring(QObject* parent) : QAbstractTableModel(parent) {}

void TableModelMonitoring::setNameGroup(QString name)
{
    m_groupName = name;
    // A known group keeps its last values for when the user comes back to it.
    if (m_groupValues.find(name) == m_groupValues.end())
        m_groupValues.emplace(name, QList<QVariant>(CellsPerRow, QVariant(0)));
}

void TableModelMonitoring::setMapItem(std::map<QString, CItem*> items)
{
    beginResetModel();
    m_items = std::move(items);
    // Only the group on show: the map may still name groups whose nodes are gone.
    const auto shown = m_groupValues.find(m_groupName);
    if (shown != m_groupValues.end())
        followTags(*shown);
    endResetModel();
}

// A row is a position in the group's child order, which an added, renamed or
// removed tag shifts. Values whose tag is gone are dropped, and so are the
// zeros of a group that has had no value yet, which belong to no tag.
void TableModelMonitoring::followTags(std::map<QString, QList<QVariant>>::value_type& entry)
{
    const auto group = m_items.find(entry.first);
    if (group == m_items.end())
        return;
    QList<QVariant>& cells = entry.second;
    QList<QString> names;
    for (const auto& child : *group->second)
        names << QString::fromStdString(child.second->GetName());
    const auto tagOf = [](const QVariant& fullName) {
        const QString text = fullName.toString();
        return text.mid(text.lastIndexOf('.') + 1);
    };
    bool aligned = true;
    for (qsizetype row = 0; aligned && row * CellsPerRow < cells.size(); ++row) {
        const QVariant& name = cells.at(row * CellsPerRow);
        if (name.typeId() == QMetaType::QString)
            aligned = row < names.size() && tagOf(name) == names.at(row);
    }
    if (aligned)
        return;

    QHash<QString, qsizetype> rowOfTag;
    for (qsizetype row = 0; row < names.size(); ++row)
        rowOfTag.insert(names.at(row), row);
    QList<QVariant> moved(names.size() * CellsPerRow);
    for (qsizetype from = 0; (from + 1) * CellsPerRow <= cells.size(); ++from) {
        const QVariant& name = cells.at(from * CellsPerRow);
        const qsizetype to = name.typeId() == QMetaType::QString ? rowOfTag.value(tagOf(name), -1) : -1;
        for (int cell = 0; to >= 0 && cell < CellsPerRow; ++cell)
            moved[to * CellsPerRow + cell] = cells.at(from * CellsPerRow + cell);
    }
    cells = moved;
}

void TableModelMonitoring::editNameGroup(QString oldName, QString newName)
{
    rekey(m_items, oldName, newName);
    m_lastGroup = m_groupValues.end();
    rekey(m_groupValues, oldName, newName);
}

bool TableModelMonitoring::collects(const QString& group)
{
    // Values come group by group: the group of the last value is looked up once.
    if (m_lastGroup == m_groupValues.end() || m_lastGroup->first != group)
        m_lastGroup = m_groupValues.find(group);
    return m_lastGroup != m_groupValues.end();
}

void TableModelMonitoring::setNewData(int row, QList<QVariant> cells, QString group)
{
    collects(group);
    auto it = m_lastGroup;
    // Values of groups never selected are dropped.
    if (it == m_groupValues.end() || row < 0 || cells.size() < 3)
        return;
    QList<QVariant>& values = it->second;
    const qsizetype last = qsizetype(CellsPerRow) * row + 3;
    // Grows well past the row so that a run of new rows resizes only now and then.
    if (values.size() < last)
        values.resize(CellsPerRow * last);
    if (cells.size() > 3)
        values[last - 3] = cells[3];
    values[last - 2] = cells[0];
    values[last - 1] = cells[1];
    values[last] = cells[2];
}

void TableModelMonitoring::updateData()
{
    auto it = m_items.find(m_groupName);
    if (it == m_items.end() || it->second->empty())
        return;
    emit dataChanged(index(0, 0), index(int(it->second->size()) - 1, ColumnCount - 1), {Qt::DisplayRole});
}

void TableModelMonitoring::cleanupOldGroups()
{
    m_lastGroup = m_groupValues.end();
    for (auto it = m_groupValues.begin(); it != m_groupValues.end();) {
        if (m_items.find(it->first) == m_items.end())
            it = m_groupValues.erase(it);
        else
            ++it;
    }
}

void TableModelMonitoring::setQualityOfAll(const QString& status)
{
    for (auto& entry : m_groupValues) {
        QList<QVariant>& values = entry.second;
        for (qsizetype value = 1; value + 1 < values.size(); value += CellsPerRow)
            if (values.at(value).isValid())
                values[value + 1] = status;
    }
}

QList<QVariant> TableModelMonitoring::groupValues(const QString& group) const
{
    auto it = m_groupValues.find(group);
    return it == m_groupValues.end() ? QList<QVariant>() : it->second;
}

CItem* TableModelMonitoring::currentGroup() const
{
    // A name that a refused rename left behind finds no group: an empty table, not a crash.
    auto it = m_items.find(m_groupName);
    return it == m_items.end() ? nullptr : it->second;
}

int TableModelMonitoring::rowCount(const QModelIndex& parent) const
{
    if (parent.isValid())
        return 0;
    CItem* group = currentGroup();
    return group ? int(group->size()) : 0;
}

int TableModelMonitoring::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant TableModelMonitoring::data(const QModelIndex& index, int role) const
{
    const int row = index.row();
    const int column = index.column();
    if (!index.isValid() || row < 0 || column < 0 || column >= ColumnCount || role != Qt::DisplayRole)
        return QVariant();
    if (m_items.empty())
        return QVariant();
    if (column == 0) {
        // The name is the first string property of a tag; read it straight from the node.
        CItem* group = currentGroup();
        if (!group || row >= int(group->size()))
            return QVariant();
        return QString::fromStdString(std::next(group->begin(), row)->second->GetName());
    }
    auto it = m_groupValues.find(m_groupName);
    if (it == m_groupValues.end())
        return QVariant();
    const qsizetype cell = qsizetype(CellsPerRow) * row + column;
    if (cell >= it->second.size())
        return QVariant();
    return it->second.at(cell);
}

bool TableModelMonitoring::setData(const QModelIndex&, const QVariant&, int)
{
    return true;
}

QVariant TableModelMonitoring::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section < 0 || section >= ColumnCount)
        return QVariant();
    return QString::fromUtf8(Headers[section]);
}

// The tags live in the tree; these only tell the views which rows changed.
bool TableModelMonitoring::insertRows(int row, int count, const QModelIndex& parent)
{
    if (row < 0 || count < 1)
        return false;
    beginInsertRows(parent, row, row + count - 1);
    endInsertRows();
    return true;
}

bool TableModelMonitoring::removeRows(int row, int count, const QModelIndex& parent)
{
    if (row < 0 || count < 1)
        return false;
    beginRemoveRows(parent, row, row + count - 1);
    endRemoveRows();
    return true;
}

Qt::ItemFlags TableModelMonitoring::flags(const QModelIndex& index) const
{
    return QAbstractTableModel::flags(index);
}

QHash<int, QByteArray> TableModelMonitoring::roleNames() const
{
    return {{Qt::DisplayRole, "display"}};
}
