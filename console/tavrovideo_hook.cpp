// Console view: the system keyboard hook. While the view is the active, unminimised window of
// the active application, the platform's keyboard tap takes the keyboard from the window system,
// so that its shortcuts reach the target. Focus, activation and minimising start and stop it.
// On X11 the grab's real state comes from the server: it is taken again when lost while the
// console should hold it, and Ctrl+Alt+Shift+Escape gives it back until the window is activated
// again.
#include <QApplication>
#include <QCoreApplication>
#include <QDebug>
#include <QGuiApplication>
#include <QKeyEvent>
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
    QPointer<QWindow> tapWindow; // the window the tap was made for
    QTimer *monitor = nullptr;
    bool stopping = false; // blocks re-enabling while the tap is torn down
    // A stop left for the next pass runs only if no start came after it.
    quint64 stopTicket = 0;
    // The operator pressed the release chord: the desktop keeps the keyboard until the console's
    // window is activated again.
    bool releasedByOperator = false;
    bool syncQueued = false;
    // What the view was last told about the grab, for its indicator.
    QPointer<TavroVideo> shownTo;
    bool shownHeld = false;
    // Repeated attempts that fail the same way log once; cleared when the keyboard is held.
    KeyboardGrabStatus lastFailure = KeyboardGrabStatus::Success;
    QPointer<QObject> chordFilter;
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

const char *grabFailureText(KeyboardGrabStatus status)
{
    switch (status) {
    case KeyboardGrabStatus::AlreadyGrabbed:
        return "键盘已被其他程序抓取";
    case KeyboardGrabStatus::InvalidTime:
        return "抓取时间无效";
    case KeyboardGrabStatus::NotViewable:
        return "窗口不可见";
    case KeyboardGrabStatus::Frozen:
        return "键盘被其他程序冻结";
    case KeyboardGrabStatus::Success:
    case KeyboardGrabStatus::Unavailable:
        break;
    }
    return "系统未提供键盘抓取";
}

// Whether the tap should hold the keyboard now: the owner's window shown, not minimised and
// active in the active application, not let go by the operator, and no popup of ours holding it.
bool keyboardWanted()
{
    const KeyboardHookState &state = hookState();
    if (!state.owner || !state.tap || state.stopping || state.releasedByOperator)
        return false;
    const QWidget *window = state.owner->window();
    if (!window->isVisible() || window->isMinimized() || !window->isActiveWindow() ||
        QGuiApplication::applicationState() != Qt::ApplicationActive)
        return false;
    return !(state.tap->isWindowGrab() && QApplication::activePopupWidget());
}

// Tells the owner's indicator when the held state changed.
void announceGrab()
{
    KeyboardHookState &state = hookState();
    if (state.shownTo != state.owner) {
        // The hook stopped or changed hands: the last owner's indicator goes off.
        if (state.shownTo && state.shownHeld) {
            qDebug() << "[底层键盘钩子] 键盘抓取状态: 已释放";
            emit state.shownTo->keyboardGrabChanged(false);
        }
        state.shownTo = state.owner;
        state.shownHeld = false;
    }
    const bool held = state.tap && state.tap->isEnabled();
    if (!state.owner || held == state.shownHeld)
        return;
    state.shownHeld = held;
    qDebug() << "[底层键盘钩子] 键盘抓取状态:" << (held ? "已抓取" : "已释放");
    emit state.owner->keyboardGrabChanged(held);
}

bool takeKeyboard()
{
    KeyboardHookState &state = hookState();
    const KeyboardGrabStatus status = state.tap->setEnabled(true);
    if (status == KeyboardGrabStatus::Success) {
        state.lastFailure = status;
        return true;
    }
    if (status != state.lastFailure) {
        qWarning().noquote() << "[底层键盘钩子] 抓取键盘失败:" << keyboardGrabStatusName(status)
                             << grabFailureText(status);
        state.lastFailure = status;
    }
    return false;
}

// While a popup of ours is open its grab has replaced the tap's; ungrabbing would take it away.
void letKeyboardGo()
{
    KeyboardTap &tap = *hookState().tap;
    if (tap.isWindowGrab() && QApplication::activePopupWidget())
        tap.yieldToPopup();
    else
        tap.setEnabled(false);
}

// Makes the tap hold the keyboard exactly when it should, logging the given line (if any) when
// that takes or lets it go.
void syncKeyboardGrab(const char *takenLog, const char *releasedLog)
{
    KeyboardHookState &state = hookState();
    if (state.tap && !state.stopping) {
        const bool wanted = keyboardWanted();
        if (wanted && !state.tap->isEnabled()) {
            if (takeKeyboard() && takenLog)
                qDebug() << takenLog;
        } else if (!wanted && state.tap->isEnabled()) {
            letKeyboardGo();
            if (releasedLog)
                qDebug() << releasedLog;
        }
    }
    announceGrab();
}

