#include "ui/windowrules.h"

#include <cstdlib>

Qt::Edges frameResizeEdges(const QPoint &pos, const QSize &window, const QRect &titleBar,
                           bool titleBarVisible)
{
    if (titleBarVisible && titleBar.contains(pos) && pos.y() > 5)
        return {};
    Qt::Edges edges;
    if (pos.x() < 6)
        edges |= Qt::LeftEdge;
    if (pos.x() >= window.width() - 5)
        edges |= Qt::RightEdge;
    if (pos.y() < 6)
        edges |= Qt::TopEdge;
    if (pos.y() >= window.height() - 5)
        edges |= Qt::BottomEdge;
    return edges;
}

Qt::CursorShape cursorForEdges(Qt::Edges edges)
{
    const bool left = edges.testFlag(Qt::LeftEdge);
    const bool right = edges.testFlag(Qt::RightEdge);
    const bool top = edges.testFlag(Qt::TopEdge);
    const bool bottom = edges.testFlag(Qt::BottomEdge);
    if ((top && left) || (bottom && right))
        return Qt::SizeFDiagCursor;
    if ((top && right) || (bottom && left))
        return Qt::SizeBDiagCursor;
    if (left || right)
        return Qt::SizeHorCursor;
    if (top || bottom)
        return Qt::SizeVerCursor;
    return Qt::ArrowCursor;
}

QRect resizedGeometry(const QRect &start, Qt::Edges edges, const QPoint &delta,
                      const QSize &minimum)
{
    QRect geometry = start;
    if (edges.testFlag(Qt::LeftEdge)) {
        const int width = start.width() - delta.x();
        if (width >= minimum.width()) {
            geometry.setX(start.x() + delta.x());
            geometry.setWidth(width);
        }
    }
    if (edges.testFlag(Qt::RightEdge)) {
        const int width = start.width() + delta.x();
        if (width >= minimum.width())
            geometry.setWidth(width);
    }
    if (edges.testFlag(Qt::TopEdge)) {
        const int height = start.height() - delta.y();
        if (height >= minimum.height()) {
            geometry.setY(start.y() + delta.y());
            geometry.setHeight(height);
        }
    }
    if (edges.testFlag(Qt::BottomEdge)) {
        const int height = start.height() + delta.y();
        if (height >= minimum.height())
            geometry.setHeight(height);
    }
    return geometry;
}

CentredPlacement centredPlacement(const QRect &screen, const QSize &window, const QPoint &current)
{
    const int x = screen.x() + qMax((screen.width() - window.width()) / 2, 0);
    const int y = screen.y() + qMax((screen.height() - window.height()) / 2, 0);
    CentredPlacement placement;
    placement.target = QPoint(x, y);
    placement.move = std::abs(current.x() - x) > 5 || std::abs(current.y() - y) > 5;
    return placement;
}
