#pragma once

// Header-only test support: typing a text into a widget key by key.

#include <QString>
#include <QTest>
#include <QWidget>

// Presses and releases keys as a US keyboard would for `text`: Shift around capitals and the
// shifted punctuation, one key event per key.
inline void typeLikeAKeyboard(QWidget *widget, const QString &text)
{
    static const QString shiftedPunctuation = QStringLiteral("!@#$%^&*()_+{}|:\"<>?~");
    for (const QChar c : text) {
        const bool shifted = c.isUpper() || shiftedPunctuation.contains(c);
        const Qt::KeyboardModifiers modifiers = shifted ? Qt::ShiftModifier : Qt::NoModifier;
        if (shifted)
            QTest::keyPress(widget, Qt::Key_Shift, Qt::ShiftModifier);
        const int key = c.isLetter() ? Qt::Key_A + (c.toUpper().unicode() - 'A') : c.unicode();
        QTest::keyClick(widget, Qt::Key(key), modifiers);
        if (shifted)
            QTest::keyRelease(widget, Qt::Key_Shift, Qt::NoModifier);
    }
}
