// The serial settings panel and the device settings dialog, opened from the toolbar; the box's
// protocol and coordinate mode, which both show and store.
#include "console/tavrovideo.h"

#include <QDebug>

#include "db/dbmanager.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "ui/devicesettingsdialog.h"
#include "ui/mouse.h"
#include "ui/serialpanelrules.h"

namespace {

// Writes one column of the box's record; the record is created when the box has none yet.
bool storeDeviceColumn(const QString &did, const QString &column, const QString &value)
{
    DBManager *db = DBManager::instance();
    QVariantMap record = db->getDeviceByDid(did);
    if (record.isEmpty())
        record.insert(QStringLiteral("did"), did);
    record.insert(column, value);
    return db->insertOrUpdateDevice(record);
}

const char *connectionText(const DeviceUartManager *link)
{
    return link && link->isConnected() ? "已连接" : "已断开";
}

} // namespace

void TavroVideo::onBtnMouseClicked()
{
    if (!m_mouseControl) {
        m_mouseControl = new mouse(this);
        m_mouseControl->setObjectName(QStringLiteral("mouseControl"));
        m_mouseControl->setWindowFlags(Qt::Tool | Qt::FramelessWindowHint |
                                       Qt::WindowStaysOnTopHint);
        m_mouseControl->setAttribute(Qt::WA_TranslucentBackground);
        m_mouseControl->setAttribute(Qt::WA_ShowWithoutActivating);
        connect(m_mouseControl, &mouse::hidden, this, &TavroVideo::handleMouseDialogClosed);
    }
    if (m_mouseControl->isVisible()) {
        qDebug() << "[onBtnMouseClicked] 隐藏鼠标控制窗口";
        m_mouseControl->hide();
        return;
    }
    qDebug() << "[onBtnMouseClicked] 显示鼠标控制窗口";
    showMouseControl();
    initializeUartSystem(QString(), DeviceUartManager::kDefaultBaudRate);
    const QString did = getCurrentDeviceDid();
    if (did.isEmpty()) {
        m_mousePrevPort.clear();
        m_mousePrevBaud = 0;
        return;
    }
    const DeviceUartManager *link = UartManager::instance()->getDeviceUartManager(did);
    m_mousePrevPort = link->portName();
    m_mousePrevBaud = link->baudRate();
}

void TavroVideo::showMouseControl()
{
    if (!m_mouseControl)
        return;
    if (!m_mouseControl->isWindow()) {
        QWidget *previousParent = m_mouseControl->parentWidget();
        qDebug().noquote() << "[showMouseControl] 重置为独立窗口（从父窗口:"
                           << (previousParent ? previousParent->objectName() : QString()) << "）";
        m_mouseControl->setParent(this,
                                  Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    }
    m_mouseControl->adjustSize();
    centerPopupWindow(m_mouseControl);
    m_mouseControl->show();
    m_mouseControl->raise();
}

void TavroVideo::handleMouseDialogClosed()
{
    const QString did = getCurrentDeviceDid();
    if (did.isEmpty()) {
        qDebug() << "[MOUSE] 设备DID为空，无法处理串口配置";
        return;
    }
    DeviceUartManager *link = UartManager::instance()->getDeviceUartManager(did);
    const QString newPort = link->portName();
    const int newBaud = link->baudRate();
    qDebug().noquote().nospace() << "[MOUSE] 关闭mouse.ui，参数对比：m_mousePrevPort="
                                 << m_mousePrevPort << ", m_mousePrevBaud=" << m_mousePrevBaud
                                 << ", newPort=" << newPort << ", newBaud=" << newBaud;
    const bool reopen = serialLinkNeedsReopen(m_mousePrevPort, m_mousePrevBaud, newPort, newBaud);
    qDebug().noquote().nospace() << "[MOUSE] 是否需要重启串口: " << (reopen ? "是" : "否");
    if (reopen) {
        qDebug() << "[MOUSE] 参数变化，准备重启串口。先关闭...";
        closeSerialPort();
        qDebug() << "[MOUSE] 已关闭串口，准备重新打开...";
        if (DeviceUartManager::isValidSerialPortName(newPort)) {
            qDebug().noquote() << "[MOUSE] 打开串口:" << newPort << "波特率:" << newBaud;
            openSerialPort(newPort, newBaud);
            qDebug() << "[MOUSE] 打开串口完成，当前连接状态:" << connectionText(link);
        } else {
            qDebug().noquote() << "[MOUSE] 无效的串口名称，跳过重启:" << newPort;
        }
    } else {
        qDebug() << "[MOUSE] 参数未变，无需重启串口。";
    }
    // What is applied now is what a later close compares with.
    m_mousePrevPort = newPort;
    m_mousePrevBaud = newBaud;
    qDebug() << "[MOUSE] handleMouseDialogClosed: 退出，连接状态:" << connectionText(link);
}

void TavroVideo::showDeviceSettingsDialog()
{
    qDebug() << "[TavroVideo] showDeviceSettingsDialog 打开设备设置对话框";
    DeviceSettingsDialog dialog(window(), this);
    dialog.exec();
}

mouse *TavroVideo::mouseControl() const
{
    return m_mouseControl;
}

void TavroVideo::setCoordMode(int mode)
{
    m_coordMode = mode != 0 ? 1 : 0;
}

void TavroVideo::loadLinkModesForCurrentDevice()
{
    const QString did = getCurrentDeviceDid();
    const QVariantMap record =
        did.isEmpty() ? QVariantMap() : DBManager::instance()->getDeviceByDid(did);
    m_uartProtocol = protocolFromStored(record.value(QStringLiteral("protocol")));
    m_coordMode = coordModeFromStored(record.value(QStringLiteral("coord_mode")));
    qDebug().noquote() << "[TavroVideo] 设备协议:" << storedProtocolText(m_uartProtocol)
                       << "坐标模式:" << (m_coordMode ? "relative" : "absolute");
}

bool TavroVideo::setUartProtocolForCurrentDevice(int protocol)
{
    if (protocol != 0 && protocol != 1)
        return false;
    if (protocol != m_uartProtocol)
        setUartProtocol(protocol);
    const QString did = getCurrentDeviceDid();
    if (did.isEmpty()) {
        qDebug() << "[TavroVideo] 设备DID为空，协议未保存";
        return false;
    }
    const bool stored =
        storeDeviceColumn(did, QStringLiteral("protocol"), storedProtocolText(protocol));
    if (!stored)
        qWarning().noquote() << "[TavroVideo] 协议保存失败, DID:" << did;
    return stored;
}

bool TavroVideo::setCoordModeForCurrentDevice(int mode)
{
    setCoordMode(mode);
    const QString did = getCurrentDeviceDid();
    if (did.isEmpty()) {
        qDebug() << "[TavroVideo] 设备DID为空，坐标模式未保存";
        return false;
    }
    const bool stored =
        storeDeviceColumn(did, QStringLiteral("coord_mode"), storedCoordModeText(m_coordMode));
    if (!stored)
        qWarning().noquote() << "[TavroVideo] 坐标模式保存失败, DID:" << did;
    return stored;
}
