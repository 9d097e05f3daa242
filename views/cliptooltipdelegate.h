#pragma once

#include <QStyledItemDelegate>

class QTableView;

// Draws cells on one line, cut with an ellipsis, and shows the full text of a
// cut cell as its tooltip; a cell that fits shows none. With install() a table
// gets this delegate, rows one line high and columns the user can resize.
class ClipTooltipDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    explicit ClipTooltipDelegate(QObject* parent = nullptr);

    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;

    // Whether the display text of index is cut in view as it stands.
    static bool isClipped(const QAbstractItemView* view, const QModelIndex& index);

    // One-line rows and this delegate; interactive columns when fitColumns
    // is to size them, the last one taking the room that is left.
    static void install(QTableView* view);
    // Columns as wide as their header and contents.
    static void fitColumns(QTableView* view);
    // Widens column to hold sample: for columns whose contents come later,
    // such as live values, which would otherwise be cut to the header's width.
    static void reserveColumn(QTableView* view, int column, const QString& sample);
};
