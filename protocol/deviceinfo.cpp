#include "protocol/deviceinfo.h"

namespace L = DeviceInfoLayout;

namespace {

// Little-endian read of `size` bytes at `offset`; bytes beyond the end of the record read as 0,
// so a cut field keeps its low bytes.
quint32 readLe(const QByteArray &data, int offset, int size)
{
    quint32 value = 0;
    for (int k = 0; k < size; ++k) {
        const qsizetype at = qsizetype(offset) + k;
        if (at >= data.size())
            break;
        value |= quint32(quint8(data.at(at))) << (8 * k);
    }
    return value;
}

void writeLe(QByteArray &data, int offset, int size, quint32 value)
{
    for (int k = 0; k < size; ++k)
        data[offset + k] = char((value >> (8 * k)) & 0xFF);
}

// Longest prefix of `utf8` of at most `limit` bytes that does not split a character.
QByteArray cutUtf8(const QByteArray &utf8, int limit)
{
    if (utf8.size() <= limit)
        return utf8;
    int end = limit;
    while (end > 0 && (quint8(utf8.at(end)) & 0xC0) == 0x80)
        --end;
    return utf8.left(end);
}

} // namespace

QByteArray encodeDeviceInfoRecord(const DeviceInfoRecord &record)
{
    QByteArray out(L::RecordSize, '\0');
    const QByteArray serial = record.serialNumber.left(L::SerialNumberSize);
    out.replace(L::SerialNumber, serial.size(), serial);
    writeLe(out, L::FirmwareVersion, 2, record.firmwareVersion);
    writeLe(out, L::HardwareVersion, 2, record.hardwareVersion);
    writeLe(out, L::BootloaderVersion, 2, record.bootloaderVersion);
    writeLe(out, L::McuTemperature, 2, record.mcuTemperature);
    writeLe(out, L::UdiskDirection, 1, record.udiskDirection);
    writeLe(out, L::MouseMode, 1, record.mouseMode);
    writeLe(out, L::WheelDirection, 1, record.wheelDirection);
    writeLe(out, L::MouseSensitivity, 1, record.mouseSensitivity);
    writeLe(out, L::TargetUsbBaud, 4, record.targetUsbBaud);
    writeLe(out, L::TargetUsbVid, 2, record.targetUsbVid);
    writeLe(out, L::TargetUsbPid, 2, record.targetUsbPid);
    writeLe(out, L::RunState, 1, record.runState);
    writeLe(out, L::HostUsbBaud, 4, record.hostUsbBaud);
    writeLe(out, L::HostUsbVid, 2, record.hostUsbVid);
    writeLe(out, L::HostUsbPid, 2, record.hostUsbPid);
    const QByteArray buildTime = cutUtf8(record.buildTime.toUtf8(), L::BuildTimeSize);
    out.replace(L::BuildTime, buildTime.size(), buildTime);
    writeLe(out, L::MouseAutoMove, 1, record.mouseAutoMove);
    writeLe(out, L::ImageAppCount, 2, record.imageAppCount);
    writeLe(out, L::ImageTotalSize, 4, record.imageTotalSize);
    writeLe(out, L::ImageCrc, 4, record.imageCrc);
    Q_ASSERT(out.size() == L::RecordSize);
    return out;
}

DeviceInfoRecord decodeDeviceInfoRecord(const QByteArray &payload)
{
    DeviceInfoRecord r;
    r.serialNumber = payload.left(L::SerialNumberSize);
    r.firmwareVersion = quint16(readLe(payload, L::FirmwareVersion, 2));
    r.hardwareVersion = quint16(readLe(payload, L::HardwareVersion, 2));
    r.bootloaderVersion = quint16(readLe(payload, L::BootloaderVersion, 2));
    r.mcuTemperature = quint16(readLe(payload, L::McuTemperature, 2));
    r.udiskDirection = quint8(readLe(payload, L::UdiskDirection, 1));
    r.mouseMode = quint8(readLe(payload, L::MouseMode, 1));
    r.wheelDirection = quint8(readLe(payload, L::WheelDirection, 1));
    r.mouseSensitivity = quint8(readLe(payload, L::MouseSensitivity, 1));
    r.targetUsbBaud = readLe(payload, L::TargetUsbBaud, 4);
    r.targetUsbVid = quint16(readLe(payload, L::TargetUsbVid, 2));
    r.targetUsbPid = quint16(readLe(payload, L::TargetUsbPid, 2));
    r.runState = quint8(readLe(payload, L::RunState, 1));
    r.hostUsbBaud = readLe(payload, L::HostUsbBaud, 4);
    r.hostUsbVid = quint16(readLe(payload, L::HostUsbVid, 2));
    r.hostUsbPid = quint16(readLe(payload, L::HostUsbPid, 2));
    QByteArray buildTime = payload.mid(L::BuildTime, L::BuildTimeSize);
    const qsizetype zero = buildTime.indexOf('\0');
    if (zero >= 0)
        buildTime.truncate(zero);
    r.buildTime = QString::fromUtf8(buildTime);
    r.mouseAutoMove = quint8(readLe(payload, L::MouseAutoMove, 1));
    r.imageAppCount = quint16(readLe(payload, L::ImageAppCount, 2));
    r.imageTotalSize = readLe(payload, L::ImageTotalSize, 4);
    r.imageCrc = readLe(payload, L::ImageCrc, 4);
    return r;
}
