#pragma once

#include <QByteArray>
#include <QRect>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QVariantMap>

// The DID of the box whose camera has this id: lowercase hexadecimal MD5 of the id bytes; empty
// for an empty id. The console view, the device list, the database and the serial links all key
// a box by this one function.
QString deviceDidForCameraId(const QByteArray &cameraId);

// The name a box shows when the user has given it none.
inline constexpr char kDefaultDeviceName[] = "USB video";

// The database record of a box seen for the first time.
QVariantMap newDeviceRecord(const QByteArray &cameraId, const QString &description,
                            const QString &customName);

// One rule for every user action that must not repeat too fast: with a previous time
// (milliseconds since the epoch, 0 = never), whether `now` falls inside the window. The window is
// inclusive when `inclusive`, as the row-action and user-refresh throttles are.
bool isThrottled(qint64 lastMs, qint64 nowMs, qint64 windowMs, bool inclusive);

// The console view's rectangle inside an area of `area` size: as wide as the area at `ratio`
// when that fits its height, else as high; centred. Halves round away from zero.
QRect fitAspectRect(const QSize &area, double ratio);

// Texts of the device menu's items, one per label of the device table: the trimmed label, or
// "设备 N" with the 1-based row when it is blank.
QStringList deviceMenuItemTexts(const QStringList &rowLabels);

// Whether row `row` shows the green dot in this blink phase: every row but the current one
// always, the current row only in the phase's true half.
inline bool statusDotIsGreen(int row, int currentRow, bool blinkPhase)
{
    return row != currentRow || blinkPhase;
}
