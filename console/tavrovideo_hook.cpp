// Console view: the system keyboard hook. While the view is the active, unminimised window of
// the active application, the platform's keyboard tap takes the keyboard from the window system,
// so that its shortcuts reach the target. Focus, activation and minimising start and stop it.
#include <QDebug>
#include <QGuiApplication>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <QWindow>

#include "console/input/systemkeyboardhook.h"
#include "console/tavrovideo.h"
#include "platform/keyboardtap.h"
#include "platform/systemsettings.h"

namespace {

constexpr int kHookMonitorIntervalMs = 5000;

struct KeyboardHookState
{
    QPointer<TavroVideo> owner;
    std::unique_ptr<KeyboardTap> tap;
    QTimer *monitor = nullptr;
    bool stopping = false; // blocks re-enabling while the tap is torn down
};

KeyboardHookState &hookState()
{
    static KeyboardHookState state;
    return state;
}

const char *grantedText(bool trusted)
{
    return trusted ? "已授权" : "未授权";
}

} // namespace

bool checkAccessibilityPermission()
{
    return isAccessibilityTrusted();
}

bool requestAccessibilityPermission()
{
    return requestAccessibilityTrust();
}

TavroVideo *keyboardHookOwner()
{
    return hookState().owner;
}

bool isKeyboardTapPresent()
{
    return hookState().tap != nullptr;
}

void showAccessibilityPermissionDialog()
{
    TavroVideo *owner = hookState().owner;
    if (owner && owner->m_permissionDialogShowing) {
        qDebug() << "[showAccessibilityPermissionDialog] 辅助功能权限对话框已显示过，跳过重复显示";
        return;
    }
    if (owner)
        owner->m_permissionDialogShowing = true;
    qDebug() << "[showAccessibilityPermissionDialog] 显示辅助功能权限对话框";

    QMessageBox box;
    box.setIcon(QMessageBox::Information);
    box.setWindowTitle(QStringLiteral("需要辅助功能权限"));
    box.setText(QStringLiteral("为了捕获 Ctrl+Space 等系统快捷键，应用需要辅助功能权限。"));
    box.setInformativeText(
        QStringLiteral("请按照以下步骤授权：\n\n1. 点击下方的「打开系统偏好设置」按钮\n2. "
                       "在「隐私与安全性」→「辅助功能」中\n3. 点击左下角的锁图标解锁设置\n4. "
                       "勾选本应用程序以授予权限\n5. 重启应用程序使权限生效\n\n注意：这是 macOS "
                       "系统的安全要求，我们不会滥用此权限。"));
    QPushButton *open = box.addButton(QStringLiteral("打开系统偏好设置"), QMessageBox::ActionRole);
    QPushButton *recheck = box.addButton(QStringLiteral("重新检查权限"), QMessageBox::ActionRole);
    box.addButton(QStringLiteral("稍后设置"), QMessageBox::RejectRole);
    box.setDefaultButton(open);
    box.exec();

    if (box.clickedButton() == open) {
        openSystemSettingsPane(SystemSettingsPane::AccessibilityPrivacy);
    } else if (box.clickedButton() == recheck) {
        if (checkAccessibilityPermission())
            QMessageBox::information(nullptr, QStringLiteral("权限检查"),
                                     QStringLiteral("权限已授予！请重启应用程序使权限生效。"));
        else
            QMessageBox::warning(nullptr, QStringLiteral("权限检查"),
                                 QStringLiteral("权限尚未授予，请按照说明完成授权。"));
    }
    if (TavroVideo *stillOwner = hookState().owner)
        stillOwner->m_permissionDialogShowing = false;
}

void monitorHookStatus()
{
    KeyboardHookState &state = hookState();
    if (!state.tap || state.stopping || state.tap->isEnabled())
        return;
    qDebug() << "[钩子监控] 检测到键盘钩子已被系统禁用，尝试重新启用...";
    state.tap->setEnabled(true);
    if (state.tap->isEnabled())
        qDebug() << "[钩子监控] 键盘钩子已成功重新启用";
    else
        qDebug() << "[钩子监控] 键盘钩子重新启用失败，可能需要重新创建";
}

