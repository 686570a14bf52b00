#include "update/downloaddialog.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QDebug>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QMessageBox>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>
#include <QVBoxLayout>

#include "ui/stylesheet.h"
#include "update/updaterules.h"

namespace {

QString defaultDownloadFolder()
{
    const QString above = folderAboveApplication(QCoreApplication::applicationDirPath());
    return chooseDownloadFolder(above, QFileInfo(above).isWritable(),
                                QStandardPaths::writableLocation(QStandardPaths::DownloadLocation));
}

const char *verdictName(DigestVerdict verdict)
{
    switch (verdict) {
    case DigestVerdict::Match:
        return "match";
    case DigestVerdict::Unreadable:
        return "unreadable";
    case DigestVerdict::Md5Mismatch:
        return "md5 mismatch";
    case DigestVerdict::Sha256Mismatch:
        break;
    }
    return "sha256 mismatch";
}

} // namespace

DownloadDialog::DownloadDialog(QWidget *parent, const AppVersionManifest &manifest,
                               DownloadDialogHooks hooks)
    : QDialog(parent), m_manifest(manifest), m_hooks(std::move(hooks)),
      m_network(new QNetworkAccessManager(this))
{
    setObjectName(QStringLiteral("downloadDialog"));
    setWindowTitle(tr("下载更新"));
    setModal(true);
    resize(440, 140);
    setStyleSheet(getQssString(QStringLiteral(":/res/qss/update_dialogs.css")));
    // Redirects are followed, but never from https: to http:.
    m_network->setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);

    auto *layout = new QVBoxLayout(this);
    m_statusLabel = new QLabel(tr("准备下载…"), this);
    m_statusLabel->setObjectName(QStringLiteral("statusLabel"));
    layout->addWidget(m_statusLabel);
    m_progressBar = new QProgressBar(this);
    m_progressBar->setObjectName(QStringLiteral("progressBar"));
    m_progressBar->setRange(0, 100);
    m_progressBar->setValue(0);
    m_progressBar->setTextVisible(false);
    layout->addWidget(m_progressBar);
    layout->addStretch(1);
    m_revealButton = new QPushButton(tr("查看下载文件"), this);
    m_revealButton->setObjectName(QStringLiteral("revealBtn"));
    m_revealButton->hide();
    connect(m_revealButton, &QPushButton::clicked, this, &DownloadDialog::revealDownloadedFile);
    layout->addWidget(m_revealButton, 0, Qt::AlignRight);

    const QString folder =
        m_hooks.destinationFolder.isEmpty() ? defaultDownloadFolder() : m_hooks.destinationFolder;
    m_destination = downloadDestination(folder, m_manifest.fileName);
    startDownload();
}

DownloadDialog::~DownloadDialog()
{
    abortActiveDownload();
}

void DownloadDialog::startDownload()
{
    m_statusLabel->setText(tr("正在下载…"));
    m_progressBar->setValue(0);

    if (!isHttpsUrl(m_manifest.url)) {
        qWarning().noquote() << "[DownloadDialog] 拒绝非 HTTPS 的下载地址:" << m_manifest.url;
        fail(tr("下载失败：%1").arg(tr("仅支持 HTTPS 下载地址")));
        return;
    }
    if (m_destination.isEmpty()) {
        qWarning().noquote() << "[DownloadDialog] 拒绝不安全的文件名:" << m_manifest.fileName;
        fail(tr("下载失败：%1").arg(tr("文件名不合法（%1）").arg(m_manifest.fileName)));
        return;
    }

    QDir().mkpath(QFileInfo(m_destination).absolutePath());
    if (QFileInfo::exists(m_destination) || QFileInfo(m_destination).isSymLink())
        QFile::remove(m_destination);
    m_file = new QFile(m_destination, this);
    if (!m_file->open(QIODevice::WriteOnly)) {
        qWarning().noquote() << "[DownloadDialog] 无法写入文件:" << m_destination
                             << m_file->errorString();
        delete m_file;
        m_file = nullptr;
        fail(tr("无法写入文件：%1").arg(m_destination));
        return;
    }

    QNetworkRequest request{QUrl(m_manifest.url)};
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      QByteArrayLiteral("TavroKVM-Qt-UpdateDownload"));
    qInfo().noquote() << "[DownloadDialog] 开始下载:" << m_manifest.url << "->" << m_destination;
    m_reply = m_network->get(request);
    connect(m_reply, &QNetworkReply::downloadProgress, this, &DownloadDialog::onDownloadProgress);
    connect(m_reply, &QNetworkReply::readyRead, this, &DownloadDialog::onReadyRead);
    connect(m_reply, &QNetworkReply::finished, this, &DownloadDialog::onFinished);
}

