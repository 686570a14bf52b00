#include "serial/uartmanager.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QSerialPortInfo>

#include <exception>
#include <utility>

#include "serial/deviceuartmanager.h"
#include "serial/portinventory.h"

namespace {

constexpr qint64 kEnumerationLimitMs = 5000;

QString platformTag(PortPlatform platform)
{
    return platform == PortPlatform::MacOS ? QStringLiteral("[macOS]") : QStringLiteral("[Linux]");
}

} // namespace

UartManager *UartManager::instance()
{
    static UartManager manager;
    return &manager;
}

UartManager::UartManager()
{
    qDebug() << "[UartManager] 全局UART管理器已创建";
    followApplicationEnd();
}

UartManager::~UartManager()
{
    // Normally empty by now (see followApplicationEnd); what is left closes here.
    qDeleteAll(m_devices);
    m_devices.clear();
    qDebug() << "[UartManager] 全局UART管理器已销毁";
}

void UartManager::followApplicationEnd()
{
    // The registry lives until static destruction, long after the application object, the
    // event dispatcher and the log handler are gone: its links are torn down while they exist.
    // aboutToQuit is emitted only when the event loop ran; the post routine also covers an
    // application object destroyed without it.
    QCoreApplication *app = QCoreApplication::instance();
    if (!app || m_followedApplication == app)
        return;
    m_followedApplication = app;
    connect(app, &QCoreApplication::aboutToQuit, this, &UartManager::removeAllDeviceUartManagers);
    qAddPostRoutine([] { UartManager::instance()->removeAllDeviceUartManagers(); });
}

void UartManager::removeAllDeviceUartManagers()
{
    if (m_devices.isEmpty())
        return;
    qDebug() << "[UartManager] 应用退出，移除全部设备UART管理器，数量:" << m_devices.size();
    // Deleted at once: the event loop that would run a deferred deletion has ended.
    const QMap<QString, DeviceUartManager *> links = std::exchange(m_devices, {});
    qDeleteAll(links);
}

DeviceUartManager *UartManager::getDeviceUartManager(const QString &did)
{
    if (DeviceUartManager *existing = m_devices.value(did))
        return existing;
    followApplicationEnd(); // the registry may have been created before the application object
    auto *link = new DeviceUartManager(did, this);
    connect(link, &DeviceUartManager::linkOpened, this, &UartManager::linkOpened);
    m_devices.insert(did, link);
    qDebug().noquote() << "[UartManager] 创建新的设备UART管理器，设备ID:" << did;
    link->loadUartConfigFromDb();
    return link;
}

void UartManager::removeDeviceUartManager(const QString &did)
{
    DeviceUartManager *link = m_devices.take(did);
    if (!link)
        return;
    // The call may come from one of the link's own signals, with its handler still on the
    // stack: let go of the port now, so that a new link for the box can open it, and delete the
    // object once control is back in the event loop.
    link->forceCloseSerialPort();
    link->deleteLater();
    qDebug().noquote() << "[UartManager] 移除设备UART管理器，设备ID:" << did;
}

QStringList UartManager::qualifyingDisplayItems(const QList<SerialPortEntry> &ports,
                                                PortPlatform platform)
{
    const QString tag = platformTag(platform);
    QStringList items;
    for (const SerialPortEntry &port : ports) {
        if (port.declared || portNameQualifies(port.name, platform)) {
            const QString item = formatPortDisplayItem(port);
            items << item;
            qDebug().noquote() << "[UartManager]" << tag << "找到符合条件的串口:" << item;
        } else {
            qDebug().noquote() << "[UartManager]" << tag << "跳过不符合条件的串口:" << port.name
                               << "描述:" << port.description;
        }
    }
    if (items.isEmpty()) {
        if (platform == PortPlatform::MacOS)
            qDebug().noquote() << "[UartManager] [macOS] 未找到符合条件的串口（需要 tty.* 或 cu.* "
                                  "开头，且包含 usbserial 或 usbmodem）";
        else
            qDebug().noquote()
                << "[UartManager] [Linux] 未找到符合条件的串口（需要 ttyACM* 或 ttyUSB* 开头）";
    }
    return items;
}

QStringList UartManager::getAvailableSerialPorts()
{
    QStringList items;
    try {
        QElapsedTimer timer;
        timer.start();
        const QList<SerialPortEntry> ports = enumerateSerialPorts();
        if (timer.elapsed() > kEnumerationLimitMs) {
            qWarning() << "[UartManager] 获取串口列表超时，可能系统串口服务异常";
            return {};
        }
        items = qualifyingDisplayItems(ports, currentPortPlatform());
    } catch (const std::exception &e) {
        qWarning().noquote() << "[UartManager] 获取串口列表时发生异常:" << e.what();
    } catch (...) {
        qWarning() << "[UartManager] 获取串口列表时发生未知异常";
    }
    return items;
}

void UartManager::preloadSerialPorts()
{
    qDebug() << "[UartManager] 开始预加载串口列表...";
    try {
        QElapsedTimer timer;
        timer.start();
        m_preloadedPorts = getAvailableSerialPorts();
        if (timer.elapsed() <= kEnumerationLimitMs) {
            qDebug() << "[UartManager] 串口列表预加载完成，共找到" << m_preloadedPorts.size()
                     << "个串口";
        } else {
            qWarning() << "[UartManager] 预加载串口列表超时";
            m_preloadedPorts.clear();
        }
    } catch (const std::exception &e) {
        qWarning().noquote() << "[UartManager] 预加载串口列表时发生异常:" << e.what();
        m_preloadedPorts.clear();
    } catch (...) {
        qWarning() << "[UartManager] 预加载串口列表时发生未知异常";
        m_preloadedPorts.clear();
    }
}

QString UartManager::findFirstTkCdcPortName()
{
    return firstTkCdcPortName(getAvailableSerialPorts());
}

bool UartManager::isValidSerialPortName(const QString &name)
{
    return isValidSerialPortNameHere(name);
}

QString UartManager::formatPortDisplayName(const QSerialPortInfo &info)
{
    SerialPortEntry port;
    port.name = info.portName();
    port.description = info.description();
    port.manufacturer = info.manufacturer();
    port.serialNumber = info.serialNumber();
    if (currentPortPlatform() == PortPlatform::Linux)
        port.interfaceName = ttyInterfaceName(QStringLiteral("/sys"), info.portName());
    return formatPortDisplayItem(port);
}

QString UartManager::purePortNameFromDisplayItem(const QString &item)
{
    return ::purePortNameFromDisplayItem(item);
}
