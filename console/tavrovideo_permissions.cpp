// Console view: camera and microphone permission, asked for early and explained when denied.
#include "console/tavrovideo.h"

#include <QDebug>
#include <QMessageBox>
#include <QPushButton>

#include "platform/permissions.h"
#include "platform/systemsettings.h"

void TavroVideo::requestCameraPermissionEarly()
{
    const MediaPermissionStatus status = mediaPermissionStatus(MediaPermission::Camera);
    qDebug() << "[TavroVideo::requestCameraPermissionEarly] 相机权限状态:"
             << permissionStatusText(status);
    const auto denied = [this] {
        qWarning() << "[TavroVideo::requestCameraPermissionEarly] 相机权限被拒绝";
        qWarning() << "请前往 系统设置 > 隐私与安全性 > 相机 中授予权限";
        showCameraPermissionDialog();
        emit cameraPermissionDenied();
    };
    switch (status) {
    case MediaPermissionStatus::Undetermined:
        requestMediaPermission(MediaPermission::Camera, this,
                               [this, denied](MediaPermissionStatus result) {
                                   qDebug() << "[TavroVideo::requestCameraPermissionEarly] "
                                               "权限申请完成，状态:"
                                            << permissionStatusText(result);
                                   if (result == MediaPermissionStatus::Granted)
                                       emit cameraPermissionGranted();
                                   else
                                       denied();
                               });
        break;
    case MediaPermissionStatus::Granted:
        emit cameraPermissionGranted();
        break;
    case MediaPermissionStatus::Denied:
        denied();
        break;
    }
    requestMicrophonePermissionEarly();
}

void TavroVideo::requestMicrophonePermissionEarly()
{
    const MediaPermissionStatus status = mediaPermissionStatus(MediaPermission::Microphone);
    qDebug() << "[TavroVideo::requestMicrophonePermissionEarly] 麦克风权限状态:"
             << permissionStatusText(status);
    if (status == MediaPermissionStatus::Undetermined) {
        requestMediaPermission(MediaPermission::Microphone, this, [](MediaPermissionStatus result) {
            qDebug() << "[TavroVideo::requestMicrophonePermissionEarly] 权限申请完成，状态:"
                     << permissionStatusText(result);
            if (result != MediaPermissionStatus::Granted)
                qWarning() << "请前往 系统设置 > 隐私与安全性 > 麦克风 中授予权限";
        });
    } else if (status == MediaPermissionStatus::Denied) {
        qWarning() << "请前往 系统设置 > 隐私与安全性 > 麦克风 中授予权限";
    }
}

void TavroVideo::showCameraPermissionDialog()
{
    if (m_permissionDialogShowing) {
        qDebug() << "[showCameraPermissionDialog] 摄像头权限对话框已显示过，跳过重复显示";
        return;
    }
    m_permissionDialogShowing = true;
    QMessageBox box(this);
    box.setIcon(QMessageBox::Information);
    box.setWindowTitle(tr("需要摄像头权限"));
    box.setText(tr("应用需要摄像头权限以显示视频预览和进行视频通话。"));
    box.setInformativeText(
        tr("请按照以下步骤授权：\n\n1. 点击下方的「打开系统设置」按钮\n2. "
           "在「隐私与安全性」→「相机」中\n3. 在列表中找到本应用程序\n4. "
           "确保应用程序的权限开关处于启用状态\n5. 重启应用程序使权限生效\n\n注意：这是 macOS "
           "系统的安全要求，我们不会滥用此权限。"));
    QPushButton *openSettings = box.addButton(tr("打开系统设置"), QMessageBox::AcceptRole);
    box.addButton(tr("稍后设置"), QMessageBox::RejectRole);
    box.setDefaultButton(openSettings);
    box.exec();
    if (box.clickedButton() == openSettings)
        openSystemSettingsPane(SystemSettingsPane::CameraPrivacy);
    m_permissionDialogShowing = false;
}
