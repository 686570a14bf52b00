// Console view: keys no physical key event carries. Named keys from the soft keyboard, the paced
// Control+Alt+Delete sequence and the clipboard typed out as keystrokes, all through the one
// keyboard send path.
#include <QClipboard>
#include <QDebug>
#include <QGuiApplication>
#include <QThread>

#include "console/input/keysequences.h"
#include "console/tavrovideo.h"

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

void TavroVideo::pasteTextAsKeyEvents()
{
    const QString text = QGuiApplication::clipboard()->text(QClipboard::Clipboard);
    if (text.isEmpty()) {
        qDebug() << "[key_pass] 剪贴板为空，跳过粘贴";
        return;
    }
    qDebug().noquote() << "[key_pass] 开始模拟粘贴文本，长度:" << text.size()
                       << ", 内容预览:" << pastePreview(text);
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
