#include <QDebug>

#include "platform/systemsettings.h"

namespace {

const char *paneName(SystemSettingsPane pane)
{
    switch (pane) {
    case SystemSettingsPane::CameraPrivacy:
        return "camera";
    case SystemSettingsPane::MicrophonePrivacy:
        return "microphone";
    case SystemSettingsPane::AccessibilityPrivacy:
        break;
    }
    return "accessibility";
}

} // namespace

bool openSystemSettingsPane(SystemSettingsPane pane)
{
    qDebug().noquote() << "[Platform] 本系统无需打开系统设置（无隐私授权面板）:" << paneName(pane);
    return false;
}
