#include "ui/serialpanelrules.h"

#include "serial/portrules.h"

#include <QCoreApplication>

PortItemMatch matchPortItem(const QList<PortListItem> &items, const QString &port)
{
    if (port.isEmpty())
        return {};
    for (int i = 0; i < items.size(); ++i) {
        if (items[i].data == port)
            return {i, true};
    }
    for (int i = 0; i < items.size(); ++i) {
        if (purePortNameFromDisplayItem(items[i].text) == port || items[i].text.startsWith(port))
            return {i, false};
    }
    return {};
}

int baudRateFromItemData(const QVariant &data, bool *fellBack)
{
    bool ok = false;
    const int rate = data.toString().trimmed().toInt(&ok);
    const bool usable = ok && rate > 0;
    if (fellBack)
        *fellBack = !usable;
    return usable ? rate : kSerialPanelDefaultBaud;
}

bool serialLinkNeedsReopen(const QString &previousPort, int previousBaud, const QString &newPort,
                           int newBaud)
{
    return previousPort != newPort || previousBaud != newBaud;
}

QString storedProtocolText(int protocol)
{
    return protocol == 1 ? QStringLiteral("TK_V1") : QStringLiteral("CH9329");
}

int protocolFromStored(const QVariant &stored)
{
    const QString text = stored.toString().trimmed();
    if (text.compare(QLatin1String("TK_V1"), Qt::CaseInsensitive) == 0 ||
        text == QLatin1String("1"))
        return 1;
    return 0;
}

QString storedCoordModeText(int coordMode)
{
    return coordMode != 0 ? QStringLiteral("1") : QStringLiteral("0");
}

int coordModeFromStored(const QVariant &stored)
{
    const QString text = stored.toString().trimmed();
    if (text.compare(QLatin1String("relative"), Qt::CaseInsensitive) == 0)
        return 1;
    bool ok = false;
    const int mode = text.toInt(&ok);
    return ok && mode != 0 ? 1 : 0;
}

QString connectionHintText(const ConnectionHintFacts &facts)
{
    if (!facts.hasView)
        return QCoreApplication::translate("SerialPanel", "内部错误：未绑定视频模块。");
    if (!facts.hasDevice)
        return QCoreApplication::translate(
            "SerialPanel", "提示：请先选择 UVC 视频设备，以便关联输入音频与 UART。");
    const QString audio =
        facts.boundAudioId.isEmpty()
            ? QCoreApplication::translate("SerialPanel", "输入音频：顺序自动配对")
            : QCoreApplication::translate("SerialPanel", "输入音频：已手动绑定 id %1")
                  .arg(QString::fromUtf8(facts.boundAudioId));
    if (facts.portOpen)
        return QCoreApplication::translate("SerialPanel", "%1。串口：%2，波特率 %3")
            .arg(audio, facts.port, QString::number(facts.baud));
    return QCoreApplication::translate("SerialPanel",
                                       "%1。串口未连接，请在「串口设备列表」中选端口。")
        .arg(audio);
}
