// Console view: device information and control over the vendor protocol, for the box whose
// camera is shown. The parameters dialog, the information query with its reply box, general
// replies, and the USB-disk direction.
#include "console/tavrovideo.h"

#include <QAbstractButton>
#include <QDebug>
#include <QGuiApplication>
#include <QMessageBox>
#include <QScreen>
#include <QTimer>

#include "protocol/tkprotocol.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "ui/paramcontroldialog.h"

namespace {

constexpr int kUdiskFollowUpRequestMs = 250;
constexpr int kUdiskTarget = 1;
constexpr int kUdiskHost = 2;

} // namespace

void TavroVideo::showWarning(QWidget *parent, const QString &title, const QString &text)
{
    emit operatorMessageShown(title + QStringLiteral(": ") + text);
    QMessageBox::warning(parent, title, text);
}

DeviceUartManager *TavroVideo::openLinkOrWarn(const QString &title, const QString &noDeviceText,
                                              const QString &noLinkText)
{
    if (getCurrentDeviceDid().isEmpty()) {
        showWarning(this, title, noDeviceText);
        return nullptr;
    }
    DeviceUartManager *link = currentLink();
    if (!isLinkOpen(link)) {
        showWarning(this, title, noLinkText);
        return nullptr;
    }
    return link;
}

bool TavroVideo::isDeviceUartConnected() const
{
    return isLinkOpen(currentLink());
}

int TavroVideo::cachedMouseAutoMoveState() const
{
    return TkProtocol::globalCachedMouseAutoMove();
}

void TavroVideo::refreshDeviceInfoOnce()
{
    DeviceUartManager *link = currentLink();
    if (isLinkOpen(link))
        link->sendDeviceInfoRequest();
}

bool TavroVideo::sendMouseAutoMoveCommand(bool enable)
{
    DeviceUartManager *link =
        openLinkOrWarn(tr("参数及控制"), tr("未选择视频设备。"), tr("请先连接串口。"));
    if (!link)
        return false;
    link->sendMouseAutoMoveSet(enable);
    return true;
}

bool TavroVideo::sendDeviceRestartCommand()
{
    DeviceUartManager *link =
        openLinkOrWarn(tr("参数及控制"), tr("未选择视频设备。"), tr("请先连接串口。"));
    if (!link)
        return false;
    link->sendDeviceRestart();
    return true;
}

void TavroVideo::onBtnSettingsClicked()
{
    qDebug() << "[UI] 设置按钮点击";
    if (getCurrentDeviceDid().isEmpty()) {
        showWarning(this, tr("参数及控制"), tr("请先选择视频设备。"));
        return;
    }
    loadCursorCorrectionSettingForCurrentDevice();
    auto *dialog = new ParamControlDialog(this, this);
    centerPopupWindow(dialog);
    dialog->exec();
    delete dialog;
}

// ---- Device information ------------------------------------------------------------------

void TavroVideo::cancelPendingDeviceInfoRequest()
{
    m_deviceInfoPending = false;
    if (m_deviceInfoReplyTimer) {
        m_deviceInfoReplyTimer->disconnect(this);
        m_deviceInfoReplyTimer->stop();
        m_deviceInfoReplyTimer->deleteLater();
        m_deviceInfoReplyTimer = nullptr;
    }
}

void TavroVideo::onBtnInfoClicked()
{
    qDebug() << "[UI] 信息按钮点击";
    cancelPendingDeviceInfoRequest();
    DeviceUartManager *link = openLinkOrWarn(tr("设备信息"), tr("未选择视频设备。"),
                                             tr("请先连接串口（可在鼠标设置中选择端口并打开）。"));
    if (!link)
        return;
    const QByteArray query = TkProtocol::createDeviceInfoQueryPacket(0);
    if (query.isEmpty() || !link->sendData(query)) {
        showWarning(this, tr("设备信息"), tr("发送设备信息查询失败。"));
        return;
    }
    qDebug() << "[UI] 已发送设备信息查询 (CH=1, TYPE=1)";
    m_deviceInfoPending = true;
    m_deviceInfoReplyTimer = new QTimer(this);
    m_deviceInfoReplyTimer->setSingleShot(true);
    connect(m_deviceInfoReplyTimer, &QTimer::timeout, this, [this] {
        cancelPendingDeviceInfoRequest();
        showWarning(this, tr("设备信息"), tr("等待设备回复超时，请检查串口连接与固件。"));
    });
    m_deviceInfoReplyTimer->start(m_deviceInfoTimeoutMs);
}

