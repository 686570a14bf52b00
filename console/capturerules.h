#pragma once

#include <QRect>
#include <QSize>
#include <QString>

// Frames count as flowing while the last one is at most this old.
constexpr qint64 kFramesFlowingWindowMs = 1800;
// The box may still replace another camera this long after the console view starts.
constexpr qint64 kPreferredCameraSwitchWindowMs = 5000;

// Whether the camera delivered a frame recently enough that reopening it would only interrupt
// the picture. lastFrameMs 0 means no frame yet.
bool framesAreFlowing(qint64 lastFrameMs, qint64 nowMs);

// Milliseconds since the last frame for the log, -1 when there was none.
qint64 lastFrameAgoMs(qint64 lastFrameMs, qint64 nowMs);

// A stored port name may carry the display suffix ("/dev/ttyACM0 (TK CDC)"): the part before
// " (" is the port, unless the name starts with it.
QString bareStoredPortName(const QString &storedName);

// The rectangle a picture of `content` size occupies when letterboxed into `view`: the largest
// scaled copy that fits, centred (integer halves). Null when either size is degenerate.
QRect letterboxRect(const QSize &view, const QSize &content);

// The size in device pixels at which a picture is converted to fill the displayed rectangle: the
// rectangle's size times the device pixel ratio, rounded. Empty when nothing is displayed.
QSize picturePixelSize(const QRect &displayed, double devicePixelRatio);

// The serial link's state as the status bar shows it: "<port>: connected" (the port cut before
// " (" when it carries a display suffix), "UART: connected" without a port name, or
// "UART: disconnected".
QString uartStatusText(bool linkOpen, const QString &portName);
