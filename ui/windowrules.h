#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>
#include <Qt>

// Which edges of the frameless window a point (window coordinates) grabs for resizing: 6 pixels
// inside the left and top edges, 5 inside the right and bottom. Inside the visible title bar, below
// its top 5 pixels, nothing: there the title bar is dragged instead.
Qt::Edges frameResizeEdges(const QPoint &pos, const QSize &window, const QRect &titleBar,
                           bool titleBarVisible);

// The cursor that shows which way a grabbed edge set resizes.
Qt::CursorShape cursorForEdges(Qt::Edges edges);

// The window's geometry after the pointer moved by `delta` since the press that grabbed `edges`
// of `start`. Each edge moves only while the size stays at least `minimum`; a left or top edge
// that would make it smaller stays where it was.
QRect resizedGeometry(const QRect &start, Qt::Edges edges, const QPoint &delta,
                      const QSize &minimum);

// Where the window goes to sit centred on `screen`; `move` is false when it is within 5 pixels
// of there on both axes already.
struct CentredPlacement
{
    QPoint target;
    bool move = false;
};
CentredPlacement centredPlacement(const QRect &screen, const QSize &window, const QPoint &current);

// Top-left corner of the update badge inside the settings button.
inline QPoint settingBadgePosition(int buttonWidth, int badgeWidth)
{
    const int x = buttonWidth - badgeWidth > 5 ? buttonWidth - badgeWidth : 5;
    return QPoint(x - 5, 5);
}
