// Console view: the operator's keys to the target. Every keyboard source ends in sendKeyValue,
// which encodes one report frame and writes it to the current box's link.
#include <QApplication>
#include <QDebug>
#include <QKeyEvent>
#include <QPushButton>
#include <QTimer>
#include <QWindowStateChangeEvent>

#include "console/input/keyrules.h"
#include "console/tavrovideo.h"
#include "platform/keyboardlayout.h"
#include "protocol/ch9329.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"

namespace {

constexpr int kKeyFrameBufferSize = 16;
constexpr int kKeyFrameLength = 14;
// key_convert with an action other than press or release writes the current report unchanged.
constexpr int kReEmitReport = 2;
// How long a release waits for the press that would make it half of an X11 auto-repeat pair.
// Both halves leave the X server together; the wait only covers their reading and delivery.
constexpr int kRepeatPairWindowMs = 30;

QString hex(int value)
{
    return QString::number(value, 16);
}

QString hex2(int value)
{
    return QStringLiteral("%1").arg(value, 2, 16, QLatin1Char('0'));
}

const char *pressOrRelease(int action)
{
    return action == 0 ? "PRESS" : "RELEASE";
}

} // namespace

bool TavroVideo::isAppReallyInForeground() const
{
    return QGuiApplication::applicationState() == Qt::ApplicationActive && m_appActive;
}

DeviceUartManager *TavroVideo::currentLink() const
{
    const QString did = getCurrentDeviceDid();
    return did.isEmpty() ? nullptr : UartManager::instance()->getDeviceUartManager(did);
}

bool TavroVideo::isLinkOpen(const DeviceUartManager *link)
{
    return link && link->serialPort() && link->serialPort()->isOpen();
}

// "TavroVideo Key Pressed: 65 (0x41) Text: 'a' Modifiers: Shift 类型: ..." for the log.
static QString keyEventLogLine(const char *verb, const QKeyEvent *event, const QString &shortcut)
{
    const int key = event->key();
    QString line = QStringLiteral("TavroVideo Key %1: %2 (0x%3) Text: '%4'")
                       .arg(QLatin1String(verb))
                       .arg(key)
                       .arg(hex(key), event->text());
    const QString modifiers = modifierNamesForLog(event->modifiers());
    if (!modifiers.isEmpty())
        line += QStringLiteral(" Modifiers: ") + modifiers;
    if (!shortcut.isEmpty())
        line += QStringLiteral(" [SYSTEM SHORTCUT: %1 - 已被拦截处理]").arg(shortcut);
    const QString keyClass = keyClassForLog(key, !shortcut.isEmpty());
    if (!keyClass.isEmpty())
        line += QStringLiteral(" 类型: ") + keyClass;
    return line;
}

bool TavroVideo::forwardKeyEvent(const QKeyEvent *event, int action, const QString &shortcut)
{
    const int key = event->key();
    OperatorKeys::Event keyEvent;
    keyEvent.press = action == 0;
    keyEvent.physicalKey =
        physicalKeyOf(physicalKeyId(event->nativeScanCode(), event->nativeVirtualKey()), key);
    keyEvent.key = encoderKeyForPhysicalKey(key, event->modifiers());
    keyEvent.timestamp = event->timestamp();
    keyEvent.autoRepeat = event->isAutoRepeat();

    const bool noDid = getCurrentDeviceDid().isEmpty();
    if (noDid || !isLinkOpen(currentLink())) {
        if (!event->isAutoRepeat() && noDid)
            qDebug() << "设备DID为空，无法发送按键数据";
        else if (!event->isAutoRepeat())
            qDebug() << "串口未连接，无法发送按键数据 - 设备UART管理器状态:"
                     << "false";
        // A key let go while nothing can be sent is up all the same.
        if (action == 1) {
            for (const KeyStroke &stroke : m_operatorKeys.handle(keyEvent) + m_operatorKeys.flush())
                forgetKey(stroke.key);
        }
        return false;
    }
    if (keyEvent.press && !keyEvent.autoRepeat && !ch9329_kb_has_key(keyEvent.key)) {
        if (!m_lackingKeysLogged.contains(keyEvent.key)) {
            m_lackingKeysLogged.insert(keyEvent.key);
            qDebug().noquote() << QStringLiteral(
                                      "[键盘] 目标键盘没有此键，按键不发送（每个键只提示一次）: "
                                      "key=%1(0x%2)")
                                      .arg(key)
                                      .arg(hex(key));
        }
        return true;
    }
    sendOperatorStrokes(m_operatorKeys.handle(keyEvent));
    if (event->isAutoRepeat())
        return false;
    if (action == 0) {
        QString sent = QStringLiteral("按键发送成功 - 按下 键值:%1 (0x%2)").arg(key).arg(hex(key));
        if (!shortcut.isEmpty())
            sent += QStringLiteral(" [系统快捷键 %1]").arg(shortcut);
        qDebug().noquote() << sent;
    } else {
        qDebug().noquote() << "按键发送成功 - 释放 键值:" << key
                           << QStringLiteral("(0x%1)").arg(hex(key));
    }
    return true;
}

