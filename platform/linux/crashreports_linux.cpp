#include "platform/crashreports.h"

CrashReportLocation crashReportLocation(const QString &homePath, const QString &executableName)
{
    Q_UNUSED(homePath)
    // Core dumps (systemd-coredump) are not readable by the user and far too large for a log
    // archive; the crash handlers' text reports under /var/crash are.
    if (executableName.isEmpty())
        return {};
    return {QStringLiteral("/var/crash"), {QLatin1Char('*') + executableName + QLatin1Char('*')}};
}
