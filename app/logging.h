#pragma once

#include <QFile>
#include <QLoggingCategory>
#include <QScopedPointer>

// The open log file; opened by main before the application object exists.
extern QScopedPointer<QFile> m_logFile;

const QLoggingCategory& logDebug();
const QLoggingCategory& logInfo();
const QLoggingCategory& logWarning();
const QLoggingCategory& logCritical();
const QLoggingCategory& logFatal();

// "$HOME/Documents/TARN/OPC UA/Log/"
QString logFolderPath();
// Opens (appending) VelmoraGui.log in the log folder into m_logFile.
void openLogFile();
void messageHandler(QtMsgType type, const QMessageLogContext& context, const QString& msg);
void rotateLogFile();

// The program logs with a logger of category "default" and the stream forms
// info(logInfo()) / warning(logWarning()), so the line carries the accessor's name.
#define VLOG_INFO() QMessageLogger(__FILE__, __LINE__, Q_FUNC_INFO, "default").info(logInfo())
#define VLOG_WARNING() QMessageLogger(__FILE__, __LINE__, Q_FUNC_INFO, "default").warning(logWarning())
