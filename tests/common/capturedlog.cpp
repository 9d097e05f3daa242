#include "tests/common/capturedlog.h"

#include <QMutex>

namespace {

QMutex g_mutex;
QStringList g_lines;

void keep(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    QMutexLocker lock(&g_mutex);
    if (!text.contains("propagateSizeHints"))
        g_lines << (type == QtWarningMsg ? "W " : "I ") + text;
}

} // namespace

void CapturedLog::install()
{
    qInstallMessageHandler(keep);
}

QStringList CapturedLog::take()
{
    QMutexLocker lock(&g_mutex);
    return std::exchange(g_lines, {});
}

QStringList CapturedLog::takeWarnings()
{
    QStringList warnings;
    for (const QString& line : take())
        if (line.startsWith("W "))
            warnings << line.mid(2);
    return warnings;
}