void TavroVideo::sendOperatorStrokes(const QList<KeyStroke> &strokes)
{
    for (const KeyStroke &stroke : strokes) {
        // Keys the target lacks change nothing in the report: no frame for them.
        if (ch9329_kb_has_key(stroke.key))
            key_pass(stroke.key, stroke.action);
    }
    if (!m_operatorKeys.hasPendingRelease())
        return;
    if (!m_releaseFlushTimer) {
        m_releaseFlushTimer = new QTimer(this);
        m_releaseFlushTimer->setSingleShot(true);
        m_releaseFlushTimer->setInterval(kRepeatPairWindowMs);
        connect(m_releaseFlushTimer, &QTimer::timeout, this,
                [this] { sendOperatorStrokes(m_operatorKeys.flush()); });
    }
    m_releaseFlushTimer->start();
}

void TavroVideo::keyPressEvent(QKeyEvent *event)
{
    if (!isAppReallyInForeground()) {
        QWidget::keyPressEvent(event);
        return;
    }
    if (holdKeyDuringPaste(event))
        return;
    if (isPasteShortcut(event->key(), event->modifiers())) {
        if (!event->isAutoRepeat())
            pasteFromShortcut();
        return;
    }
    const QString shortcut = recognizeSystemShortcut(event->key(), event->modifiers());
    qDebug().noquote() << keyEventLogLine("Pressed", event, shortcut)
                       << "- 焦点对象:" << QApplication::focusWidget();
    if (forwardKeyEvent(event, 0, shortcut))
        return;
    if (event->key() == Qt::Key_Escape && m_isFullScreen)
        qDebug() << "  ESC in fullscreen: Passing to base class.";
    QWidget::keyPressEvent(event);
}

void TavroVideo::keyReleaseEvent(QKeyEvent *event)
{
    if (!isAppReallyInForeground()) {
        qDebug() << "[键盘事件] 应用在后台，跳过按键释放处理";
        QWidget::keyReleaseEvent(event);
        return;
    }
    if (holdKeyDuringPaste(event))
        return;
    if (isPasteShortcut(event->key(), event->modifiers()))
        return; // its press typed the clipboard; V never reached the target
    qDebug().noquote() << keyEventLogLine("Released", event, QString())
                       << "- 焦点对象:" << QApplication::focusWidget();
    if (forwardKeyEvent(event, 1, QString()))
        return;
    qDebug().noquote() << QStringLiteral(
                              "[TavroVideo::keyReleaseEvent] Key: %1 (0x%2), Text: '%3', "
                              "AutoRepeat: %4, Fullscreen: %5")
                              .arg(event->key())
                              .arg(hex2(event->key()), event->text())
                              .arg(event->isAutoRepeat() ? 1 : 0)
                              .arg(m_isFullScreen ? 1 : 0);
    QWidget::keyReleaseEvent(event);
}

bool TavroVideo::takesKeysFrom(const QObject *watched) const
{
    // The toolkit hands a key to the window, then to the focus widget, then to its parents:
    // act once, when the focus widget has it.
    const QWidget *receiver = QApplication::focusWidget();
    if (!m_globalKeyCaptureEnabled || watched != receiver || receiver == this)
        return false;
    const QWidget *topLevel = window();
    return receiver->window() == topLevel && topLevel->isActiveWindow() && isVisible() &&
           QGuiApplication::applicationState() == Qt::ApplicationActive;
}

void TavroVideo::pressModifiersHeldBy(const QKeyEvent *event)
{
    // They went down while the other widget had the keyboard; without them the shortcut would
    // reach the target as a lone key. Their releases come to the view, which now has the focus.
    for (const int modifier : modifierKeysHeld(event->modifiers())) {
        const int key = encoderKeyForPhysicalKey(modifier, Qt::NoModifier);
        if (modifier != event->key() && !m_heldKeys.contains(key))
            key_pass(key, 0);
    }
}

