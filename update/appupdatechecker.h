#pragma once

#include <QObject>
#include <QPointer>

#include "update/appversionmanifest.h"

class QNetworkAccessManager;
class QNetworkReply;

// Asks the update server for its version manifest (HTTPS only; the address is the build's or the
// environment's, see update/updaterules.h) and tells whether it names another version.
class AppUpdateChecker : public QObject
{
    Q_OBJECT
public:
    explicit AppUpdateChecker(QObject *parent = nullptr);

    // Starts a check; a check still in flight is aborted first (and ends with its own
    // checkFinished(false, empty manifest)). Without a usable address no request is made and the
    // check ends with checkFinished(false, empty manifest) once the event loop runs.
    void startCheck();

signals:
    // Exactly once per check. hasDifferentVersion is true only for a valid manifest whose version
    // differs from this build's; transport and format failures report false.
    void checkFinished(bool hasDifferentVersion, const AppVersionManifest &manifest);

private slots:
    void onVersionJsonFinished();

private:
    void finishWithoutRequest();

    QNetworkAccessManager *m_network = nullptr;
    QPointer<QNetworkReply> m_reply;
};
