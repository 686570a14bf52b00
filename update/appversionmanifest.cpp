#include "update/appversionmanifest.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>

#include "app/buildinfo.h"

namespace {

QString stringMember(const QJsonObject &object, const char *name)
{
    const QJsonValue value = object.value(QLatin1String(name));
    return value.isString() ? value.toString().trimmed() : QString();
}

} // namespace

QString currentAppVersionNumber()
{
    return QString::fromLatin1(kAppVersionNumber).trimmed();
}

QString chooseChangeLog(const QString &zh, const QString &en, bool chineseUser)
{
    const QString preferred = chineseUser ? zh : en;
    if (!preferred.isEmpty())
        return preferred;
    return zh.isEmpty() ? en : zh;
}

bool parseAppVersionManifest(const QByteArray &body, bool chineseUser, AppVersionManifest *manifest,
                             QString *error)
{
    *manifest = AppVersionManifest();
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (error)
            *error = parseError.errorString();
        return false;
    }
    if (!document.isObject()) {
        if (error)
            *error = QStringLiteral("not a JSON object");
        return false;
    }

    const QJsonObject object = document.object();
    manifest->versionNo = stringMember(object, "VersionNo");
    manifest->fileName = stringMember(object, "FileName");
    manifest->md5 = stringMember(object, "md5").toLower();
    manifest->url = stringMember(object, "Url");
    manifest->sha256 = stringMember(object, "sha256").toLower();

    const QJsonObject notes = object.value(QLatin1String("ChangeLog")).toObject();
    // Release notes keep their own line breaks and blanks.
    const QString zh = notes.value(QLatin1String("zh")).toString();
    const QString en = notes.value(QLatin1String("en")).toString();
    manifest->changeLog = chooseChangeLog(zh, en, chineseUser);

    manifest->isValid = !manifest->versionNo.isEmpty() && !manifest->fileName.isEmpty() &&
                        !manifest->md5.isEmpty() && !manifest->url.isEmpty();
    return true;
}

bool isDifferentVersion(const QString &manifestVersion, const QString &current)
{
    return QString::compare(manifestVersion.trimmed(), current.trimmed(), Qt::CaseInsensitive) != 0;
}