// The tap's news (X11: a focus-grab event, the window mapped again) is acted on from the event
// loop, once for a burst, never inside the toolkit's event dispatch.
void scheduleGrabSync()
{
    KeyboardHookState &state = hookState();
    if (state.syncQueued)
        return;
    state.syncQueued = true;
    QMetaObject::invokeMethod(
        qApp,
        [] {
            KeyboardHookState &state = hookState();
            state.syncQueued = false;
            if (state.tap && state.shownHeld && !state.tap->isEnabled())
                qDebug() << "[底层键盘钩子] 键盘抓取已被系统或其他程序取消";
            syncKeyboardGrab("[底层键盘钩子] 已重新抓取键盘", nullptr);
        },
        Qt::QueuedConnection);
}

void releaseKeyboardByOperator()
{
    KeyboardHookState &state = hookState();
    state.releasedByOperator = true;
    qDebug() << "[底层键盘钩子] 按下 Ctrl+Alt+Shift+Esc，键盘交还桌面，窗口重新激活后恢复抓取";
    syncKeyboardGrab(nullptr, nullptr);
    if (state.owner)
        emit state.owner->statusBarMessageRequested(
            QCoreApplication::translate("TavroVideo", "键盘已交还桌面，重新激活窗口后恢复捕获"));
}

// Ctrl+Alt+Shift+Escape in the hook owner's window. Application-wide, so that it comes before
// the view forwards the keys: the modifiers reach the target, the Escape never does.
class GrabReleaseChordFilter : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease)
            return false;
        const KeyboardHookState &state = hookState();
        // Only a window grab is ours to hand back; a macOS tap keeps the system's shortcuts
        // (Cmd+Option+Shift+Esc is its force quit) and takes no chord.
        if (!state.owner || !state.tap || !state.tap->isWindowGrab() ||
            !isInWindow(watched, state.owner->window()))
            return false;
        const auto *key = static_cast<QKeyEvent *>(event);
        if (m_escapeDown && key->key() == Qt::Key_Escape) {
            // Its repeats and its release, whatever is still held by then.
            if (event->type() == QEvent::KeyRelease && !key->isAutoRepeat())
                m_escapeDown = false;
            return true;
        }
        if (event->type() != QEvent::KeyPress || !isGrabReleaseChord(key->key(), key->modifiers()))
            return false;
        m_escapeDown = true;
        releaseKeyboardByOperator();
        return true;
    }

private:
    // The toolkit hands a key to the window first, then to its focus widget.
    static bool isInWindow(const QObject *watched, const QWidget *window)
    {
        if (const auto *widget = qobject_cast<const QWidget *>(watched))
            return widget->window() == window;
        if (const auto *handle = qobject_cast<const QWindow *>(watched))
            return handle == window->windowHandle();
        return false;
    }

    bool m_escapeDown = false;
};

void ensureChordFilter()
{
    KeyboardHookState &state = hookState();
    if (state.chordFilter || !qApp)
        return;
    state.chordFilter = new GrabReleaseChordFilter(qApp);
    qApp->installEventFilter(state.chordFilter);
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
    box.setWindowTitle(QCoreApplication::translate("TavroVideo", "需要辅助功能权限"));
    box.setText(QCoreApplication::translate(
        "TavroVideo", "为了捕获 Ctrl+Space 等系统快捷键，应用需要辅助功能权限。"));
    box.setInformativeText(QCoreApplication::translate(
        "TavroVideo", "请按照以下步骤授权：\n\n1. 点击下方的「打开系统偏好设置」按钮\n2. "
                      "在「隐私与安全性」→「辅助功能」中\n3. 点击左下角的锁图标解锁设置\n4. "
                      "勾选本应用程序以授予权限\n5. 重启应用程序使权限生效\n\n注意：这是 macOS "
                      "系统的安全要求，我们不会滥用此权限。"));
    QPushButton *open = box.addButton(QCoreApplication::translate("TavroVideo", "打开系统偏好设置"),
                                      QMessageBox::ActionRole);
    QPushButton *recheck = box.addButton(QCoreApplication::translate("TavroVideo", "重新检查权限"),
                                         QMessageBox::ActionRole);
    box.addButton(QCoreApplication::translate("TavroVideo", "稍后设置"), QMessageBox::RejectRole);
    box.setDefaultButton(open);
    box.exec();

    if (box.clickedButton() == open) {
        openSystemSettingsPane(SystemSettingsPane::AccessibilityPrivacy);
    } else if (box.clickedButton() == recheck) {
        if (checkAccessibilityPermission())
            QMessageBox::information(nullptr, QCoreApplication::translate("TavroVideo", "权限检查"),
                                     QCoreApplication::translate(
                                         "TavroVideo", "权限已授予！请重启应用程序使权限生效。"));
        else
            QMessageBox::warning(
                nullptr, QCoreApplication::translate("TavroVideo", "权限检查"),
                QCoreApplication::translate("TavroVideo", "权限尚未授予，请按照说明完成授权。"));
    }
    if (TavroVideo *stillOwner = hookState().owner)
        stillOwner->m_permissionDialogShowing = false;
}

