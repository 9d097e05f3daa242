#include "views/tablemodelvariable.h"

#include "model/datagdata.h"
#include "model/item.h"

#include <algorithm>
#include <iterator>
#include <numeric>

namespace {

const int ColumnCount = 12;

const char* const Headers[ColumnCount] = {
    "Имя тега",           "Тип регистра", "Адрес",        "Чтение",          "Запись",
    "Режим записи",       "Тип значения", "Порядок байт", "Размер сегмента", "Смещение в сегменте",
    "Тип преобразования", "Тип эмуляции",
};

// The child at position pos of the group, or null.
CItem* tagAt(CItem* group, int pos)
{
    if (!group || pos < 0 || pos >= int(group->size()))
        return nullptr;
    return std::next(group->begin(), pos)->second;
}

// The value text of one string property of a tag.
QString propertyText(CItem* tag, int column)
{
    CDATagData props(tag);
    const auto list = props.GetStrProps();
    if (column < 0 || column >= int(list.size()))
        return QString();
    return QString::fromStdString(list[column].second);
}

} // namespace

TableModelVariable::TableModelVariable(QObject* parent) : QAbstractTableModel(parent) {}

void TableModelVariable::setNameGroup(QString name)
{
    m_groupName = name;
}

void TableModelVariable::setMapItem(std::map<QString, CItem*> items)
{
    beginResetModel();
    m_items = std::move(items);
    m_rowOrder.clear();
    if (CItem* group = currentGroup()) {
        m_rowOrder.resize(group->size());
        std::iota(m_rowOrder.begin(), m_rowOrder.end(), 0);
    }
    endResetModel();
}

void TableModelVariable::editNameGroup(QString oldName, QString newName)
{
    auto node = m_items.extract(oldName);
    if (node.empty())
        return;
    node.key() = newName;
    m_items.insert(std::move(node));
}

CItem* TableModelVariable::currentGroup() const
{
    // A name that a refused rename left behind finds no group: an empty table, not a crash.
    auto it = m_items.find(m_groupName);
    return it == m_items.end() ? nullptr : it->second;
}

int TableModelVariable::rowCount(const QModelIndex& parent) const
{
    if (parent.isValid())
        return 0;
    CItem* group = currentGroup();
    return group ? int(group->size()) : 0;
}

int TableModelVariable::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant TableModelVariable::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() < 0 || index.column() < 0 || m_items.empty() ||
        role != Qt::DisplayRole)
        return QVariant();
    // Rows added since the last setMapItem or sort have no place in the order yet.
    if (index.row() >= int(m_rowOrder.size()))
        return QVariant();
    CItem* group = currentGroup();
    CItem* tag = group ? tagAt(group, m_rowOrder[index.row()]) : nullptr;
    if (!tag)
        return QVariant();
    return propertyText(tag, index.column());
}

bool TableModelVariable::setData(const QModelIndex&, const QVariant&, int)
{
    return true;
}

QVariant TableModelVariable::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section < 0 || section >= ColumnCount)
        return QVariant();
    return QString::fromUtf8(Headers[section]);
}

// The tags live in the tree; these only tell the views which rows changed.
bool TableModelVariable::insertRows(int row, int count, const QModelIndex& parent)
{
    if (row < 0 || count < 1)
        return false;
    beginInsertRows(parent, row, row + count - 1);
    endInsertRows();
    return true;
}

bool TableModelVariable::removeRows(int row, int count, const QModelIndex& parent)
{
    if (row < 0 || count < 1)
        return false;
    beginRemoveRows(parent, row, row + count - 1);
    endRemoveRows();
    return true;
}

Qt::ItemFlags TableModelVariable::flags(const QModelIndex& index) const
{
    return QAbstractTableModel::flags(index);
}

void TableModelVariable::sort(int column, Qt::SortOrder order)
{
    CItem* group = currentGroup();
    if (!group)
        return;
    beginResetModel();
    // Every sort starts from tree order.
    m_rowOrder.resize(group->size());
    std::iota(m_rowOrder.begin(), m_rowOrder.end(), 0);
    if (column >= 0 && column < ColumnCount) {
        // One text per tag, taken once: the comparisons then cost no property rebuilds,
        // and the order is the same as comparing freshly built texts.
        std::vector<QString> keys;
        keys.reserve(m_rowOrder.size());
        for (CItem::iterator it = group->begin(); it != group->end(); ++it)
            keys.push_back(propertyText(it->second, column));
        // Plain text comparison on purpose, no tie-break: "10" sorts before "9".
        if (order == Qt::AscendingOrder)
            std::sort(m_rowOrder.begin(), m_rowOrder.end(),
                      [&keys](int a, int b) { return keys[a] < keys[b]; });
        else
            std::sort(m_rowOrder.begin(), m_rowOrder.end(),
                      [&keys](int a, int b) { return keys[a] > keys[b]; });
    }
    endResetModel();
}

QHash<int, QByteArray> TableModelVariable::roleNames() const
{
    return {{Qt::DisplayRole, "display"}};
}
