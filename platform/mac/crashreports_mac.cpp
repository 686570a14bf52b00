#include "platform/crashreports.h"

CrashReportLocation crashReportLocation(const QString &homePath, const QString &executableName)
{
    Q_UNUSED(executableName)
    return {homePath + QStringLiteral("/Library/Logs/DiagnosticReports"), {QStringLiteral("*")}};
}
