#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QString>

// The update server's description of the newest client build. Plain value, copied freely.
struct AppVersionManifest
{
    QString versionNo;    // "VersionNo", trimmed
    QString fileName;     // "FileName", trimmed
    QString md5;          // "md5", trimmed, lower case
    QString url;          // "Url", trimmed
    QString changeLog;    // release notes in the user's language (see chooseChangeLog)
    bool isValid = false; // versionNo, fileName, md5 and url all non-empty
    QString sha256; // optional "sha256", trimmed, lower case; empty when the manifest has none
};
Q_DECLARE_METATYPE(AppVersionManifest)

// The version this build compares with the manifest's.
QString currentAppVersionNumber();

// Release notes to show: the Chinese text for a Chinese user, else the English one; an empty
// choice falls back to the Chinese text, then to the English one.
QString chooseChangeLog(const QString &zh, const QString &en, bool chineseUser);

// Reads a manifest document. A body that is not JSON, or JSON that is not an object, gives an
// empty manifest and false, with the reason in *error when given. Members that are missing or are
// not strings read as empty; the result's isValid says whether the required four are present.
bool parseAppVersionManifest(const QByteArray &body, bool chineseUser, AppVersionManifest *manifest,
                             QString *error = nullptr);

// Whether the manifest names another version than `current`: trimmed, case-insensitive
// inequality (an older version counts too).
bool isDifferentVersion(const QString &manifestVersion, const QString &current);
