#include "console/input/mouserules.h"

#include <algorithm>

namespace {

int scaleToFrame(int shown, int shownSize, int frameSize)
{
    if (shownSize <= 1)
        return 0;
    return int(double(shown) * (frameSize - 1) / (shownSize - 1) + 0.5);
}

} // namespace

bool mapWidgetToTarget(const QPoint &pos, const QRect &picture, const QSize &capture,
                       const image_blank_info &borders, TargetPoint &out)
{
    if (!picture.contains(pos))
        return false;
    int resW = capture.width();
    int resH = capture.height();
    if (resW <= 0 || resH <= 0) {
        resW = kMouseFallbackWidth;
        resH = kMouseFallbackHeight;
    }
    const int width = resW - (borders.left + borders.right);
    const int height = resH - (borders.top + borders.bottom);
    // The picture's first and last columns (and rows) are the frame's first and last, whether
    // the picture is shown smaller or larger than captured; between them the nearest pixel.
    int x = scaleToFrame(pos.x() - picture.left(), picture.width(), resW) - borders.left;
    int y = scaleToFrame(pos.y() - picture.top(), picture.height(), resH) - borders.top;
    x = std::max(0, std::min(x, width - 1));
    y = std::max(0, std::min(y, height - 1));
    out = TargetPoint{x, y, width, height};
    return true;
}

void mouseReportSize(const QSize &capture, const image_blank_info &borders, quint16 size[2])
{
    // The same size the mapping used, so that a mapped position never scales past the report's
    // 0..4095 range.
    int resW = capture.width();
    int resH = capture.height();
    if (resW <= 0 || resH <= 0) {
        resW = kMouseFallbackWidth;
        resH = kMouseFallbackHeight;
    }
    size[0] = quint16(resW - (borders.left + borders.right));
    size[1] = quint16(resH - (borders.top + borders.bottom));
}

static quint8 buttonBit(Qt::MouseButton button)
{
    switch (button) {
    case Qt::LeftButton:
    case Qt::RightButton:
    case Qt::MiddleButton:
    case Qt::BackButton:
    case Qt::ForwardButton:
        return quint8(button);
    default:
        return kMouseOtherButtonBit;
    }
}

quint8 heldReportButtons(Qt::MouseButtons held)
{
    return quint8(held.toInt() & kMouseHeldButtonsMask);
}

quint8 pressReportButtons(Qt::MouseButton pressed, Qt::MouseButtons held)
{
    return buttonBit(pressed) | heldReportButtons(held);
}

quint8 releaseReportButtons(Qt::MouseButton released, Qt::MouseButtons held)
{
    quint8 keep = 0;
    switch (released) {
    case Qt::LeftButton:
        keep = 0x1E;
        break;
    case Qt::RightButton:
        keep = 0x1D;
        break;
    case Qt::MiddleButton:
        keep = 0x1B;
        break;
    case Qt::BackButton:
        keep = 0x17;
        break;
    case Qt::ForwardButton:
        keep = 0x0F;
        break;
    default:
        return 0; // an unknown button releases everything
    }
    return heldReportButtons(held) & keep;
}

qint8 wheelReportValue(int verticalAngleDelta, qint8 step)
{
    if (verticalAngleDelta == 0)
        return 0;
    return verticalAngleDelta > 0 ? step : qint8(-step);
}

QString mouseButtonNameForLog(Qt::MouseButton button)
{
    switch (button) {
    case Qt::LeftButton:
        return QStringLiteral("左键");
    case Qt::RightButton:
        return QStringLiteral("右键");
    case Qt::MiddleButton:
        return QStringLiteral("中键");
    case Qt::BackButton:
        return QStringLiteral("侧键1(后退)");
    default:
        return QStringLiteral("侧键2(前进)");
    }
}
