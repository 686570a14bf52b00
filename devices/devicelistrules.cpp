#include "devices/devicelistrules.h"

#include <QCoreApplication>
#include <QCryptographicHash>

#include <cmath>

QString deviceDidForCameraId(const QByteArray &cameraId)
{
    if (cameraId.isEmpty())
        return QString();
    return QString::fromLatin1(QCryptographicHash::hash(cameraId, QCryptographicHash::Md5).toHex());
}

QVariantMap newDeviceRecord(const QByteArray &cameraId, const QString &description,
                            const QString &customName)
{
    const QString idText = QString::fromUtf8(cameraId);
    return {
        {QStringLiteral("did"), deviceDidForCameraId(cameraId)},
        {QStringLiteral("device_name"),
         customName.isEmpty() ? QString::fromLatin1(kDefaultDeviceName) : customName},
        {QStringLiteral("sys_desc_name"), description},
        {QStringLiteral("device_id"), idText},
        {QStringLiteral("uart_port"), QString()},
        {QStringLiteral("baud_rate"), 2000000},
        {QStringLiteral("protocol"), QString()},
        {QStringLiteral("coord_mode"), QString()},
        {QStringLiteral("audio_input_device_id"), QString()},
        {QStringLiteral("cursor_correction_enabled"), 0},
    };
}

bool isThrottled(qint64 lastMs, qint64 nowMs, qint64 windowMs, bool inclusive)
{
    if (lastMs <= 0)
        return false;
    const qint64 elapsed = nowMs - lastMs;
    return inclusive ? elapsed <= windowMs : elapsed < windowMs;
}

QRect fitAspectRect(const QSize &area, double ratio)
{
    if (area.width() <= 0 || area.height() <= 0 || !(ratio > 0))
        return QRect();
    const int w = area.width();
    const int h = area.height();
    int width = w;
    int height = int(std::lround(w / ratio));
    if (height > h) {
        height = h;
        width = int(std::lround(h * ratio));
    }
    return QRect((w - width) / 2, (h - height) / 2, width, height);
}

QStringList deviceMenuItemTexts(const QStringList &rowLabels)
{
    QStringList texts;
    for (int i = 0; i < rowLabels.size(); ++i) {
        const QString label = rowLabels.at(i).trimmed();
        texts.append(label.isEmpty()
                         ? QCoreApplication::translate("DeviceList", "设备 %1").arg(i + 1)
                         : label);
    }
    return texts;
}
