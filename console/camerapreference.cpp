#include "console/camerapreference.h"

#include <QRegularExpression>

namespace {

QString idText(const CameraText &camera)
{
    return QString::fromUtf8(camera.id);
}

// Description and id together, lower case: the text the name rules search.
QString hay(const CameraText &camera)
{
    return (camera.description + QLatin1Char(' ') + idText(camera)).toLower();
}

bool idCarries(const CameraText &camera, QLatin1String vendor, QLatin1String product)
{
    const QString id = idText(camera);
    return id.contains(vendor, Qt::CaseInsensitive) && id.contains(product, Qt::CaseInsensitive);
}

bool mentionsVideoOrCamera(const QString &text)
{
    return text.contains(QLatin1String("video")) || text.contains(QLatin1String("camera"));
}

// A webcam is not a capture device, unless its name says USB 3 or USB video.
bool passesWebcamCheck(const QString &hay)
{
    if (!hay.contains(QLatin1String("webcam")))
        return true;
    return hay.contains(QLatin1String("usb3")) || hay.contains(QLatin1String("usb 3")) ||
           hay.contains(QLatin1String("usb video")) || hay.contains(QLatin1String("usb3 video"));
}

} // namespace

bool isTkUsbVideoDevice(const CameraText &camera)
{
    if (idCarries(camera, QLatin1String("vid_a5c0"), QLatin1String("pid_2132")))
        return true;
    const QString text = hay(camera);
    return text.contains(QLatin1String("tk")) && text.contains(QLatin1String("usb")) &&
           text.contains(QLatin1String("video"));
}

bool isTkUsb2131Device(const CameraText &camera)
{
    return idCarries(camera, QLatin1String("vid_a5c0"), QLatin1String("pid_2131"));
}

bool looksLikeUsbVideo(const CameraText &camera)
{
    static const QRegularExpression usbVideoName(
        QStringLiteral(
            R"((?:usb\s*3|usb3)\s*video|usb\s*video|(?:usb\s*3|usb3)\s*camera|usb\s*camera|uvc)"),
        QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression usbVideoAnywhere(
        QStringLiteral(R"(.*usb.*(?:video|camera).*|.*(?:video|camera).*usb.*)"),
        QRegularExpression::CaseInsensitiveOption);

    const QString id = idText(camera);
    const QString text = hay(camera);
    const bool hasUsb = text.contains(QLatin1String("usb"));

    if (id.contains(QLatin1String("usb#vid_"), Qt::CaseInsensitive) &&
        id.contains(QLatin1String("&mi_"), Qt::CaseInsensitive) && hasUsb &&
        mentionsVideoOrCamera(text))
        return true;
    if (usbVideoName.match(text).hasMatch())
        return passesWebcamCheck(text);
    if (usbVideoAnywhere.match(camera.description).hasMatch() ||
        usbVideoAnywhere.match(id).hasMatch())
        return passesWebcamCheck(text);
    if (hasUsb && mentionsVideoOrCamera(text))
        return !text.contains(QLatin1String("webcam")) || text.contains(QLatin1String("usb3")) ||
               text.contains(QLatin1String("usb 3"));
    return false;
}

QByteArray preferredInitialCameraId(const QList<CameraText> &cameras)
{
    for (const CameraText &camera : cameras) {
        if (isTkUsbVideoDevice(camera))
            return camera.id;
    }
    const CameraText *candidate = nullptr;
    for (const CameraText &camera : cameras) {
        if (!looksLikeUsbVideo(camera))
            continue;
        if (!candidate || (isTkUsb2131Device(camera) && !isTkUsb2131Device(*candidate)))
            candidate = &camera;
    }
    if (candidate)
        return candidate->id;
    return cameras.isEmpty() ? QByteArray() : cameras.first().id;
}

bool isBoxLikeCamera(const CameraText &camera)
{
    return isTkUsbVideoDevice(camera) || isTkUsb2131Device(camera) || looksLikeUsbVideo(camera);
}
