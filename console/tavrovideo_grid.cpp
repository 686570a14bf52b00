// Console view: the way to the preview grid of the device page.
#include "console/tavrovideo.h"

void TavroVideo::onBtnMultiWindowClicked()
{
    // The view's own reading of "multi_same_display" at its construction: the grid exists only
    // when the device page read the same value.
    if (m_multiSameDisplay) {
        emit previewGridRequested();
        return;
    }
    hide();
}
