#include "console/recordingrules.h"

#include <algorithm>

QString fileNameTimestamp(const QDateTime &time)
{
    return time.toString(Qt::ISODate).replace(QLatin1Char(':'), QLatin1Char('-'));
}

QString screenshotFileName(const QDateTime &time)
{
    return QStringLiteral("tavrokvm-picture-%1.png").arg(fileNameTimestamp(time));
}

QString recordingFileName(const QDateTime &time, qint64 recordedMs)
{
    return QStringLiteral("tavrokvm-video-%1-%2s.mp4")
        .arg(fileNameTimestamp(time))
        .arg(std::max<qint64>(recordedMs / 1000, 0));
}

int recordingElapsedLabelSeconds(qint64 elapsedMs)
{
    return int(std::max<qint64>(elapsedMs, 0) / 1000) + 1;
}
