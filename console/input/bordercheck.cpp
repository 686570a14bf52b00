#include "console/input/bordercheck.h"

bool borderCheckDue(quint64 landscapeFramesBefore, const image_blank_info &borders)
{
    const bool known =
        borders.top >= 1 || borders.left >= 1 || borders.bottom >= 1 || borders.right >= 1;
    const quint64 interval = known ? kBorderCheckIntervalKnown : kBorderCheckIntervalUnknown;
    return landscapeFramesBefore == 0 || (landscapeFramesBefore + 1) % interval == 0;
}
