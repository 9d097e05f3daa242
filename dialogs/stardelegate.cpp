#include "dialogs/stardelegate.h"

QString StarDelegate::displayText(const QVariant&, const QLocale&) const
{
    return QStringLiteral("******");
}