void DownloadDialog::onDownloadProgress(qint64 received, qint64 total)
{
    m_progressBar->setValue(downloadPercent(received, total));
}

void DownloadDialog::onReadyRead()
{
    if (!m_reply || !m_file)
        return;
    const QByteArray chunk = m_reply->readAll();
    // Flushed as it comes, so a failing disk is noticed during the transfer.
    if (m_file->write(chunk) != chunk.size() || !m_file->flush()) {
        qWarning().noquote() << "[DownloadDialog] 写入文件失败:" << m_destination
                             << m_file->errorString();
        abortActiveDownload();
        fail(tr("无法写入文件：%1").arg(m_destination));
    }
}

void DownloadDialog::onFinished()
{
    QNetworkReply *reply = m_reply;
    if (!reply)
        return;
    onReadyRead(); // whatever arrived with the end of the transfer
    if (!m_reply)
        return; // writing it failed and has been reported
    m_reply = nullptr;
    const QNetworkReply::NetworkError error = reply->error();
    const QString errorText = reply->errorString();
    reply->deleteLater();
    if (m_file) {
        m_file->flush();
        m_file->close();
    }

    if (error != QNetworkReply::NoError) {
        qWarning().noquote() << "[DownloadDialog] 下载失败:" << errorText;
        fail(tr("下载失败：%1").arg(errorText));
        return;
    }
    if (!verifyMd5AndFinish()) {
        fail(tr("校验错误，请重新下载"));
        return;
    }
    releaseFile(false);
    m_statusLabel->setText(tr("下载完成，校验通过。"));
    m_progressBar->setValue(100);
    m_revealButton->show();
}

bool DownloadDialog::verifyMd5AndFinish()
{
    const DigestVerdict verdict =
        verifyDownloadedFile(m_destination, m_manifest.md5, m_manifest.sha256);
    if (verdict == DigestVerdict::Match) {
        qInfo().noquote() << "[DownloadDialog] 校验通过:" << m_destination;
        return true;
    }
    qWarning().noquote() << "[DownloadDialog] 校验失败:" << m_destination << verdictName(verdict);
    return false;
}

void DownloadDialog::abortActiveDownload()
{
    const bool active = m_reply || m_file;
    if (m_reply) {
        QNetworkReply *reply = m_reply;
        m_reply = nullptr;
        disconnect(reply, nullptr, this, nullptr);
        reply->abort();
        reply->deleteLater();
    }
    releaseFile(true);
    if (active) {
        qInfo().noquote() << "[DownloadDialog] 已取消下载:" << m_destination;
        m_statusLabel->setText(tr("已取消下载。"));
    }
}

void DownloadDialog::revealDownloadedFile()
{
    const QUrl folder = QUrl::fromLocalFile(QFileInfo(m_destination).absolutePath());
    const bool opened =
        m_hooks.openFolder ? m_hooks.openFolder(folder) : QDesktopServices::openUrl(folder);
    if (!opened)
        qWarning().noquote() << "[DownloadDialog] 无法打开文件夹:" << folder.toLocalFile();
    accept();
}

void DownloadDialog::reject()
{
    abortActiveDownload();
    QDialog::reject();
}

void DownloadDialog::closeEvent(QCloseEvent *event)
{
    abortActiveDownload();
    QDialog::closeEvent(event);
}

void DownloadDialog::warn(const QString &text)
{
    if (m_hooks.warn)
        m_hooks.warn(this, windowTitle(), text);
    else
        QMessageBox::warning(this, windowTitle(), text, QMessageBox::Ok);
}

void DownloadDialog::fail(const QString &text)
{
    releaseFile(true);
    warn(text);
    if (isVisible())
        reject();
    else // still being built: end the dialog as soon as it runs
        QMetaObject::invokeMethod(this, &DownloadDialog::reject, Qt::QueuedConnection);
}

void DownloadDialog::releaseFile(bool removeIt)
{
    if (!m_file)
        return;
    m_file->close();
    if (removeIt)
        m_file->remove();
    delete m_file;
    m_file = nullptr;
}
