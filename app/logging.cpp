#include "app/logging.h"

#include <QDateTime>
#include <QTextStream>

#include <string>

QScopedPointer<QFile> m_logFile;

namespace {

// Every category is created with debug enabled so that nothing is filtered.
const QLoggingCategory& makeCategory(QLoggingCategory& c)
{
    c.setEnabled(QtDebugMsg, true);
    return c;
}

const char* const kLogFileName = "VelmoraGui.log";
const char* const kTimeFormat = "yyyy-MM-dd hh:mm:ss.zzz ";

} // namespace

const QLoggingCategory& logDebug()
{
    static QLoggingCategory c("Debug");
    return makeCategory(c);
}

const QLoggingCategory& logInfo()
{
    static QLoggingCategory c("Info");
    return makeCategory(c);
}

const QLoggingCategory& logWarning()
{
    static QLoggingCategory c("Warning");
    return makeCategory(c);
}

const QLoggingCategory& logCritical()
{
    static QLoggingCategory c("Critical");
    return makeCategory(c);
}

const QLoggingCategory& logFatal()
{
    static QLoggingCategory c("Fatal");
    return makeCategory(c);
}

QString logFolderPath()
{
    // A missing HOME ends the process here, as std::string of a null pointer does.
    return QString::fromStdString(std::string(getenv("HOME"))) + "/Documents/TARN/OPC UA/Log/";
}

void openLogFile()
{
    m_logFile.reset(new QFile(logFolderPath() + kLogFileName));
    m_logFile->open(QIODevice::Append | QIODevice::Text);
}

void messageHandler(QtMsgType, const QMessageLogContext& context, const QString& msg)
{
    QTextStream out(m_logFile.data());
    out << QDateTime::currentDateTime().toString(kTimeFormat) << context.category << ": " << msg << "\n";
    out.flush();
}

void rotateLogFile()
{
    if (m_logFile->size() <= 10485760)
        return;
    m_logFile->close();
    const QString path = logFolderPath() + kLogFileName;
    m_logFile->rename(path + QDateTime::currentDateTime().toString(kTimeFormat));
    m_logFile.reset(new QFile(path));
    m_logFile->open(QIODevice::Append | QIODevice::Text);
}
