#include <QDir>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/camerainventory.h"

namespace {

// The card name of a V4L2 node that captures video; empty when it is something else or cannot
// be asked (metadata nodes of UVC cameras answer but do not capture).
QString captureCardName(const QString &node)
{
    const int fd = ::open(QFile::encodeName(node).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return QString();
    v4l2_capability caps{};
    QString name;
    if (::ioctl(fd, VIDIOC_QUERYCAP, &caps) == 0) {
        const quint32 effective =
            (caps.capabilities & V4L2_CAP_DEVICE_CAPS) ? caps.device_caps : caps.capabilities;
        if (effective & (V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_VIDEO_CAPTURE_MPLANE))
            name = QString::fromUtf8(
                reinterpret_cast<const char *>(caps.card),
                int(qstrnlen(reinterpret_cast<const char *>(caps.card), sizeof caps.card)));
    }
    ::close(fd);
    return name;
}

} // namespace

QList<SystemCamera> systemCameraInventoryIn(const QString &devDir)
{
    QDir dir(devDir);
    QStringList nodes = dir.entryList({QStringLiteral("video*")}, QDir::System | QDir::Files);
    // video2 before video10.
    std::sort(nodes.begin(), nodes.end(), [](const QString &a, const QString &b) {
        return a.mid(5).toInt() < b.mid(5).toInt();
    });
    QList<SystemCamera> cameras;
    for (const QString &node : std::as_const(nodes)) {
        const QString path = dir.filePath(node);
        const QString name = captureCardName(path);
        if (!name.isEmpty())
            cameras.append({name, path});
    }
    return cameras;
}

QList<SystemCamera> systemCameraInventory()
{
    return systemCameraInventoryIn(QStringLiteral("/dev"));
}
