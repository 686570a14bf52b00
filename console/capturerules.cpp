#include "console/capturerules.h"

#include <algorithm>
#include <cmath>

bool framesAreFlowing(qint64 lastFrameMs, qint64 nowMs)
{
    return lastFrameMs > 0 && nowMs - lastFrameMs <= kFramesFlowingWindowMs;
}

qint64 lastFrameAgoMs(qint64 lastFrameMs, qint64 nowMs)
{
    return lastFrameMs > 0 ? nowMs - lastFrameMs : -1;
}

QString bareStoredPortName(const QString &storedName)
{
    const int cut = storedName.indexOf(QLatin1String(" ("));
    return cut >= 1 ? storedName.left(cut) : storedName;
}

QRect letterboxRect(const QSize &view, const QSize &content)
{
    if (content.width() < 1 || content.height() < 1 || view.width() < 1 || view.height() < 1)
        return QRect();
    const double scale =
        std::min(double(view.width()) / content.width(), double(view.height()) / content.height());
    const int dw = int(std::trunc(scale * content.width()));
    const int dh = int(std::trunc(scale * content.height()));
    return QRect((view.width() - dw) / 2, (view.height() - dh) / 2, dw, dh);
}

QSize picturePixelSize(const QRect &displayed, double devicePixelRatio)
{
    if (displayed.isEmpty() || !(devicePixelRatio > 0))
        return QSize();
    return QSize(std::max(1, int(std::lround(displayed.width() * devicePixelRatio))),
                 std::max(1, int(std::lround(displayed.height() * devicePixelRatio))));
}

QString uartStatusText(bool linkOpen, const QString &portName)
{
    if (!linkOpen)
        return QStringLiteral("UART: disconnected");
    const int suffix = portName.indexOf(QLatin1String(" ("));
    const QString port = suffix > 0 ? portName.left(suffix) : portName;
    if (port.isEmpty())
        return QStringLiteral("UART: connected");
    return QStringLiteral("%1: connected").arg(port);
}
