// Console view: keys no physical key event carries. Named keys from the soft keyboard, the paced
// Control+Alt+Delete sequence and the clipboard typed out as keystrokes, all through the one
// keyboard send path.
#include <QClipboard>
#include <QDebug>
#include <QGuiApplication>
#include <QThread>

#include "console/input/keysequences.h"
#include "console/input/newsoftkeyboard.h"
#include "console/tavrovideo.h"
#include "platform/floatingpanels.h"

void TavroVideo::handleKeyboardInput(const QString &key)
{
    qDebug() << "[Keyboard] 接收到键盘输入:" << key;
    if (key == QLatin1String("ctrl+alt+del")) {
        qDebug() << "[Keyboard] 处理ctrl+alt+del组合键 - 开始发送按键序列";
        for (const PacedKeyStep &step : ctrlAltDelSequence()) {
            qDebug().noquote() << step.log;
            key_pass(step.stroke.key, step.stroke.action);
            // The target's keyboard controller needs the gaps to see a chord, not a burst.
            if (step.pauseAfterMs > 0)
                QThread::msleep(step.pauseAfterMs);
        }
        qDebug() << "[Keyboard] ctrl+alt+del组合键发送完成";
        return;
    }
    const QList<KeyStroke> strokes = namedInputStrokes(key);
    if (strokes.isEmpty()) {
        qDebug() << "[Keyboard] 未处理的特殊键:" << key;
        return;
    }
    if (key == QLatin1String("fn+esc"))
        qDebug() << "[Keyboard] 处理fn+esc组合键";
    for (const KeyStroke &stroke : strokes)
        key_pass(stroke.key, stroke.action);
}

// Every character at once, on a US layout: the path kept for boxes set to an interval of 0.
void TavroVideo::pasteTextUnpaced(const QString &text)
{
    // A Control still held on the target from the paste shortcut must not combine with the text.
    sendKeyValue(Qt::Key_Meta, 1);
    for (const QChar c : text) {
        const PasteKey paste = classifyPasteCharacter(c.unicode());
        qDebug().noquote() << "[key_pass] ====== stroke:" << QString(c) << "," << paste.key << ","
                           << (paste.shift ? "true" : "false") << ","
                           << (paste.supported ? "true" : "false");
        if (!paste.supported) {
            qDebug().noquote() << "[key_pass] 不支持的字符:" << QString(c);
            continue;
        }
        if (paste.shift)
            sendKeyValue(Qt::Key_Shift, 0);
        qDebug() << "[key_pass] send:" << paste.key;
        sendKeyValue(paste.key, 0);
        sendKeyValue(paste.key, 1);
        if (paste.shift)
            sendKeyValue(Qt::Key_Shift, 1);
    }
    qDebug() << "[key_pass] 粘贴文本模拟完成";
}

void TavroVideo::pasteFromShortcut()
{
    qDebug() << "[key_pass] 粘贴快捷键 Ctrl+Alt+V：输入剪贴板文本";
    // Alt went to the target with the shortcut; the paste itself lets go of Control.
    sendKeyValue(Qt::Key_Alt, 1);
    pasteTextAsKeyEvents();
}

// ---- Soft keyboard ---------------------------------------------------------------------------

