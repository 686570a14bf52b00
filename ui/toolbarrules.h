#pragma once

// Where the console view's floating toolbar, its tool switch and their popups go: plain geometry
// over sizes, without widgets.

#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QSize>
#include <QString>

#include "console/input/bordercheck.h"

// `topLeft` moved so that a widget of `widget` size lies inside `area` (at its top-left corner
// when it is larger).
QPoint clampTopLeftInto(const QPoint &topLeft, const QSize &widget, const QSize &area);

// The tool switch without a stored place: centred, 4 px from the top.
QPoint defaultToolSwitchPosition(const QSize &view, const QSize &toolSwitch);

// The tool switch at a stored place, given as fractions of the view's width and height.
QPoint relativeToolSwitchPosition(const QSize &view, const QSize &toolSwitch, double relX,
                                  double relY);

// The toolbar's top-left for a switch anchor: centred under the switch's centre.
QPoint flowPanelTopLeftAtAnchor(const QPoint &anchor, int toolSwitchWidth, int panelWidth);

// The stored switch place after the toolbar was dragged to `panelTopLeft`: the point under the
// toolbar's centre where the switch (`toolSwitchWidth` wide) would sit, as fractions of the view.
QPointF relativeAnchorOfFlowPanel(const QPoint &panelTopLeft, int panelWidth, int toolSwitchWidth,
                                  const QSize &view);

// True once a press at `from` has moved to `to` by at least `distance` (Manhattan length).
bool reachedDragDistance(const QPoint &from, const QPoint &to, int distance);

// A popup hanging centred under `anchor` (global), pushed back inside `screen`.
QPoint popupTopLeftUnderAnchor(const QPoint &anchor, const QSize &popup, const QRect &screen);

// What the watermark line says, and the two values the status bar shows from it.
struct WatermarkFacts
{
    QString line;      // "Borders: … | Calc: … | Resolution: … | Mouse: … | <UART text>"
    QString calcText;  // the active picture's size, "%1x%2"
    QString mouseText; // the pointer on the target, "%1,%2"
};

// `borders` as measured on the picture (zero margins when nothing was measured), `capture` the
// captured size, `mouse` the pointer in target coordinates.
WatermarkFacts watermarkFacts(const image_blank_info &borders, const QSize &capture,
                              const QPoint &mouse, const QString &uartText);
