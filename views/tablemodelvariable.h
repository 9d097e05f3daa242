#pragma once

#include <QAbstractTableModel>
#include <QString>

#include <map>
#include <vector>

class CItem;

// The tags of the group selected in the tree, one row per tag, one column per
// string property. The tags stay in the tree; the model only borrows them.
class TableModelVariable : public QAbstractTableModel
{
    Q_OBJECT
public:
    explicit TableModelVariable(QObject* parent = nullptr);

    void setNameGroup(QString name);
    void setMapItem(std::map<QString, CItem*> items);
    void editNameGroup(QString oldName, QString newName);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    bool insertRows(int row, int count, const QModelIndex& parent = QModelIndex()) override;
    bool removeRows(int row, int count, const QModelIndex& parent = QModelIndex()) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;
    QHash<int, QByteArray> roleNames() const override;

private:
    CItem* currentGroup() const;
    std::map<QString, CItem*> m_items;
    QString m_groupName;
    // Visible row -> position of the tag among the group's children.
    std::vector<int> m_rowOrder;
};
