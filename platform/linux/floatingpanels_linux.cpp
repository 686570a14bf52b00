#include "platform/floatingpanels.h"

// Tells the window manager never to focus the panel, not even when it is clicked.
Qt::WindowFlags floatingPanelExtraFlags()
{
    return Qt::WindowDoesNotAcceptFocus;
}

bool floatingPanelsAreActivated()
{
    return false;
}
