#include "protocol/tkprotocol.h"

#include "protocol/deviceinfo.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QStringList>
#include <QtEndian>

#include <cstring>

namespace {

constexpr quint8 kMagic0 = 0x57;
constexpr quint8 kMagic1 = 0xAB;
constexpr quint8 kChannel = 1;

// Offsets inside a packet.
constexpr int kOffChannel = 2;
constexpr int kOffSequence = 3;
constexpr int kOffBodyLength = 7;
constexpr int kOffCommand = 11;
constexpr int kOffPayloadLength = 13;

struct DeviceInfoCache
{
    QByteArray payload;
    int udiskDir = -1;
};

DeviceInfoCache &cache()
{
    // Never destroyed: links clear it when they close, and how late in the process's exit
    // that happens must not depend on which of the two was used first.
    static DeviceInfoCache *const c = new DeviceInfoCache;
    return *c;
}

int byteAt(const QByteArray &payload, int offset)
{
    return payload.size() > offset ? int(quint8(payload.at(offset))) : -1;
}

} // namespace

quint32 TkProtocol::mcAddChecksum(const quint8 *data, quint32 length)
{
    quint32 sum = 0;
    quint32 i = 0;
    // Whole 32-byte blocks have fixed weights 0..31; the fixed inner loop vectorises.
    for (; i + 32 <= length; i += 32) {
        const quint8 *block = data + i;
        for (quint32 k = 0; k < 32; ++k)
            sum += quint32(block[k]) + k * quint32(block[k] & 7u);
    }
    for (; i < length; ++i)
        sum += quint32(data[i]) + (i & 31u) * quint32(data[i] & 7u);
    return sum;
}

QByteArray TkProtocol::buildPacket(quint16 command, const QByteArray &payload, quint32 seq)
{
    const quint32 n = quint32(payload.size());
    QByteArray packet(qsizetype(n) + PacketOverhead, '\0');
    uchar *p = reinterpret_cast<uchar *>(packet.data());
    p[0] = kMagic0;
    p[1] = kMagic1;
    p[kOffChannel] = kChannel;
    qToLittleEndian<quint32>(seq, p + kOffSequence);
    qToLittleEndian<quint32>(6 + n, p + kOffBodyLength);
    qToLittleEndian<quint16>(command, p + kOffCommand);
    qToLittleEndian<quint32>(n, p + kOffPayloadLength);
    if (n > 0)
        std::memcpy(p + HeaderSize, payload.constData(), n);
    qToLittleEndian<quint32>(mcAddChecksum(p, n + HeaderSize), p + HeaderSize + n);
    return packet;
}

QByteArray TkProtocol::createDeviceInfoQueryPacket(quint32 seq)
{
    return buildPacket(CmdDeviceInfoQuery, QByteArray(), seq);
}

QByteArray TkProtocol::createUdiskSetPacket(quint8 direction, quint32 seq)
{
    return buildPacket(CmdUdiskSet, QByteArray(1, char(direction)), seq);
}

QByteArray TkProtocol::createMouseAutoMoveSetPacket(bool enable, quint32 seq)
{
    return buildPacket(CmdMouseAutoMoveSet, QByteArray(1, enable ? '\x01' : '\x00'), seq);
}

QByteArray TkProtocol::createDeviceRestartPacket(quint32 seq)
{
    return buildPacket(CmdDeviceRestart, QByteArray("\x01\x00\x00\x00", 4), seq);
}

QByteArray TkProtocol::createAtxPowerPacket(quint8 action, quint32 seq)
{
    return buildPacket(CmdAtxPower, QByteArray(1, char(action)), seq);
}

bool TkProtocol::tryConsumeOnePacket(QByteArray &buffer, TkPacket &packet)
{
    return tryConsumeOnePacket(buffer, packet, MaxPayloadLength);
}

