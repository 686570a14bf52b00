#include "ui/toolbarrules.h"

#include <algorithm>

QPoint clampTopLeftInto(const QPoint &topLeft, const QSize &widget, const QSize &area)
{
    const int maxX = std::max(area.width() - widget.width(), 0);
    const int maxY = std::max(area.height() - widget.height(), 0);
    return {std::clamp(topLeft.x(), 0, maxX), std::clamp(topLeft.y(), 0, maxY)};
}

QPoint defaultToolSwitchPosition(const QSize &view, const QSize &toolSwitch)
{
    const int freeWidth = view.width() - toolSwitch.width();
    const int x = std::max(0, std::min(std::max(freeWidth, 0), freeWidth / 2));
    const int y = std::min(std::max(view.height() - toolSwitch.height(), 0), 4);
    return {x, y};
}

QPoint relativeToolSwitchPosition(const QSize &view, const QSize &toolSwitch, double relX,
                                  double relY)
{
    const QPoint wanted(int(relX * view.width()), int(relY * view.height()));
    return clampTopLeftInto(wanted, toolSwitch, view);
}

QPoint flowPanelTopLeftAtAnchor(const QPoint &anchor, int toolSwitchWidth, int panelWidth)
{
    return {anchor.x() + toolSwitchWidth / 2 - panelWidth / 2, anchor.y()};
}

QPointF relativeAnchorOfFlowPanel(const QPoint &panelTopLeft, int panelWidth, int toolSwitchWidth,
                                  const QSize &view)
{
    if (view.width() < 1 || view.height() < 1)
        return {0.5, 0.0};
    const double x = panelTopLeft.x() + panelWidth / 2.0 - toolSwitchWidth / 2.0;
    return {x / view.width(), double(panelTopLeft.y()) / view.height()};
}

bool reachedDragDistance(const QPoint &from, const QPoint &to, int distance)
{
    return (to - from).manhattanLength() >= distance;
}

QPoint popupTopLeftUnderAnchor(const QPoint &anchor, const QSize &popup, const QRect &screen)
{
    const QPoint wanted(anchor.x() - popup.width() / 2, anchor.y());
    const QPoint inside = clampTopLeftInto(wanted - screen.topLeft(), popup, screen.size());
    return inside + screen.topLeft();
}
