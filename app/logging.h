#pragma once

#include <QDateTime>
#include <QString>
#include <QtGlobal>

// Log folder ("<application data>/log"), created with its parents when missing.
// Called for every line, so a folder removed while the program runs comes back.
QString tkcLogDirPath();

// Full path of a new log file named after the current moment: "tavrokvm-yyyyMMdd-HHmmss.log".
QString tkcNextLogFile();

// Keeps the 10 newest "tavrokvm-*.log" files of the log folder; other files are left alone.
void tkcRotateLogs();

// The process-wide message handler: one line to the run's log file and to standard error.
// Safe from any thread; must not be re-entered by logging from inside.
void customLogMessageHandler(QtMsgType type, const QMessageLogContext &context, const QString &msg);

// Level name of a message type ("DEBUG", "INFO", "WARN", "CRIT", "FATAL"; empty otherwise).
QString logLevelName(QtMsgType type);

// File name of a source path without its folders; empty for a null path.
QString logSourceFileName(const char *file);

// One complete log line, newline included: "time [level] [file:line] message".
QString formatLogLine(const QDateTime &when, QtMsgType type, const char *file, int line,
                      const QString &msg);

// Number of log files kept in the log folder.
inline constexpr int kMaxLogFiles = 10;