bool TavroVideo::eventFilter(QObject *watched, QEvent *event)
{
    if (m_btnToolSwitch && watched == static_cast<QObject *>(m_btnToolSwitch) &&
        handleToolSwitchEvent(event))
        return true;
    const bool keyEvent = event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease;
    QWidget *topLevel = window();
    if (keyEvent && takesKeysFrom(watched)) {
        auto *keys = static_cast<QKeyEvent *>(event);
        const bool press = event->type() == QEvent::KeyPress;
        qDebug().noquote() << QStringLiteral("[Global Key Capture] %1: Key=%2(0x%3), Modifiers=%4, "
                                             "Text='%5'")
                                  .arg(press ? "Press" : "Release")
                                  .arg(keys->key())
                                  .arg(hex2(keys->key()))
                                  .arg(int(keys->modifiers()))
                                  .arg(keys->text());
        const QString shortcut = recognizeSystemShortcut(keys->key(), keys->modifiers());
        if (!shortcut.isEmpty()) {
            if (shortcut == QLatin1String("Windows/Cmd Key"))
                qDebug() << "[Global Key Capture] 检测到 Windows/Cmd 键";
            else
                qDebug().noquote()
                    << QStringLiteral("[Global Key Capture] 检测到 %1 系统快捷键").arg(shortcut);
            qDebug() << "[Global Key Capture] 拦截系统快捷键并转发给 TavroVideo 处理";
            if (!hasFocus())
                setFocus(Qt::OtherFocusReason);
            if (press) {
                if (isAppReallyInForeground() && !keys->isAutoRepeat())
                    pressModifiersHeldBy(keys);
                keyPressEvent(keys);
            } else {
                keyReleaseEvent(keys);
            }
            return true;
        }
    }
    if (watched == topLevel) {
        if (keyEvent) {
            // Keys reach the window only after its focus widget let them pass: when that is the
            // view, handing them back would handle them twice.
            auto *keys = static_cast<QKeyEvent *>(event);
            qDebug().noquote() << QStringLiteral("[Window Key Capture] %1: Key=%2(0x%3)")
                                      .arg(event->type() == QEvent::KeyPress ? "Press" : "Release")
                                      .arg(keys->key())
                                      .arg(hex2(keys->key()));
            if (!isAppReallyInForeground()) {
                qDebug() << "[Window Key Capture] 应用不在前台，不处理按键事件";
                return false;
            }
        } else if (event->type() == QEvent::WindowStateChange && topLevel != this) {
            onWindowStateChanged(static_cast<QWindowStateChangeEvent *>(event)->oldState());
        } else if (event->type() == QEvent::ActivationChange && topLevel != this) {
            onWindowActivationChanged(topLevel->isActiveWindow());
        } else if (event->type() == QEvent::Move || event->type() == QEvent::Resize) {
            followWithSoftKeyboard();
            qDebug() << "[TavroVideo::eventFilter] Window event:" << event->type()
                     << "- handled by direct events";
        }
    }
    return QWidget::eventFilter(watched, event);
}

bool TavroVideo::focusNextPrevChild(bool next)
{
    if (isAppReallyInForeground())
        return false;
    return QWidget::focusNextPrevChild(next);
}

void TavroVideo::focusInEvent(QFocusEvent *event)
{
    m_appActive = true;
    startKeyboardHookIfStopped();
    QWidget::focusInEvent(event);
}

void TavroVideo::focusOutEvent(QFocusEvent *event)
{
    // Keys and buttons released while another window has them never reach the view: let them go
    // now.
    releaseHeldKeys();
    releaseHeldMouseButtons();
    m_appActive = false;
    stopKeyboardHookIfRunning();
    QWidget::focusOutEvent(event);
}

bool TavroVideo::sendKeyEvent(int key, int action)
{
    key_pass(key, action);
    return true;
}

bool TavroVideo::key_pass(int key, int action)
{
    qDebug().noquote().nospace() << "[key_pass] 透传按键: key=" << key
                                 << ", action=" << pressOrRelease(action);
    sendKeyValue(key, action);
    return true;
}

bool TavroVideo::sendKeyValue(int key, int action)
{
    qDebug().noquote().nospace() << "[DEBUG] sendKeyEvent called: keyVal=" << key
                                 << ", action=" << action;
    const auto refuse = [this, key, action] {
        if (action == 1)
            forgetKey(key);
        return false;
    };
    if (getCurrentDeviceDid().isEmpty()) {
        qDebug() << "[UART] 设备DID为空，无法发送键盘数据";
        return refuse();
    }
    DeviceUartManager *link = currentLink();
    if (!isLinkOpen(link)) {
        qDebug() << "[UART] 串口未连接，无法发送键盘数据";
        return refuse();
    }
    if (!isAppReallyInForeground()) {
        qDebug() << "[UART] 应用在后台，跳过按键事件发送";
        return refuse();
    }
    if (!isLinkOpen(link)) {
        qDebug() << "[UART] sendKeyEvent失败: 串口未连接";
        return refuse();
    }
    return writeKeyFrame(link, key, action);
}

void TavroVideo::forgetKey(int key)
{
    // The report's state is protocol-independent; CH9329 is the code that always changes it.
    uint8_t unused[kKeyFrameBufferSize];
    key_convert(kProtocolCh9329, key, 1, unused);
    m_heldKeys.removeAll(key);
}

