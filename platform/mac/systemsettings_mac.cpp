#include <QProcess>

#include "platform/systemsettings.h"

bool openSystemSettingsPane(SystemSettingsPane pane)
{
    QString url = QStringLiteral("x-apple.systempreferences:com.apple.preference.security?");
    switch (pane) {
    case SystemSettingsPane::CameraPrivacy:
        url += QStringLiteral("Privacy_Camera");
        break;
    case SystemSettingsPane::MicrophonePrivacy:
        url += QStringLiteral("Privacy_Microphone");
        break;
    case SystemSettingsPane::AccessibilityPrivacy:
        url += QStringLiteral("Privacy_Accessibility");
        break;
    }
    return QProcess::startDetached(QStringLiteral("open"), {url});
}
