#pragma once

#include <QStyledItemDelegate>

// Paints every value as six asterisks, so that neither a password nor its
// length shows in a table.
class StarDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QString displayText(const QVariant& value, const QLocale& locale) const override;
};
