#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

// One file of the log table.
struct LogFileEntry
{
    QString fileName;
    QString absolutePath;
    qint64 size = 0; // bytes
    QDateTime modified;
};

// Files of `folder` whose names match `nameFilters` (wildcards), newest first by modification
// time, equal times by name descending; at most `limit` of them when limit >= 0. A missing
// folder or an empty filter list gives none.
QList<LogFileEntry> listLogFiles(const QString &folder, const QStringList &nameFilters,
                                 int limit = -1);

// The run logs of the log folder ("tavrokvm-*.log"), the kMaxLogFiles newest first.
QList<LogFileEntry> recentBusinessLogs(const QString &logFolder);

// Proposed name of a log export: "tavrokvm-log-yyyyMMdd-HHmmss.zip".
QString logArchiveFileName(const QDateTime &when);