bool TkProtocol::tryConsumeOnePacket(QByteArray &buffer, TkPacket &packet, quint32 maxPayloadLength)
{
    maxPayloadLength = qMin(maxPayloadLength, MaxPayloadLength);
    const qsizetype size = buffer.size();
    if (size < HeaderSize)
        return false;

    // Walk with an index and drop what was skipped in one removal, so the buffer is touched
    // once per call however much garbage precedes the packet.
    const uchar *data = reinterpret_cast<const uchar *>(buffer.constData());
    qsizetype start = 0;
    bool found = false;
    quint32 n = 0;
    while (size - start >= HeaderSize) {
        if (data[start] != kMagic0 || data[start + 1] != kMagic1) {
            // No candidate can start before the next first magic byte.
            if (data[start + 1] == kMagic0) { // cheaper than a memchr call in runs of 0x57
                ++start;
                continue;
            }
            const qsizetype searchEnd = size - HeaderSize + 1; // first start too short to parse
            const void *next =
                std::memchr(data + start + 1, kMagic0, size_t(searchEnd - (start + 1)));
            start = next ? static_cast<const uchar *>(next) - data : searchEnd;
            continue;
        }
        n = qFromLittleEndian<quint32>(data + start + kOffPayloadLength);
        if (n > maxPayloadLength) {
            ++start;
            continue;
        }
        if (size - start < qsizetype(n) + PacketOverhead)
            break; // incomplete candidate: keep it and wait for more bytes
        const quint32 expected = qFromLittleEndian<quint32>(data + start + HeaderSize + n);
        if (mcAddChecksum(data + start, n + HeaderSize) != expected) {
            ++start;
            continue;
        }
        found = true;
        break;
    }

    if (found) {
        const uchar *p = data + start;
        packet.channel = p[kOffChannel];
        packet.sequence = qFromLittleEndian<quint32>(p + kOffSequence);
        packet.command = qFromLittleEndian<quint16>(p + kOffCommand);
        packet.payload = QByteArray(reinterpret_cast<const char *>(p + HeaderSize), n);
        buffer.remove(0, start + qsizetype(n) + PacketOverhead);
        return true;
    }
    if (start > 0)
        buffer.remove(0, start);
    return false;
}