void monitorHookStatus()
{
    KeyboardHookState &state = hookState();
    // A tap the console lets go of on purpose (popup, minimised, released) is left alone.
    if (!state.tap || state.stopping || state.tap->isEnabled() || !keyboardWanted())
        return;
    qDebug() << "[钩子监控] 检测到键盘钩子已被系统禁用，尝试重新启用...";
    if (takeKeyboard())
        qDebug() << "[钩子监控] 键盘钩子已成功重新启用";
    else
        qDebug() << "[钩子监控] 键盘钩子重新启用失败，可能需要重新创建";
    announceGrab();
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
    ++state.stopTicket; // a stop left for the next pass must not take down what starts now
    qDebug() << "[底层键盘钩子] 正在启动系统级键盘钩子...";
    state.owner = this;
    ensureChordFilter();
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

    QWindow *handle = window()->windowHandle();
    if (state.tap && state.tapWindow != handle) {
        // The old tap lets go before a new one grabs: a client has one grab, and the old tap's
        // ungrab after the new grab would end it.
        state.tap.reset();
    }
    if (state.tap) {
        // Still there from a stop that has not run, or a start without a stop.
        qDebug() << "[底层键盘钩子] 沿用已有的事件监听器";
    } else {
        QString error;
        state.tap = createKeyboardTap(handle, keyboardEventCallback, &error);
        if (!state.tap) {
            qWarning() << "[底层键盘钩子] 创建事件监听器失败，可能是权限不足或系统限制";
            qWarning() << "[底层键盘钩子] 建议：请确保在系统偏好设置中授予辅助功能权限";
            qDebug().noquote() << "[底层键盘钩子] 失败原因:" << error;
            announceGrab();
            return;
        }
        state.tapWindow = handle;
        state.tap->setChangeHandler(&scheduleGrabSync);
    }
    // Asked even when the tap counts itself holding: the server's answer is the truth.
    if (keyboardWanted()) {
        takeKeyboard();
        qDebug() << "[底层键盘钩子] 事件监听器启用状态:"
                 << (state.tap->isEnabled() ? "已启用" : "启用失败");
    } else {
        if (state.tap->isEnabled())
            letKeyboardGo();
        qDebug() << "[底层键盘钩子] 暂不抓取键盘（窗口不在前台、弹出窗口打开中或已按释放组合键）";
    }
    announceGrab();
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
        if (state.tap->isEnabled())
            letKeyboardGo();
        state.tap.reset();
        state.tapWindow = nullptr;
        qDebug() << "[底层键盘钩子] 系统级键盘钩子已停止";
    }
    state.owner = nullptr;
    state.stopping = false;
    announceGrab();
}

void TavroVideo::startKeyboardHookIfStopped()
{
    if (m_keyboardHookActive)
        return;
    // Focus and the delayed restore can arrive while the window is minimised or hidden.
    const QWidget *top = window();
    if (!top->isVisible() || top->isMinimized()) {
        qDebug() << "[焦点管理] 窗口已最小化或隐藏，不启动键盘钩子";
        return;
    }
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

// The flag clears at once; the tap goes on the next pass of the event loop, unless the hook was
// started again before then.
void TavroVideo::stopKeyboardHookOnNextPass()
{
    if (!m_keyboardHookActive)
        return;
    m_keyboardHookActive = false;
    const quint64 ticket = ++hookState().stopTicket;
    QTimer::singleShot(0, this, [ticket] {
        if (hookState().stopTicket == ticket)
            TavroVideo::stopSystemKeyboardHook();
    });
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
    KeyboardHookState &state = hookState();
    if (active && state.releasedByOperator) {
        qDebug() << "[底层键盘钩子] 窗口重新激活，恢复键盘抓取";
        state.releasedByOperator = false;
    }
    // The grab follows at once; a tap no longer needed goes on the next pass.
    syncKeyboardGrab(nullptr, nullptr);
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
    // A tap that survives keeps its state in line with the window.
    syncKeyboardGrab("[TavroVideo::changeEvent] 窗口从最小化恢复，重新启用按键 hook",
                     "[TavroVideo::changeEvent] 窗口最小化，暂停按键 hook");
}

bool TavroVideo::nativeEvent(const QByteArray &eventType, void *message, qintptr *result)
{
    if (eventType == "mac_generic_NSEvent")
        qDebug() << "[nativeEvent] 收到 macOS NSEvent";
    return QWidget::nativeEvent(eventType, message, result);
}
