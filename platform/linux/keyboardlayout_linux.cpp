#include <Qt>

#include "platform/keyboardlayout.h"

// Here the toolkit reports Ctrl as Key_Control and the logo keys as Key_Meta or Key_Super_L/R,
// and turns Shift+Tab into Key_Backtab.
int encoderKeyForPhysicalKey(int key)
{
    switch (key) {
    case Qt::Key_Control:
        return Qt::Key_Meta;
    case Qt::Key_Meta:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
        return Qt::Key_Control;
    case Qt::Key_Backtab: // Shift+Tab: the Shift press went to the target on its own
        return Qt::Key_Tab;
    default:
        return key;
    }
}