bool keyboardEventCallback(HookEventType type, int keyCode, quint64 flags)
{
    KeyboardHookState &state = hookState();
    TavroVideo *owner = state.owner;
    if (!owner)
        return false;
    if (type == HookEventType::DisabledByTimeout || type == HookEventType::DisabledByUserInput) {
        qWarning() << "[底层键盘钩子] 检测到事件钩子被系统禁用！类型:"
                   << (type == HookEventType::DisabledByTimeout ? "超时禁用" : "用户输入禁用");
        if (state.tap && !state.stopping) {
            qDebug() << "[底层键盘钩子] 尝试重新启用事件钩子...";
            state.tap->setEnabled(true);
            qDebug() << "[底层键盘钩子] 事件钩子已重新启用";
        }
        return false;
    }
    const HookDecision decision =
        decideHookEvent(type, keyCode, flags, owner->isAppReallyInForeground());
    if (decision.forwardKey != 0)
        owner->key_pass(decision.forwardKey, decision.action);
    return decision.swallow;
}

void TavroVideo::startSystemKeyboardHook()
{
    KeyboardHookState &state = hookState();
    qDebug() << "[底层键盘钩子] 正在启动系统级键盘钩子...";
    state.owner = this;
    bool trusted = checkAccessibilityPermission();
    qDebug() << "[底层键盘钩子] 当前辅助功能权限状态:" << grantedText(trusted);
    if (!trusted) {
        qWarning() << "[底层键盘钩子] 应用程序没有辅助功能权限，显示权限请求对话框";
        showAccessibilityPermissionDialog();
        trusted = checkAccessibilityPermission();
        qDebug() << "[底层键盘钩子] 权限对话框后的权限状态:" << grantedText(trusted);
        if (!trusted) {
            qDebug() << "[底层键盘钩子] 用户未授权辅助功能权限，无法启动键盘钩子";
            return;
        }
    }
    qDebug() << "[底层键盘钩子] 测试权限请求功能...";
    qDebug() << "[底层键盘钩子] 权限请求测试结果:"
             << (requestAccessibilityPermission() ? "已授权" : "用户拒绝");
    qDebug() << "[底层键盘钩子] 辅助功能权限已确认，正在创建事件监听器...";

    QString error;
    state.tap = createKeyboardTap(window()->windowHandle(), keyboardEventCallback, &error);
    if (!state.tap) {
        qWarning() << "[底层键盘钩子] 创建事件监听器失败，可能是权限不足或系统限制";
        qWarning() << "[底层键盘钩子] 建议：请确保在系统偏好设置中授予辅助功能权限";
        qDebug().noquote() << "[底层键盘钩子] 失败原因:" << error;
        return;
    }
    qDebug() << "[底层键盘钩子] 事件监听器启用状态:"
             << (state.tap->isEnabled() ? "已启用" : "启用失败");
    if (!state.monitor) {
        state.monitor = new QTimer;
        state.monitor->setInterval(kHookMonitorIntervalMs);
        QObject::connect(state.monitor, &QTimer::timeout, &monitorHookStatus);
        state.monitor->start();
        qDebug() << "[底层键盘钩子] 钩子状态监控定时器已启动";
    }
    qDebug() << "[底层键盘钩子] 系统级键盘钩子启动成功！";
    qDebug() << "[底层键盘钩子] 现在可以捕获以下组合键:";
    qDebug() << "  - Ctrl+Space";
    qDebug() << "  - Fn+Space";
    qDebug() << "  - Fn+Ctrl+Space";
    qDebug() << "  - Fn+Alt+Space";
    qDebug() << "  - 单独的 Fn 键按下/释放";
    qDebug() << "[底层键盘钩子] 请尝试按这些组合键来测试捕获功能";
}

