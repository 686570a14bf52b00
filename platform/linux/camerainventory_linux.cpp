// The V4L2 nodes as sysfs describes them. Nothing is opened: opening a node can block on a busy
// or misbehaving device, and this list only feeds a log line on the GUI thread.
#include <QDir>
#include <QFile>

#include "platform/camerainventory.h"

namespace {

QString readAttribute(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.read(256)).trimmed();
}

} // namespace

QList<SystemCamera> systemCameraInventoryIn(const QString &sysRoot)
{
    QDir dir(sysRoot + QStringLiteral("/class/video4linux"));
    QStringList nodes =
        dir.entryList({QStringLiteral("video*")}, QDir::Dirs | QDir::System | QDir::NoDotAndDotDot);
    // video2 before video10.
    std::sort(nodes.begin(), nodes.end(), [](const QString &a, const QString &b) {
        return a.mid(5).toInt() < b.mid(5).toInt();
    });
    QList<SystemCamera> cameras;
    for (const QString &node : std::as_const(nodes)) {
        const QString name = readAttribute(dir.filePath(node + QStringLiteral("/name")));
        // A UVC camera's further nodes (index 1 and up) carry metadata, not pictures.
        const QString index = readAttribute(dir.filePath(node + QStringLiteral("/index")));
        if (name.isEmpty() || (!index.isEmpty() && index != QLatin1String("0")))
            continue;
        cameras.append({name, QStringLiteral("/dev/") + node});
    }
    return cameras;
}

QList<SystemCamera> systemCameraInventory()
{
    return systemCameraInventoryIn(QStringLiteral("/sys"));
}
