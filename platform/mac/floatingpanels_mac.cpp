#include "platform/floatingpanels.h"

Qt::WindowFlags floatingPanelExtraFlags()
{
    return {};
}

bool floatingPanelsAreActivated()
{
    return true;
}
