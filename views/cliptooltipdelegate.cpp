#include "views/cliptooltipdelegate.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QHeaderView>
#include <QHelpEvent>
#include <QTableView>
#include <QToolTip>

namespace {

constexpr int kFitRows = 100;

// Room for the text inside a cell: the style's item text rectangle less the
// margins the style leaves on each side of the text.
int textRoom(const QAbstractItemView* view, const QStyleOptionViewItem& option)
{
    const QStyle* style = view->style() ? view->style() : QApplication::style();
    const QRect text = style->subElementRect(QStyle::SE_ItemViewItemText, &option, view);
    const int margin = style->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, view) + 1;
    return text.width() - 2 * margin;
}

} // namespace

ClipTooltipDelegate::ClipTooltipDelegate(QObject* parent) : QStyledItemDelegate(parent) {}

bool ClipTooltipDelegate::helpEvent(QHelpEvent* event, QAbstractItemView* view,
                                    const QStyleOptionViewItem& option, const QModelIndex& index)
{
    if (!event || !view || event->type() != QEvent::ToolTip || index.data(Qt::ToolTipRole).isValid())
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    if (isClipped(view, index)) {
        QToolTip::showText(event->globalPos(), index.data(Qt::DisplayRole).toString(), view,
                           view->visualRect(index));
    } else {
        QToolTip::hideText();
        event->ignore();
    }
    return true;
}

bool ClipTooltipDelegate::isClipped(const QAbstractItemView* view, const QModelIndex& index)
{
    if (!view || !index.isValid())
        return false;
    QStyleOptionViewItem option;
    option.initFrom(view);
    option.rect = view->visualRect(index);
    option.font = view->font();
    option.fontMetrics = view->fontMetrics();
    option.features |= QStyleOptionViewItem::HasDisplay;
    option.text = index.data(Qt::DisplayRole).toString();
    if (option.text.isEmpty())
        return false;
    return option.fontMetrics.horizontalAdvance(option.text) > textRoom(view, option);
}

void ClipTooltipDelegate::install(QTableView* view)
{
    view->setItemDelegate(new ClipTooltipDelegate(view));
    view->setWordWrap(false);
    view->setTextElideMode(Qt::ElideRight);
    QHeaderView* rows = view->verticalHeader();
    rows->setSectionResizeMode(QHeaderView::Fixed);
    rows->setDefaultSectionSize(view->fontMetrics().height() + 8);
    QHeaderView* columns = view->horizontalHeader();
    columns->setSectionResizeMode(QHeaderView::Interactive);
    columns->setStretchLastSection(true);
    columns->setTextElideMode(Qt::ElideRight);
    // Fitting measures the rows in view and this many more: a group of a
    // thousand tags stays quick to select, and a longer text further down
    // still shows in its tooltip.
    columns->setResizeContentsPrecision(kFitRows);
    rows->setResizeContentsPrecision(kFitRows);
}

void ClipTooltipDelegate::fitColumns(QTableView* view)
{
    view->resizeColumnsToContents();
}

void ClipTooltipDelegate::reserveColumn(QTableView* view, int column, const QString& sample)
{
    const int padding = 2 * view->style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, view) + 12;
    const int wanted = view->fontMetrics().horizontalAdvance(sample) + padding;
    if (view->columnWidth(column) < wanted)
        view->setColumnWidth(column, wanted);
}