void TavroVideo::onBtnKeyboardClicked()
{
    if (!m_newSoftKeyboard) {
        m_newSoftKeyboard = new NewSoftKeyboard(this);
        m_newSoftKeyboard->setObjectName(QStringLiteral("newSoftKeyboard"));
        m_newSoftKeyboard->setWindowFlags(Qt::Tool | Qt::FramelessWindowHint |
                                          Qt::WindowStaysOnTopHint | floatingPanelExtraFlags());
        m_newSoftKeyboard->setAttribute(Qt::WA_TranslucentBackground);
        m_newSoftKeyboard->setAttribute(Qt::WA_ShowWithoutActivating);
        disconnect(m_newSoftKeyboard, &NewSoftKeyboard::hidden, this, nullptr);
        connect(m_newSoftKeyboard, &NewSoftKeyboard::hidden, this,
                [] { qDebug() << "[onBtnKeyboardClicked] 软键盘已隐藏"; });
        disconnect(m_newSoftKeyboard, &NewSoftKeyboard::keyPressed, this,
                   &TavroVideo::handleKeyboardInput);
        connect(m_newSoftKeyboard, &NewSoftKeyboard::keyPressed, this,
                &TavroVideo::handleKeyboardInput);
    }
    if (m_newSoftKeyboard->isVisible()) {
        qDebug() << "[onBtnKeyboardClicked] 隐藏软键盘窗口";
        m_newSoftKeyboard->hide();
    } else {
        qDebug() << "[onBtnKeyboardClicked] 显示软键盘窗口";
        showNewSoftKeyboard();
    }
}

void TavroVideo::toggleKeyboard()
{
    onBtnKeyboardClicked();
}

void TavroVideo::showNewSoftKeyboard()
{
    if (!m_newSoftKeyboard)
        return;
    if (QWidget *parent = m_newSoftKeyboard->parentWidget()) {
        qDebug().noquote() << "[showNewSoftKeyboard] 重置为独立窗口（从父窗口:"
                           << parent->objectName() << "）";
        // A stand-alone tool window stays visible when the console's window is not active.
        m_newSoftKeyboard->hide();
        m_newSoftKeyboard->setParent(nullptr);
        Qt::WindowFlags flags = Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                                floatingPanelExtraFlags();
        if (m_isFullScreen)
            flags |= Qt::NoDropShadowWindowHint;
        m_newSoftKeyboard->setWindowFlags(flags);
        m_newSoftKeyboard->setAttribute(Qt::WA_TranslucentBackground);
        m_newSoftKeyboard->setAttribute(Qt::WA_ShowWithoutActivating);
        m_newSoftKeyboard->setWindowOpacity(1.0);
        if (m_isFullScreen) {
            m_newSoftKeyboard->setAttribute(Qt::WA_MacAlwaysShowToolWindow);
            qDebug() << "[showNewSoftKeyboard] 全屏模式下使用增强的窗口标志和macOS特有属性";
        }
    }
    m_newSoftKeyboard->show();
    m_newSoftKeyboard->raise();
    if (floatingPanelsAreActivated())
        m_newSoftKeyboard->activateWindow();
    placeSoftKeyboard();
    if (m_isFullScreen)
        qDebug() << "[showNewSoftKeyboard] 全屏模式下显示软键盘，使用 "
                    "Qt::WA_MacAlwaysShowToolWindow 确保可见性";
}

void TavroVideo::placeSoftKeyboard()
{
    const QPoint centre = mapToGlobal(QPoint(rect().width() / 2, rect().height() / 2));
    int y = centre.y() + 50;
    if (m_flowPanel && m_flowPanel->isVisible()) {
        y = m_flowPanel->mapToGlobal(QPoint(0, m_flowPanel->height())).y();
        qDebug() << "[showNewSoftKeyboard] 使用flowPanel底部位置，Y坐标:" << y;
    } else {
        qDebug() << "[showNewSoftKeyboard] flowPanel不可见，使用TavroVideo中心向下偏移，Y坐标:"
                 << y;
    }
    const QPoint position(centre.x() - m_newSoftKeyboard->width() / 2, y);
    m_newSoftKeyboard->move(position);
    qDebug() << "[showNewSoftKeyboard] 窗口已定位，X居中Y在flowPanel下方，位置:" << position;
    qDebug() << "  TavroVideo 中心点:" << centre;
    qDebug() << "  newSoftKeyboard 尺寸:" << m_newSoftKeyboard->size();
}

void TavroVideo::followWithSoftKeyboard()
{
    if (m_newSoftKeyboard && m_newSoftKeyboard->isVisible())
        placeSoftKeyboard();
}
