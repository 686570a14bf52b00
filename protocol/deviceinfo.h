#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// Byte offsets of the box's device information record (the payload of reply 0x81).
// Multi-byte fields are little-endian and unsigned.
namespace DeviceInfoLayout {
constexpr int SerialNumber = 0; // 16 raw bytes
constexpr int SerialNumberSize = 16;
constexpr int FirmwareVersion = 16;   // u16, v/1000 . (v%1000)/100 . v%100
constexpr int HardwareVersion = 18;   // u16, same encoding
constexpr int BootloaderVersion = 20; // u16, same encoding
constexpr int McuTemperature = 22;    // u16, hundredths of a degree Celsius
constexpr int UdiskDirection = 24;    // u8, 1 target, 2 host, 0 unknown
constexpr int MouseMode = 25;         // u8, 1 relative, 2 absolute
constexpr int WheelDirection = 26;    // u8, 0 up, 1 down
constexpr int MouseSensitivity = 27;  // u8
constexpr int TargetUsbBaud = 28;     // u32, 0xFFFFFFFF = not available
constexpr int TargetUsbVid = 32;      // u16
constexpr int TargetUsbPid = 34;      // u16
// 36..67: not interpreted
constexpr int RunState = 68;    // u8, 2 bootloader, 3 application
constexpr int HostUsbBaud = 69; // u32, 0 = not available
constexpr int HostUsbVid = 73;  // u16
constexpr int HostUsbPid = 75;  // u16
constexpr int BuildTime = 77;   // 32 bytes UTF-8 text, ends at the first zero byte
constexpr int BuildTimeSize = 32;
constexpr int MouseAutoMove = 109; // u8, 1 on, anything else off
constexpr int ImageAppCount = 110; // u16
// 112..125: not interpreted
constexpr int ImageTotalSize = 126; // u32, bytes
constexpr int ImageCrc = 130;       // u32
constexpr int RecordSize = 134;     // a full record; longer ones are accepted
} // namespace DeviceInfoLayout

// The fields of a device information record. Defaults describe a plausible healthy box in
// application mode, so a simulator can send a record without setting anything.
struct DeviceInfoRecord
{
    QByteArray serialNumber = QByteArray::fromHex("0102030405060708090a0b0c0d0e0f10"); // 16 bytes
    quint16 firmwareVersion = 1203;                                                    // 1.2.3
    quint16 hardwareVersion = 1000;                                                    // 1.0.0
    quint16 bootloaderVersion = 1001;
    quint16 mcuTemperature = 3456; // 34.56 degrees Celsius
    quint8 udiskDirection = 1;     // 1 target computer, 2 host, 0 unknown
    quint8 mouseMode = 2;          // 1 relative, 2 absolute
    quint8 wheelDirection = 0;     // 0 up, 1 down
    quint8 mouseSensitivity = 5;
    quint32 targetUsbBaud = 0xFFFFFFFFu; // not available
    quint16 targetUsbVid = 0x1a86;
    quint16 targetUsbPid = 0x7523;
    quint8 runState = 3;     // 2 bootloader, 3 application
    quint32 hostUsbBaud = 0; // not available
    quint16 hostUsbVid = 0;
    quint16 hostUsbPid = 0;
    QString buildTime = QStringLiteral("2026-05-28 20:52"); // at most 32 bytes of UTF-8 are kept
    quint8 mouseAutoMove = 0;                               // 1 on, anything else off
    quint16 imageAppCount = 2;
    quint32 imageTotalSize = 123456;
    quint32 imageCrc = 0x00abcdef;
};

// Encodes `record` as a full 134-byte information record. The serial number is cut or padded
// with zero bytes to 16 bytes; the build time is cut to 32 bytes on a character boundary and
// padded with zero bytes; the uninterpreted ranges are zero.
QByteArray encodeDeviceInfoRecord(const DeviceInfoRecord &record);

// Reads a record of any length: a field wholly beyond the end reads as 0, a field cut by the
// end takes the bytes present (missing high bytes 0). `serialNumber` holds the first 16 bytes
// (fewer when the record is shorter); `buildTime` is the text before the first zero byte of the
// build-time range, decoded as UTF-8, untrimmed (empty when the record ends before it).
DeviceInfoRecord decodeDeviceInfoRecord(const QByteArray &payload);