void TavroVideo::onDeviceInfoPayloadReceived(const QString &did, const QByteArray &payload)
{
    if (did != getCurrentDeviceDid())
        return;
    updateUdiskSwitchButtonIcon();
    emit statusBarMessageRequested(tr("设备信息获取成功"));
    if (!m_deviceInfoPending)
        return;
    cancelPendingDeviceInfoRequest();
    const QString text = TkProtocol::formatDeviceInfoPayload(payload);
    emit operatorMessageShown(tr("设备信息") + QStringLiteral(": ") + text);
    QMessageBox::information(this, tr("设备信息"), text);
}

void TavroVideo::onDeviceGeneralReply(const QString &did, quint8 code, const QString &name)
{
    if (did != getCurrentDeviceDid() || name != QLatin1String("UDISK_SET"))
        return;
    if (code != 0)
        emit statusBarMessageRequested(tr("U盘方向设置失败 (错误码: %1)").arg(code));
    else
        emit statusBarMessageRequested(tr("U盘方向设置成功"));
}

void TavroVideo::ensureUartInfoSignalConnected()
{
    DeviceUartManager *link = currentLink();
    if (m_infoSignalLink && m_infoSignalLink != link) {
        disconnect(m_infoSignalLink, &DeviceUartManager::deviceInfoPayloadReceived, this,
                   &TavroVideo::onDeviceInfoPayloadReceived);
        disconnect(m_infoSignalLink, &DeviceUartManager::deviceGeneralReply, this,
                   &TavroVideo::onDeviceGeneralReply);
    }
    m_infoSignalLink = link;
    if (!link)
        return;
    connect(link, &DeviceUartManager::deviceInfoPayloadReceived, this,
            &TavroVideo::onDeviceInfoPayloadReceived, Qt::UniqueConnection);
    connect(link, &DeviceUartManager::deviceGeneralReply, this, &TavroVideo::onDeviceGeneralReply,
            Qt::UniqueConnection);
}

// ---- USB disk ------------------------------------------------------------------------------

void TavroVideo::onBtnUdiskSwitchClicked()
{
    DeviceUartManager *link =
        openLinkOrWarn(tr("U盘切换"), tr("请先连接串口。"), tr("请先连接串口。"));
    if (!link)
        return;
    const int cached = TkProtocol::globalCachedUdiskDir();
    const int target = cached == kUdiskTarget ? kUdiskHost : kUdiskTarget;
    link->sendUdiskSetDirection(quint8(target));
    qDebug() << "[UI] 已发送 U盘方向设置, 目标值:" << target
             << "(1=Target, 2=Host), 当前缓存:" << cached;
    QPointer<DeviceUartManager> sameLink = link;
    QTimer::singleShot(kUdiskFollowUpRequestMs, this, [sameLink] {
        if (sameLink)
            sameLink->sendDeviceInfoRequest();
    });
}

void TavroVideo::updateUdiskSwitchButtonIcon()
{
    if (!m_btnUdiskSwitch)
        return;
    const bool target = TkProtocol::globalCachedUdiskDir() == kUdiskTarget;
    const QString path =
        QStringLiteral(":/images/device/%1").arg(target ? "usb-b.png" : "usb-t.png");
    const QIcon icon(path);
    if (icon.isNull())
        qWarning().noquote() << "[TavroVideo] 无法加载 U盘图标:" << path;
    m_btnUdiskSwitch->setIcon(icon);
    m_btnUdiskSwitch->setIconSize(QSize(24, 24));
    m_btnUdiskSwitch->setToolTip(target ? tr("U盘方向: Target/目标机 (点击切换为 Host)")
                                        : tr("U盘方向: Host/非目标 (点击切换为 Target)"));
}
