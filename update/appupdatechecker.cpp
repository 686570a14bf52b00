#include "update/appupdatechecker.h"

#include <QDebug>
#include <QLocale>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include "update/updaterules.h"

AppUpdateChecker::AppUpdateChecker(QObject *parent)
    : QObject(parent), m_network(new QNetworkAccessManager(this))
{
    // Redirects are followed, but never from https: to http:.
    m_network->setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
}

void AppUpdateChecker::startCheck()
{
    if (m_reply) {
        QNetworkReply *previous = m_reply;
        m_reply = nullptr;
        // Ends the previous check through onVersionJsonFinished's transport-error path.
        previous->abort();
    }

    const QString address = configuredManifestUrl();
    if (address.isEmpty()) {
        qInfo().noquote() << "[AppUpdateChecker] 未配置更新清单地址，跳过更新检查";
        finishWithoutRequest();
        return;
    }
    if (!isHttpsUrl(address)) {
        qWarning().noquote() << "[AppUpdateChecker] 拒绝非 HTTPS 的更新清单地址:" << address;
        finishWithoutRequest();
        return;
    }

    QNetworkRequest request{QUrl(address)};
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      QByteArrayLiteral("TavroKVM-Qt-UpdateCheck"));
    m_reply = m_network->get(request);
    connect(m_reply, &QNetworkReply::finished, this, &AppUpdateChecker::onVersionJsonFinished);
}

void AppUpdateChecker::finishWithoutRequest()
{
    // Queued so that every check reports after startCheck has returned, as a request would.
    QTimer::singleShot(0, this, [this] { emit checkFinished(false, AppVersionManifest()); });
}

void AppUpdateChecker::onVersionJsonFinished()
{
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply)
        return;
    if (reply == m_reply)
        m_reply = nullptr;
    reply->deleteLater();

    if (reply->error() != QNetworkReply::NoError) {
        qWarning().noquote() << "[AppUpdateChecker] 获取更新清单失败:" << reply->errorString();
        emit checkFinished(false, AppVersionManifest());
        return;
    }

    const bool chinese = QLocale().language() == QLocale::Chinese;
    AppVersionManifest manifest;
    QString error;
    if (!parseAppVersionManifest(reply->readAll(), chinese, &manifest, &error)) {
        qWarning().noquote() << "[AppUpdateChecker] 更新清单格式错误:" << error;
        emit checkFinished(false, AppVersionManifest());
        return;
    }
    if (!manifest.isValid) {
        qWarning().noquote() << "[AppUpdateChecker] 更新清单缺少必要字段";
        emit checkFinished(false, manifest);
        return;
    }

    const bool different = isDifferentVersion(manifest.versionNo, currentAppVersionNumber());
    qInfo().noquote() << "[AppUpdateChecker] 服务器版本:" << manifest.versionNo
                      << "当前版本:" << currentAppVersionNumber();
    emit checkFinished(different, manifest);
}