void TavroVideo::stopSystemKeyboardHook()
{
    KeyboardHookState &state = hookState();
    if (!state.tap && !state.monitor)
        return;
    state.stopping = true;
    if (state.monitor) {
        state.monitor->stop();
        delete state.monitor;
        state.monitor = nullptr;
        qDebug() << "[底层键盘钩子] 钩子状态监控定时器已停止";
    }
    if (state.tap) {
        qDebug() << "[底层键盘钩子] 正在停止系统级键盘钩子...";
        state.tap.reset();
        qDebug() << "[底层键盘钩子] 系统级键盘钩子已停止";
    }
    state.owner = nullptr;
    state.stopping = false;
}

void TavroVideo::startKeyboardHookIfStopped()
{
    if (m_keyboardHookActive)
        return;
    startSystemKeyboardHook();
    m_keyboardHookActive = true;
}

void TavroVideo::stopKeyboardHookIfRunning()
{
    if (!m_keyboardHookActive)
        return;
    stopSystemKeyboardHook();
    m_keyboardHookActive = false;
}

// The flag clears at once, so that nothing restarts the hook in between; the tap goes on the
// next pass of the event loop.
void TavroVideo::stopKeyboardHookOnNextPass()
{
    if (!m_keyboardHookActive)
        return;
    m_keyboardHookActive = false;
    QTimer::singleShot(0, this, [] { TavroVideo::stopSystemKeyboardHook(); });
}

void TavroVideo::stopKeyboardHookForLayoutSwitch()
{
    stopKeyboardHookOnNextPass();
}

bool TavroVideo::checkKeyboardCapturePermission() const
{
    return checkAccessibilityPermission();
}

void TavroVideo::requestKeyboardCapturePermission()
{
    requestAccessibilityPermission();
}

void TavroVideo::showPermissionDialog()
{
    showAccessibilityPermissionDialog();
}

void TavroVideo::onWindowActivationChanged(bool active)
{
    if (active) {
        if (!window()->isMinimized() && m_appActive && !m_keyboardHookActive) {
            qDebug() << "[焦点管理] 窗口激活且应用在前台，启动键盘钩子";
            startKeyboardHookIfStopped();
        }
    } else if (m_keyboardHookActive) {
        qDebug() << "[焦点管理] 窗口非激活，停止键盘钩子";
        stopKeyboardHookOnNextPass();
    }
}

void TavroVideo::onWindowStateChanged(Qt::WindowStates oldState)
{
    const bool wasMinimized = oldState & Qt::WindowMinimized;
    const bool minimized = window()->windowState() & Qt::WindowMinimized;
    if (minimized && !wasMinimized) {
        qDebug() << "[TavroVideo::changeEvent] 窗口最小化，停止相关服务";
        if (m_keyboardHookActive) {
            qDebug() << "[TavroVideo::changeEvent] 最小化时停止键盘钩子";
            stopKeyboardHookIfRunning();
        }
    } else if (!minimized && wasMinimized) {
        qDebug() << "[TavroVideo::changeEvent] 窗口从最小化恢复，恢复相关服务";
        if (m_appActive && !m_keyboardHookActive) {
            qDebug() << "[TavroVideo::changeEvent] 从最小化恢复时启动键盘钩子";
            startKeyboardHookIfStopped();
        }
    }
    syncResolutionCheck(nullptr, nullptr);
    // A tap that survives keeps its enabled state in line with the window.
    KeyboardHookState &state = hookState();
    if (!state.tap)
        return;
    if (!minimized && window()->isActiveWindow() && !state.tap->isEnabled()) {
        qDebug() << "[TavroVideo::changeEvent] 窗口从最小化恢复，重新启用按键 hook";
        state.tap->setEnabled(true);
    } else if (minimized && state.tap->isEnabled()) {
        qDebug() << "[TavroVideo::changeEvent] 窗口最小化，暂停按键 hook";
        state.tap->setEnabled(false);
    }
}

bool TavroVideo::nativeEvent(const QByteArray &eventType, void *message, qintptr *result)
{
    if (eventType == "mac_generic_NSEvent")
        qDebug() << "[nativeEvent] 收到 macOS NSEvent";
    return QWidget::nativeEvent(eventType, message, result);
}
