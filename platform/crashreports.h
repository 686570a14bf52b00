#pragma once

#include <QString>
#include <QStringList>

// Where the system keeps the crash reports of this program.
struct CrashReportLocation
{
    QString folder;          // empty: the system keeps none the program can read
    QStringList nameFilters; // wildcards of the files that belong to the program
};

// The crash reports of the program whose executable is named `executableName`, for a user whose
// home folder is `homePath`. No file system access.
// macOS: every file of "<home>/Library/Logs/DiagnosticReports".
// Linux: the files of "/var/crash" whose name carries the executable's name (crash handlers name
// them after the executable's path, "_usr_bin_tavrokvm.1000.crash"); an empty name gives none.
CrashReportLocation crashReportLocation(const QString &homePath, const QString &executableName);
