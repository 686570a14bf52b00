#pragma once

#include <QDialog>
#include <QPointer>
#include <QUrl>

#include <functional>

#include "update/appversionmanifest.h"

class QFile;
class QLabel;
class QNetworkAccessManager;
class QNetworkReply;
class QProgressBar;
class QPushButton;

// What the download dialog needs from outside itself. Empty members mean the real thing; tests
// replace them so that no modal box blocks and no file lands beside the test executable.
struct DownloadDialogHooks
{
    // Folder the file is written to. Empty: the folder above the executable's when writable,
    // else the user's download folder.
    QString destinationFolder;
    // Shows a warning and returns once it is dismissed. Empty: QMessageBox::warning.
    std::function<void(QWidget *parent, const QString &title, const QString &text)> warn;
    // Shows a folder in the file manager. Empty: QDesktopServices::openUrl.
    std::function<bool(const QUrl &folder)> openFolder;
};

// Fetches the manifest's file over HTTPS into the destination folder, verifies its MD5 (and its
// SHA-256 when the manifest has one) and offers to show it. Any failure removes the file, warns
// and rejects; closing the dialog mid-transfer cancels and removes the partial file.
class DownloadDialog : public QDialog
{
    Q_OBJECT
public:
    // Builds the dialog and starts the download at once.
    DownloadDialog(QWidget *parent, const AppVersionManifest &manifest,
                   DownloadDialogHooks hooks = {});
    ~DownloadDialog() override;

    // Full path of the file being written; empty when the manifest's name was refused.
    QString destinationPath() const { return m_destination; }

    void startDownload();
    // Cancels a transfer in flight and removes its partial file.
    void abortActiveDownload();
    // Shows the folder that holds the downloaded file, then accepts.
    void revealDownloadedFile();
    // Whether the file on disk has the manifest's digests.
    bool verifyMd5AndFinish();

public slots:
    void onDownloadProgress(qint64 received, qint64 total);
    void onFinished();
    void reject() override;

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void onReadyRead();
    void warn(const QString &text);
    // Warns, removes whatever was written and rejects (later, when not yet shown).
    void fail(const QString &text);
    void releaseFile(bool removeIt);

    AppVersionManifest m_manifest;
    DownloadDialogHooks m_hooks;
    QString m_destination;
    QNetworkAccessManager *m_network = nullptr;
    QPointer<QNetworkReply> m_reply;
    QFile *m_file = nullptr;
    QLabel *m_statusLabel = nullptr;
    QProgressBar *m_progressBar = nullptr;
    QPushButton *m_revealButton = nullptr;
};
