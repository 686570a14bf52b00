#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>
#include <Qt>

#include "console/input/bordercheck.h"

// Absolute mouse reports carry the toolkit's button values unchanged in their low five bits.
constexpr quint8 kMouseHeldButtonsMask = 0x1F;
// Bit a report carries for a pressed button outside left, right, middle, back and forward.
constexpr quint8 kMouseOtherButtonBit = 0x20;
// Capture size assumed for mapping until the capture resolution is known.
constexpr int kMouseFallbackWidth = 1920;
constexpr int kMouseFallbackHeight = 1080;

// A widget position mapped to a pixel of the target's screen, with the size of that screen.
struct TargetPoint
{
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

// Maps `pos` (widget coordinates) through the displayed picture rectangle `picture` (inclusive
// corners) onto the captured frame of size `capture` (1920x1080 when unknown), less the black
// borders around the target's picture; the picture's edges map onto the frame's edges.
// False when `pos` lies outside `picture`; the result is clamped into the target's picture
// otherwise.
bool mapWidgetToTarget(const QPoint &pos, const QRect &picture, const QSize &capture,
                       const image_blank_info &borders, TargetPoint &out);

// Size of the target's screen as the report encoder scales against it: the capture resolution
// (1920x1080 while unknown, as for the mapping) less the borders, cut to 16 bits.
void mouseReportSize(const QSize &capture, const image_blank_info &borders, quint16 size[2]);

// Button bits of the report sent for a press of `pressed` while `held` are down.
quint8 pressReportButtons(Qt::MouseButton pressed, Qt::MouseButtons held);
// Button bits of the report sent for a release of `released`; `held` are the buttons still down.
quint8 releaseReportButtons(Qt::MouseButton released, Qt::MouseButtons held);
// Bits of the buttons held during a move or a wheel step.
quint8 heldReportButtons(Qt::MouseButtons held);
// Wheel field for a vertical angle delta: +step away from the user, -step towards, 0 for none;
// one step whatever the delta's size.
qint8 wheelReportValue(int verticalAngleDelta, qint8 step);
// Name of a button in the out-of-area log.
QString mouseButtonNameForLog(Qt::MouseButton button);
