#pragma once

#include <QString>
#include <QUrl>
#include <QtGlobal>

// Environment variable that overrides the manifest address compiled into the build. Set, it wins
// even when empty (which turns the check off).
inline constexpr char kManifestUrlEnvironment[] = "TAVROKVM_UPDATE_MANIFEST_URL";

// The manifest address the packager compiled in (CMake cache variable
// TAVROKVM_UPDATE_MANIFEST_URL); empty when none was given.
QString builtInManifestUrl();

// The manifest address to use: the environment's value when the variable is set, else the
// built-in one; trimmed. Empty means no address is configured.
QString chooseManifestUrl(bool environmentSet, const QString &environmentValue,
                          const QString &builtIn);

// chooseManifestUrl over this process's environment and the built-in address.
QString configuredManifestUrl();

// Whether the address may be fetched: a valid https: URL with a host. Everything else (http:,
// file:, relative or malformed addresses) is refused.
bool isHttpsUrl(const QString &address);

// Whether a manifest's file name names a file directly inside the destination folder: not empty,
// not "." or "..", without '/', '\\' or ':' (no absolute path, drive or parent step), without
// control characters, at most 255 UTF-8 bytes.
bool isPlainFileName(const QString &name);

// The folder above the executable's folder ("<dir>/.."), cleaned.
QString folderAboveApplication(const QString &applicationDirPath);

// Where a download goes: the folder above the executable's when it is writable (a portable
// build), else the user's download folder. Empty when neither is known.
QString chooseDownloadFolder(const QString &aboveApplication, bool aboveApplicationWritable,
                             const QString &userDownloads);

// Full path of `fileName` inside `folder`; empty unless the name is a plain file name and the
// folder is given.
QString downloadDestination(const QString &folder, const QString &fileName);

// Progress bar value for `received` of `total` bytes: 0 while the total is unknown (below 1),
// else received * 100 / total rounded down, held within 0..100.
int downloadPercent(qint64 received, qint64 total);

enum class DigestVerdict {
    Match,      // MD5 equal, and SHA-256 equal when one was expected
    Unreadable, // the file could not be opened or read
    Md5Mismatch,
    Sha256Mismatch,
};

// Digests of the whole file compared with the expected lower-case hex texts. An empty
// `expectedSha256` skips that comparison; the MD5 is always compared.
DigestVerdict verifyDownloadedFile(const QString &path, const QString &expectedMd5,
                                   const QString &expectedSha256);