bool TavroVideo::writeKeyFrame(DeviceUartManager *link, int key, int action)
{
    uint8_t buffer[kKeyFrameBufferSize] = {};
    const int result = key_convert(m_uartProtocol, key, action, buffer);
    if (result < 0) {
        qDebug().noquote() << "[UART] 键值转换失败 - keyVal:" << key
                           << QStringLiteral("(0x%1)").arg(hex(key))
                           << "action:" << pressOrRelease(action) << "protocol:" << m_uartProtocol
                           << "错误码:" << result;
        return false;
    }
    const QByteArray frame(reinterpret_cast<const char *>(buffer), kKeyFrameLength);
    qDebug().noquote() << QStringLiteral("[UART发送键值] key=%1(0x%2), %3, 协议=%4, 长度=%5")
                              .arg(key)
                              .arg(hex2(key))
                              .arg(action == 0 ? QStringLiteral("按下") : QStringLiteral("释放"))
                              .arg(m_uartProtocol ? QStringLiteral("TK_V1")
                                                  : QStringLiteral("CH9329"))
                              .arg(kKeyFrameLength);
    printHexData(frame, QStringLiteral("[UART数据] "));
    // The record follows the encoder, which has changed whether or not the bytes leave.
    if (action == 0 && !m_heldKeys.contains(key))
        m_heldKeys.append(key);
    else if (action == 1)
        m_heldKeys.removeAll(key);
    const bool sent = link->sendData(frame);
    if (!sent) {
        qDebug() << "[UART] 键盘数据发送失败";
        return false;
    }
    return true;
}

void TavroVideo::releaseHeldKeys()
{
    forgetOperatorKeys();
    if (m_heldKeys.isEmpty())
        return;
    DeviceUartManager *link = currentLink();
    const QList<int> held = m_heldKeys;
    if (isLinkOpen(link))
        qDebug() << "[键盘] 焦点离开，释放目标上仍按下的键:" << held;
    for (auto it = held.crbegin(); it != held.crend(); ++it) {
        if (isLinkOpen(link))
            writeKeyFrame(link, *it, 1);
        else
            forgetKey(*it); // the target gets an empty report when the link opens again
    }
    m_heldKeys.clear();
}

void TavroVideo::forgetOperatorKeys()
{
    m_operatorKeys.clear();
    if (m_releaseFlushTimer)
        m_releaseFlushTimer->stop();
}

QMetaObject::Connection TavroVideo::followLinkOpens()
{
    return connect(UartManager::instance(), &UartManager::linkOpened, this,
                   &TavroVideo::releaseAllOnTarget);
}

void TavroVideo::releaseAllOnTarget(const QString &deviceDid)
{
    if (deviceDid.isEmpty() || deviceDid != getCurrentDeviceDid())
        return;
    DeviceUartManager *link = currentLink();
    if (!isLinkOpen(link))
        return;
    // What the target holds after the link was down is unknown: the box may have restarted, or
    // kept a key down while the link was gone. Start again from nothing held, on both sides.
    // Reports travel as CH9329 frames whatever protocol the view is set to.
    qDebug().noquote() << "[键盘] 串口已连接，释放目标上的全部按键和鼠标按键，设备ID:" << deviceDid;
    m_heldKeys.clear();
    forgetOperatorKeys();
    ch9329_release_all_keys();
    uint8_t keys[kKeyFrameBufferSize] = {};
    if (key_convert(kProtocolCh9329, 0, kReEmitReport, keys) == 0)
        link->sendData(QByteArray(reinterpret_cast<const char *>(keys), kKeyFrameLength));

    // An absolute report always carries a position: the last one the view sent, so the cursor
    // stays where it is. Without one the view never pressed a button either.
    m_pendingMouseButtons = 0;
    if (m_lastReportPos.x() >= 0)
        writeMouseFrame(link, m_lastReportPos.x(), m_lastReportPos.y(), 0, 0);
    m_targetMouseButtons = 0;
}

void TavroVideo::printHexData(const QByteArray &data, const QString &prefix)
{
    qDebug().noquote() << prefix + hexBytesForLog(data);
}

bool TavroVideo::sendSerialData(const QByteArray &data)
{
    DeviceUartManager *link = currentLink();
    if (!link) {
        qDebug() << "[DEBUG] sendSerialData: 设备DID为空，无法发送数据";
        return false;
    }
    return link->sendData(data);
}

bool TavroVideo::sendRawUartData(const QByteArray &data)
{
    return sendSerialData(data);
}

void TavroVideo::setUartProtocol(int protocol)
{
    if (protocol >= 2 || protocol < 0)
        return;
    m_uartProtocol = protocol;
    emit statusBarMessageRequested(
        tr("UART 协议: %1")
            .arg(protocol == 1 ? QStringLiteral("TavroKVM (TK)") : QStringLiteral("CH9329")));
}
