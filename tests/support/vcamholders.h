#pragma once

// The virtual camera's count of streams per camera (TAVROKVM_VCAM_HOLDERS): how many capture
// pipelines stream each camera now, and the most that ever did at once. Header-only.

#include <QFile>
#include <QHash>
#include <QString>

#include <algorithm>

struct VcamHolders
{
    int streaming = 0;
    int peak = 0;
};

// By camera, "kind:serial@port"; empty before any camera streamed.
inline QHash<QString, VcamHolders> readVcamHolders(const QString &path)
{
    QHash<QString, VcamHolders> holders;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return holders;
    for (const QByteArray &line : file.readAll().split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() == 3)
            holders.insert(QString::fromUtf8(fields[0]), {fields[1].toInt(), fields[2].toInt()});
    }
    return holders;
}

// The camera whose serial is `serial`; zeros when it never streamed.
inline VcamHolders vcamHoldersOf(const QString &path, const QString &serial)
{
    const QHash<QString, VcamHolders> holders = readVcamHolders(path);
    for (auto it = holders.begin(); it != holders.end(); ++it) {
        if (it.key().contains(QLatin1Char(':') + serial + QLatin1Char('@')))
            return it.value();
    }
    return {};
}

// The most streams any camera had at one time.
inline int vcamPeakHolders(const QString &path)
{
    int peak = 0;
    for (const VcamHolders &h : readVcamHolders(path))
        peak = std::max(peak, h.peak);
    return peak;
}
