#include "update/updaterules.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>

QString chooseManifestUrl(bool environmentSet, const QString &environmentValue,
                          const QString &builtIn)
{
    return (environmentSet ? environmentValue : builtIn).trimmed();
}

QString configuredManifestUrl()
{
    return chooseManifestUrl(qEnvironmentVariableIsSet(kManifestUrlEnvironment),
                             qEnvironmentVariable(kManifestUrlEnvironment), builtInManifestUrl());
}

bool isHttpsUrl(const QString &address)
{
    const QUrl url(address.trimmed(), QUrl::StrictMode);
    return url.isValid() && url.scheme() == QLatin1String("https") && !url.host().isEmpty();
}

bool isPlainFileName(const QString &name)
{
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return false;
    if (name.toUtf8().size() > 255)
        return false;
    for (const QChar c : name) {
        if (c == QLatin1Char('/') || c == QLatin1Char('\\') || c == QLatin1Char(':') ||
            c.unicode() < 0x20 || c.unicode() == 0x7f)
            return false;
    }
    return true;
}

QString folderAboveApplication(const QString &applicationDirPath)
{
    if (applicationDirPath.isEmpty())
        return QString();
    return QDir::cleanPath(applicationDirPath + QStringLiteral("/.."));
}

QString chooseDownloadFolder(const QString &aboveApplication, bool aboveApplicationWritable,
                             const QString &userDownloads)
{
    if (!aboveApplication.isEmpty() && aboveApplicationWritable)
        return aboveApplication;
    return userDownloads;
}

QString downloadDestination(const QString &folder, const QString &fileName)
{
    if (folder.isEmpty() || !isPlainFileName(fileName))
        return QString();
    return QDir(folder).filePath(fileName);
}

int downloadPercent(qint64 received, qint64 total)
{
    if (total < 1 || received < 1)
        return 0;
    if (received >= total)
        return 100;
    return int(received * 100 / total);
}

DigestVerdict verifyDownloadedFile(const QString &path, const QString &expectedMd5,
                                   const QString &expectedSha256)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return DigestVerdict::Unreadable;
    QCryptographicHash md5(QCryptographicHash::Md5);
    QCryptographicHash sha256(QCryptographicHash::Sha256);
    for (;;) {
        const QByteArray chunk = file.read(1 << 16);
        if (chunk.isEmpty())
            break;
        md5.addData(chunk);
        sha256.addData(chunk);
    }
    if (file.error() != QFileDevice::NoError)
        return DigestVerdict::Unreadable;
    if (QString::fromLatin1(md5.result().toHex()) != expectedMd5)
        return DigestVerdict::Md5Mismatch;
    if (!expectedSha256.isEmpty() && QString::fromLatin1(sha256.result().toHex()) != expectedSha256)
        return DigestVerdict::Sha256Mismatch;
    return DigestVerdict::Match;
}
