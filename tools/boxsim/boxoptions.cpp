#include "boxoptions.h"

#include <QCommandLineParser>
#include <QRandomGenerator>

#include <cmath>

namespace {

// Decimal, or hexadecimal with a 0x prefix; nothing else.
bool parseUnsigned(const QString &text, quint64 maximum, quint64 &value)
{
    const QString trimmed = text.trimmed();
    bool ok = false;
    if (trimmed.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
        value = trimmed.mid(2).toULongLong(&ok, 16);
    else
        value = trimmed.toULongLong(&ok, 10);
    return ok && value <= maximum;
}

// Reads an unsigned option into `target` when it was given.
template<typename T>
bool readUnsigned(const QCommandLineParser &parser, const char *name, quint64 maximum, T &target,
                  QString &error)
{
    const QString option = QString::fromLatin1(name);
    if (!parser.isSet(option))
        return true;
    quint64 value = 0;
    if (!parseUnsigned(parser.value(option), maximum, value)) {
        error = QStringLiteral("--%1: expected a number from 0 to %2, got \"%3\"")
                    .arg(option)
                    .arg(maximum)
                    .arg(parser.value(option));
        return false;
    }
    target = T(value);
    return true;
}

bool readTargetOptions(const QCommandLineParser &parser, BoxOptions &options, QString &error)
{
    if (parser.isSet(QStringLiteral("screen"))) {
        const QStringList parts = parser.value(QStringLiteral("screen")).split(QLatin1Char('x'));
        bool okWidth = false;
        bool okHeight = false;
        const int width = parts.size() == 2 ? parts.at(0).toInt(&okWidth) : 0;
        const int height = parts.size() == 2 ? parts.at(1).toInt(&okHeight) : 0;
        if (!okWidth || !okHeight || width < 64 || height < 64 ||
            width > targetscreen::kMaxScreenSide || height > targetscreen::kMaxScreenSide) {
            error = QStringLiteral("--screen: expected WxH from 64x64 to %1x%1, got \"%2\"")
                        .arg(targetscreen::kMaxScreenSide)
                        .arg(parser.value(QStringLiteral("screen")));
            return false;
        }
        options.screenWidth = width;
        options.screenHeight = height;
    }
    options.screenFile = parser.value(QStringLiteral("screen-file"));
    if (parser.isSet(QStringLiteral("borders"))) {
        const QString text = parser.value(QStringLiteral("borders"));
        const QStringList parts = text.split(QLatin1Char(','));
        bool okLeft = false;
        bool okTop = false;
        const int left = parts.size() == 2 ? parts.at(0).toInt(&okLeft) : -1;
        const int top = parts.size() == 2 ? parts.at(1).toInt(&okTop) : -1;
        if (text == QLatin1String("4:3")) {
            options.borderMode = targetscreen::BorderMode::FourByThree;
        } else if (okLeft && okTop && left >= 0 && top >= 0 && left <= 960 && top <= 540) {
            options.borderMode = targetscreen::BorderMode::Margins;
            options.borderLeft = left;
            options.borderTop = top;
        } else {
            error = QStringLiteral("--borders: expected 4:3 or L,T (at most 960,540), got \"%1\"")
                        .arg(text);
            return false;
        }
    }
    constexpr quint64 kMaxDelayMs = 10 * 1000;
    quint32 poll = 0;
    quint32 delay = 0;
    if (!readUnsigned(parser, "hid-poll-ms", 1000, poll, error) ||
        !readUnsigned(parser, "capture-delay-ms", kMaxDelayMs, delay, error))
        return false;
    options.hidPollMs = int(poll);
    options.captureDelayMs = int(delay);

    const QString layout = parser.isSet(QStringLiteral("layout"))
                               ? parser.value(QStringLiteral("layout"))
                               : QStringLiteral("us");
    const QStringList known = KeyboardLayout::knownLayouts();
    if (!known.contains(layout)) {
        error = QStringLiteral("--layout: expected one of %1, got \"%2\"")
                    .arg(known.join(QLatin1String(", ")), layout);
        return false;
    }
    if (layout != QLatin1String("us") &&
        !KeyboardLayout::compile(layout, options.keyboardLayout, error)) {
        error.prepend(QStringLiteral("--layout: "));
        return false;
    }
    return true;
}

} // namespace

DeviceInfoRecord defaultRecord()
{
    DeviceInfoRecord record;
    record.serialNumber = "TK0000000001";
    record.udiskDirection = 1;
    record.mouseAutoMove = 0;
    record.mcuTemperature = 4200;
    return record;
}

void addBoxOptions(QCommandLineParser &parser)
{
    parser.addOptions({
        {"link", "Make PATH a symlink to the pty's slave device (required).", "PATH"},
        {"serial", "Serial number in the information record (at most 16 bytes).", "TEXT"},
        {"udisk-dir", "USB-disk direction: 1 target, 2 host, 0 unknown.", "N"},
        {"mouse-auto-move", "Mouse auto-move switch, 0 or 1.", "0|1"},
        {"temperature", "Controller temperature in degrees Celsius (0 to 655.35).", "N"},
        {"firmware-version", "Raw firmware version number (1203 reads 1.2.3).", "N"},
        {"hardware-version", "Raw hardware version number.", "N"},
        {"bootloader-version", "Raw bootloader version number.", "N"},
        {"mouse-mode", "Mouse mode byte: 1 relative, 2 absolute.", "N"},
        {"wheel-direction", "Wheel direction byte: 0 up, 1 down.", "N"},
        {"sensitivity", "Mouse sensitivity byte.", "N"},
        {"run-state", "Run state byte: 2 bootloader, 3 application.", "N"},
        {"build-time", "Firmware build time text (at most 32 bytes).", "TEXT"},
        {"app-count", "Firmware image summary: application count.", "N"},
        {"image-size", "Firmware image summary: total size in bytes.", "N"},
        {"image-crc", "Firmware image summary: CRC (0x... for hexadecimal).", "N"},
        {"reply-code", "Result code of general replies.", "N"},
        {"no-replies", "Never answer vendor commands."},
        {"reply-delay-ms", "Answer N ms after the command.", "N"},
        {"corrupt-checksums", "Send every reply packet with a wrong checksum."},
        {"garbage-between", "Send random garbage bytes before and after every reply packet."},
        {"hangup-after-bytes", "Close the line after receiving N bytes, then exit.", "N"},
        {"cut-reply-after-bytes",
         "Send only the first N bytes of the first reply, then close the line and exit.", "N"},
        {"record-size", "Pad the information record with zero bytes to N bytes (134 to 4096).",
         "N"},
        {"restart-downtime-ms", "How long the line is gone after a restart command.", "N"},
        {"seed", "Seed of the random garbage bytes (default: random).", "N"},
        {"screen", "The target's screen size (default 1920x1080).", "WxH"},
        {"screen-file",
         "Publish the target's screen in FILE for the virtual camera (TAVROKVM_VCAM_TARGETS).",
         "FILE"},
        {"borders",
         "Black borders around the target's picture in the captured frame: 4:3 (a 4:3 picture "
         "centred), or L,T (columns on each side, rows above and below).",
         "4:3|L,T"},
        {"hid-poll-ms", "The target samples the latest keyboard and mouse report every N ms.", "N"},
        {"capture-delay-ms", "The target's screen reaches the camera N ms after a change.", "N"},
        {"layout", "The target's keyboard layout: us (default), gb, de, fr or ch(de).", "CODE"},
    });
}

bool readBoxOptions(const QCommandLineParser &parser, BoxOptions &options, QString &error)
{
    options.link = parser.value(QStringLiteral("link"));
    if (options.link.isEmpty()) {
        error = QStringLiteral("--link PATH is required");
        return false;
    }
    DeviceInfoRecord &record = options.record;
    if (parser.isSet(QStringLiteral("serial"))) {
        record.serialNumber = parser.value(QStringLiteral("serial")).toUtf8();
        if (record.serialNumber.size() > DeviceInfoLayout::SerialNumberSize) {
            error = QStringLiteral("--serial: at most 16 bytes");
            return false;
        }
    }
    if (parser.isSet(QStringLiteral("build-time"))) {
        record.buildTime = parser.value(QStringLiteral("build-time"));
        if (record.buildTime.toUtf8().size() > DeviceInfoLayout::BuildTimeSize) {
            error = QStringLiteral("--build-time: at most 32 bytes");
            return false;
        }
    }
    if (parser.isSet(QStringLiteral("temperature"))) {
        bool ok = false;
        const double degrees = parser.value(QStringLiteral("temperature")).toDouble(&ok);
        if (!ok || !(degrees >= 0.0) || degrees > 655.35) {
            error = QStringLiteral("--temperature: expected degrees from 0 to 655.35");
            return false;
        }
        record.mcuTemperature = quint16(std::lround(degrees * 100.0));
    }
    quint32 replyDelay = quint32(options.replyDelayMs);
    quint32 downTime = quint32(options.restartDownTimeMs);
    constexpr quint64 kMaxMs = 3600 * 1000;
    constexpr int kMaxRecordSize = 4096;
    if (!readUnsigned(parser, "udisk-dir", 255, record.udiskDirection, error) ||
        !readUnsigned(parser, "mouse-auto-move", 1, record.mouseAutoMove, error) ||
        !readUnsigned(parser, "firmware-version", 0xFFFF, record.firmwareVersion, error) ||
        !readUnsigned(parser, "hardware-version", 0xFFFF, record.hardwareVersion, error) ||
        !readUnsigned(parser, "bootloader-version", 0xFFFF, record.bootloaderVersion, error) ||
        !readUnsigned(parser, "mouse-mode", 255, record.mouseMode, error) ||
        !readUnsigned(parser, "wheel-direction", 255, record.wheelDirection, error) ||
        !readUnsigned(parser, "sensitivity", 255, record.mouseSensitivity, error) ||
        !readUnsigned(parser, "run-state", 255, record.runState, error) ||
        !readUnsigned(parser, "app-count", 0xFFFF, record.imageAppCount, error) ||
        !readUnsigned(parser, "image-size", 0xFFFFFFFF, record.imageTotalSize, error) ||
        !readUnsigned(parser, "image-crc", 0xFFFFFFFF, record.imageCrc, error) ||
        !readUnsigned(parser, "reply-code", 255, options.replyCode, error) ||
        !readUnsigned(parser, "reply-delay-ms", kMaxMs, replyDelay, error) ||
        !readUnsigned(parser, "restart-downtime-ms", kMaxMs, downTime, error) ||
        !readUnsigned(parser, "hangup-after-bytes", quint64(1) << 48, options.hangupAfterBytes,
                      error) ||
        !readUnsigned(parser, "cut-reply-after-bytes", quint64(1) << 48, options.cutReplyAfterBytes,
                      error) ||
        !readUnsigned(parser, "record-size", kMaxRecordSize, options.recordSize, error)) {
        return false;
    }
    if (options.recordSize < DeviceInfoLayout::RecordSize) {
        error = QStringLiteral("--record-size: expected a number from %1 to %2")
                    .arg(DeviceInfoLayout::RecordSize)
                    .arg(kMaxRecordSize);
        return false;
    }
    if (!readTargetOptions(parser, options, error))
        return false;
    options.replyDelayMs = int(replyDelay);
    options.restartDownTimeMs = int(downTime);
    options.noReplies = parser.isSet(QStringLiteral("no-replies"));
    options.corruptChecksums = parser.isSet(QStringLiteral("corrupt-checksums"));
    options.garbageBetween = parser.isSet(QStringLiteral("garbage-between"));
    options.seed = QRandomGenerator::global()->generate();
    return readUnsigned(parser, "seed", 0xFFFFFFFF, options.seed, error);
}
