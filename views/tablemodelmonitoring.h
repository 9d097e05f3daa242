#pragma once

#include <QAbstractTableModel>
#include <QList>
#include <QString>
#include <QVariant>

#include <map>

class CItem;

// Live values of the selected group's tags. Values are collected per group in
// a flat cell list (four cells a row: the tag's full name, value, quality,
// time) and shown when the main window's timer calls updateData, never per value.
class TableModelMonitoring : public QAbstractTableModel
{
    Q_OBJECT
public:
    explicit TableModelMonitoring(QObject* parent = nullptr);

    void setNameGroup(QString name);
    void setMapItem(std::map<QString, CItem*> items);
    void editNameGroup(QString oldName, QString newName);
    // cells: value, quality, time and, as a fourth entry, the tag's full name.
    void setNewData(int row, QList<QVariant> cells, QString group);
    // True when values of the group are kept (it has been shown); setNewData
    // drops those of any other group.
    bool collects(const QString& group);
    void updateData();
    void cleanupOldGroups();
    // Every row holding a value gets `status` as its quality (the values are no longer live).
    void setQualityOfAll(const QString& status);
    // The collected cells of a group; empty when the group has none.
    QList<QVariant> groupValues(const QString& group) const;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    bool insertRows(int row, int count, const QModelIndex& parent = QModelIndex()) override;
    bool removeRows(int row, int count, const QModelIndex& parent = QModelIndex()) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QHash<int, QByteArray> roleNames() const override;

private:
    CItem* currentGroup() const;
    // Puts each stored value back in the row of the tag it came for.
    void followTags(std::map<QString, QList<QVariant>>::value_type& entry);
    std::map<QString, CItem*> m_items;
    QString m_groupName;
    std::map<QString, QList<QVariant>> m_groupValues;
    // Entry of the group that took the last value; end() when unknown.
    std::map<QString, QList<QVariant>>::iterator m_lastGroup = m_groupValues.end();
};
