#include "ui/toolbarrules.h"

#include <QStringList>

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

WatermarkFacts watermarkFacts(const image_blank_info &borders, const QSize &capture,
                              const QPoint &mouse, const QString &uartText)
{
    const int pictureWidth = borders.width > 0 ? borders.width : std::max(capture.width(), 0);
    const int pictureHeight = borders.height > 0 ? borders.height : std::max(capture.height(), 0);
    const int activeWidth = std::max(pictureWidth - borders.left - borders.right, 0);
    const int activeHeight = std::max(pictureHeight - borders.top - borders.bottom, 0);
    const double ratio = activeHeight > 0 ? double(activeWidth) / activeHeight : 0.0;

    WatermarkFacts facts;
    facts.calcText = QStringLiteral("%1x%2").arg(activeWidth).arg(activeHeight);
    facts.mouseText = QStringLiteral("%1,%2").arg(mouse.x()).arg(mouse.y());
    QStringList parts{
        QStringLiteral("Borders: T%1 L%2 B%3 R%4")
            .arg(borders.top)
            .arg(borders.left)
            .arg(borders.bottom)
            .arg(borders.right),
        QStringLiteral("Calc: %1[%2]").arg(facts.calcText).arg(ratio, 0, 'f', 2),
        QStringLiteral("Resolution: %1x%2")
            .arg(std::max(capture.width(), 0))
            .arg(std::max(capture.height(), 0)),
        QStringLiteral("Mouse: %1").arg(facts.mouseText),
    };
    if (!uartText.isEmpty())
        parts << uartText;
    facts.line = parts.join(QStringLiteral(" | "));
    return facts;
}