QString TkProtocol::formatDeviceInfoPayload(const QByteArray &payload)
{
    if (payload.isEmpty())
        return QCoreApplication::translate("TkProtocol", "(无数据)");

    const DeviceInfoRecord r = decodeDeviceInfoRecord(payload);
    const qsizetype length = payload.size();

    QString serial = QString::fromLatin1(r.serialNumber.toHex());
    {
        // All "f" followed by all "0" is what unprogrammed flash reads as.
        qsizetype i = 0;
        while (i < serial.size() && serial.at(i) == QLatin1Char('f'))
            ++i;
        qsizetype j = i;
        while (j < serial.size() && serial.at(j) == QLatin1Char('0'))
            ++j;
        if (i > 0 && j == serial.size())
            serial = QCoreApplication::translate("TkProtocol", "(无效)");
    }

    const auto version = [](quint16 v) {
        return QStringLiteral("%1.%2.%3").arg(v / 1000).arg((v % 1000) / 100).arg(v % 100);
    };
    const auto usbId = [](quint16 id) {
        return QStringLiteral("0x%1").arg(id, 4, 16, QLatin1Char('0')).toUpper();
    };
    const auto num = [](qint64 v) { return QString::number(v); };
    // Hundredths to tenths in integers, half up: binary floating point would turn 0.15 into
    // 0.1499... and round it down.
    const auto celsius = [](quint16 hundredths) {
        const int tenths = (int(hundredths) + 5) / 10;
        return QStringLiteral("%1.%2").arg(tenths / 10).arg(tenths % 10);
    };

    QString modeText = QCoreApplication::translate("TkProtocol", "未知");
    if (r.mouseMode == 1)
        modeText = QCoreApplication::translate("TkProtocol", "相对坐标");
    else if (r.mouseMode == 2)
        modeText = QCoreApplication::translate("TkProtocol", "绝对坐标");

    QString wheelText = QCoreApplication::translate("TkProtocol", "未知");
    if (r.wheelDirection == 0 && length > DeviceInfoLayout::WheelDirection)
        wheelText = QCoreApplication::translate("TkProtocol", "向上");
    else if (r.wheelDirection == 1)
        wheelText = QCoreApplication::translate("TkProtocol", "向下");

    QString dirText = QStringLiteral("N/A");
    if (length > DeviceInfoLayout::UdiskDirection) {
        if (r.udiskDirection == 0)
            dirText = QCoreApplication::translate("TkProtocol", "未知(0)");
        else if (r.udiskDirection == 1)
            dirText = QCoreApplication::translate("TkProtocol", "Target/目标机");
        else if (r.udiskDirection == 2)
            dirText = QCoreApplication::translate("TkProtocol", "Host/主机");
    }

    QString runText = QCoreApplication::translate("TkProtocol", "未知");
    if (r.runState == 2)
        runText = QStringLiteral("bootloader");
    else if (r.runState == 3)
        runText = QStringLiteral("app");

    QString buildTime = r.buildTime.trimmed();
    if (buildTime.isEmpty() || length <= DeviceInfoLayout::BuildTime)
        buildTime = QStringLiteral("N/A");

    const bool hasAutoMove = length > DeviceInfoLayout::MouseAutoMove;
    QString autoMoveText = QStringLiteral("N/A");
    if (hasAutoMove)
        autoMoveText = r.mouseAutoMove == 1 ? QCoreApplication::translate("TkProtocol", "启用")
                                            : QCoreApplication::translate("TkProtocol", "禁用");

    // Multi-argument arg() substitutes in one pass, so a '%' inside a value (the build time is
    // free text) is never taken for a placeholder.
    QStringList lines;
    lines << QCoreApplication::translate("TkProtocol", "更新时间: %1")
                 .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")));
    lines << QCoreApplication::translate("TkProtocol", "序列号(hex): %1").arg(serial);
    lines << QCoreApplication::translate("TkProtocol", "固件版本: %1 (原始值: %2)")
                 .arg(version(r.firmwareVersion), num(r.firmwareVersion));
    lines << QCoreApplication::translate("TkProtocol", "硬件版本: %1 (原始值: %2)")
                 .arg(version(r.hardwareVersion), num(r.hardwareVersion));
    lines << QCoreApplication::translate("TkProtocol", "Bootloader版本: %1 (原始值: %2)")
                 .arg(version(r.bootloaderVersion), num(r.bootloaderVersion));
    lines << QCoreApplication::translate("TkProtocol", "MCU温度: %1°C (原始值: %2)")
                 .arg(celsius(r.mcuTemperature), num(r.mcuTemperature));
    lines << QCoreApplication::translate("TkProtocol",
                                         "鼠标: 模式=%1 (%2), 滚轮方向=%3 (%4), 灵敏度=%5")
                 .arg(modeText, num(r.mouseMode), wheelText, num(r.wheelDirection),
                      num(r.mouseSensitivity));
    lines << QCoreApplication::translate("TkProtocol", "U盘方向: %1 (%2)")
                 .arg(dirText, num(r.udiskDirection));
    lines << QCoreApplication::translate("TkProtocol", "USB(目标): 波特率=%1, VID=%2, PID=%3")
                 .arg(r.targetUsbBaud == 0xFFFFFFFFu ? QStringLiteral("N/A") : num(r.targetUsbBaud),
                      usbId(r.targetUsbVid), usbId(r.targetUsbPid));
    lines << QCoreApplication::translate("TkProtocol", "USB(主机): 波特率=%1, VID=%2, PID=%3")
                 .arg(r.hostUsbBaud == 0 ? QStringLiteral("N/A") : num(r.hostUsbBaud),
                      usbId(r.hostUsbVid), usbId(r.hostUsbPid));
    lines << QCoreApplication::translate("TkProtocol", "运行状态: %1 (原始值: %2)")
                 .arg(runText, num(r.runState));
    lines << QCoreApplication::translate("TkProtocol", "编译时间: %1").arg(buildTime);
    lines << QCoreApplication::translate("TkProtocol", "鼠标微动: %1 (%2)")
                 .arg(autoMoveText, num(hasAutoMove ? int(r.mouseAutoMove) : -1));
    if (length >= DeviceInfoLayout::RecordSize) {
        lines << QCoreApplication::translate("TkProtocol", "UVM32: app数=%1, 总大小=%2, CRC=0x%3")
                     .arg(num(r.imageAppCount), num(r.imageTotalSize),
                          QStringLiteral("%1").arg(r.imageCrc, 8, 16, QLatin1Char('0')));
    }
    lines << QCoreApplication::translate("TkProtocol", "原始数据长度: %1 字节").arg(length);
    return lines.join(QLatin1Char('\n'));
}

void TkProtocol::updateGlobalDeviceInfoCache(const QByteArray &payload)
{
    cache().payload = payload;
    cache().udiskDir = udiskDirFromPayload(payload);
}

void TkProtocol::clearGlobalDeviceInfoCache()
{
    cache().payload.clear();
    cache().udiskDir = -1;
}

QByteArray TkProtocol::globalCachedDeviceInfoPayload()
{
    return cache().payload;
}

int TkProtocol::globalCachedUdiskDir()
{
    return cache().udiskDir;
}

int TkProtocol::globalCachedMouseAutoMove()
{
    return mouseAutoMoveFromPayload(cache().payload);
}

int TkProtocol::udiskDirFromPayload(const QByteArray &payload)
{
    return byteAt(payload, DeviceInfoLayout::UdiskDirection);
}

int TkProtocol::mouseAutoMoveFromPayload(const QByteArray &payload)
{
    return byteAt(payload, DeviceInfoLayout::MouseAutoMove);
}
