// Formats arbitrary information records and checks the shape of the text and that the decoder
// and the encoder agree on every interpreted byte.
#include "protocol/deviceinfo.h"
#include "protocol/tkprotocol.h"

#include <QStringList>

#include <cstdlib>

namespace {

void check(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray record(reinterpret_cast<const char *>(data), qsizetype(size));
    const QString text = TkProtocol::formatDeviceInfoPayload(record);
    if (record.isEmpty()) {
        check(text == QStringLiteral("(无数据)"));
        return 0;
    }

    // The build time is free text from the box and may hold line feeds of its own.
    const int extraLines = int(decodeDeviceInfoRecord(record).buildTime.trimmed().count('\n'));
    const QStringList lines = text.split(QLatin1Char('\n'));
    check(lines.size() - extraLines == (record.size() >= DeviceInfoLayout::RecordSize ? 15 : 14));
    check(lines.last() == QStringLiteral("原始数据长度: %1 字节").arg(record.size()));
    check(lines.at(1).startsWith(QStringLiteral("序列号(hex): ")));
    check(lines.at(11).startsWith(QStringLiteral("编译时间: ")));

    const int dir = TkProtocol::udiskDirFromPayload(record);
    check(dir == (record.size() > 24 ? int(quint8(record[24])) : -1));
    const int autoMove = TkProtocol::mouseAutoMoveFromPayload(record);
    check(autoMove == (record.size() > 109 ? int(quint8(record[109])) : -1));

    if (record.size() >= DeviceInfoLayout::RecordSize) {
        // Re-encoding keeps every interpreted byte except the free-text build time.
        const QByteArray again = encodeDeviceInfoRecord(decodeDeviceInfoRecord(record));
        check(again.size() == DeviceInfoLayout::RecordSize);
        check(again.left(36) == record.left(36));
        check(again.mid(68, 9) == record.mid(68, 9));
        check(again.mid(109, 3) == record.mid(109, 3));
        check(again.mid(126, 8) == record.mid(126, 8));
    }
    return 0;
}
