#include "app/logfiles.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

#include "app/logging.h"

QList<LogFileEntry> listLogFiles(const QString &folder, const QStringList &nameFilters, int limit)
{
    QList<LogFileEntry> entries;
    if (folder.isEmpty() || nameFilters.isEmpty())
        return entries;
    const QDir dir(folder);
    if (!dir.exists())
        return entries;
    const QFileInfoList files = dir.entryInfoList(nameFilters, QDir::Files | QDir::Hidden);
    for (const QFileInfo &info : files)
        entries.append(
            {info.fileName(), info.absoluteFilePath(), info.size(), info.lastModified()});
    // Run logs started within one second share a time; their names still order them.
    std::sort(entries.begin(), entries.end(), [](const LogFileEntry &a, const LogFileEntry &b) {
        if (a.modified != b.modified)
            return a.modified > b.modified;
        return a.fileName > b.fileName;
    });
    if (limit >= 0 && entries.size() > limit)
        entries.resize(limit);
    return entries;
}

QList<LogFileEntry> recentBusinessLogs(const QString &logFolder)
{
    return listLogFiles(logFolder, {QStringLiteral("tavrokvm-*.log")}, kMaxLogFiles);
}

QString logArchiveFileName(const QDateTime &when)
{
    return QStringLiteral("tavrokvm-log-%1.zip")
        .arg(when.toString(QStringLiteral("yyyyMMdd-HHmmss")));
}
