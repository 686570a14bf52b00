#include "serial/deviceuartmanager.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QTimer>
#include <QVariantMap>

#include <exception>

#include "db/dbmanager.h"
#include "protocol/tkprotocol.h"
#include "serial/portinventory.h"

namespace {

constexpr qint64 kSlowOpenMs = 2000;
constexpr int kInfoRequestDelayMs = 100;
constexpr qint64 kReadBufferSize = 4096;
// Bound of the receive buffer. The longest reply is the information record, 134 bytes (155 as
// a packet); 1024 payload bytes leave room for longer records of later firmware and match what
// the box itself accepts in a vendor packet. A header announcing more cannot start a reply:
// it is skipped at once instead of holding back every reply behind it until that many bytes
// arrive, so after parsing the buffer never holds more than one packet of this size.
constexpr quint32 kMaxReplyPayload = 1024;

// Clears a flag on every exit path of the open.
struct FlagGuard
{
    bool &flag;
    explicit FlagGuard(bool &f) : flag(f) { flag = true; }
    ~FlagGuard() { flag = false; }
};

bool isEnumeratedNow(const QString &portName)
{
    const QString wanted = portName.trimmed().toUpper();
    const QList<SerialPortEntry> ports = enumerateSerialPorts();
    for (const SerialPortEntry &port : ports) {
        if (port.name.trimmed().toUpper() == wanted)
            return true;
    }
    return false;
}

DeviceUartManager::WatchTiming g_watchTiming;

} // namespace

void DeviceUartManager::setWatchTiming(const WatchTiming &timing)
{
    g_watchTiming = timing;
}

DeviceUartManager::WatchTiming DeviceUartManager::watchTiming()
{
    return g_watchTiming;
}

DeviceUartManager::DeviceUartManager(const QString &deviceId, QObject *parent)
    : QObject(parent), m_deviceId(deviceId), m_statusText(QStringLiteral("未连接"))
{
    qDebug().noquote() << "[DeviceUartManager] 创建设备UART管理器，设备ID:" << m_deviceId;
    m_heartbeatTimer = new QTimer(this);
    connect(m_heartbeatTimer, &QTimer::timeout, this, &DeviceUartManager::onHeartbeat);
    m_reopenTimer = new QTimer(this);
    m_reopenTimer->setSingleShot(true);
    connect(m_reopenTimer, &QTimer::timeout, this, &DeviceUartManager::tryReopen);
}

DeviceUartManager::~DeviceUartManager()
{
    forceCloseSerialPort();
    qDebug().noquote() << "[DeviceUartManager] 设备UART管理器已销毁，设备ID:" << m_deviceId;
}

bool DeviceUartManager::isValidSerialPortName(const QString &name)
{
    return isValidSerialPortNameHere(name);
}

QString DeviceUartManager::pendingCommandName(int command)
{
    switch (command) {
    case PendingUdiskSet:
        return QStringLiteral("UDISK_SET");
    case PendingMouseAutoMove:
        return QStringLiteral("MOUSE_AUTO_MOVE_SET");
    case PendingRestart:
        return QStringLiteral("ACT_SET");
    default:
        return QString();
    }
}

void DeviceUartManager::createPortObject()
{
    m_serialPort = new QSerialPort(this);
    connect(m_serialPort, &QSerialPort::errorOccurred, this,
            &DeviceUartManager::handleSerialPortError);
    connect(m_serialPort, &QSerialPort::readyRead, this,
            &DeviceUartManager::handleSerialDataReceived);
}

QString DeviceUartManager::portErrorText(const QString &emptyFallback) const
{
    if (!m_serialPort)
        return QStringLiteral("未知错误");
    const QString text = m_serialPort->errorString();
    return text.isEmpty() ? emptyFallback : text;
}

bool DeviceUartManager::openSerialPort(const QString &portName, int baudRate)
{
    qDebug().noquote() << "[DeviceUartManager] 尝试打开串口:" << portName << "波特率:" << baudRate
                       << "设备ID:" << m_deviceId;
    if (m_opening) {
        qWarning().noquote() << "[DeviceUartManager] openSerialPort 重入，跳过本次请求。设备ID:"
                             << m_deviceId << "port:" << portName;
        return m_serialPort && m_serialPort->isOpen();
    }
    FlagGuard opening(m_opening);

    if (portName.isEmpty()) {
        qDebug() << "[DeviceUartManager] 错误: 串口名称为空";
        updateStatus(false, QStringLiteral("串口名称为空"));
        return false;
    }
    if (!isEnumeratedNow(portName)) {
        qWarning().noquote() << "[DeviceUartManager] 串口当前未枚举到，跳过打开(可能刚插拔):"
                             << portName << m_deviceId;
        updateStatus(false, QStringLiteral("串口%1未就绪").arg(portName));
        return false;
    }
    if (baudRate <= 0) {
        qDebug().noquote() << "[DeviceUartManager] 警告: 无效波特率" << baudRate << "，使用默认 2M";
        baudRate = kDefaultBaudRate;
    }
    if (m_serialPort && m_serialPort->isOpen()) {
        if (m_portName == portName && m_baudRate == baudRate) {
            qDebug() << "[DeviceUartManager] 串口已打开且配置相同，无需重新打开";
            return true;
        }
        qDebug() << "[DeviceUartManager] 串口配置发生变化，关闭现有串口后重新打开";
        // The new settings replace the session being watched, also when they fail to open.
        stopWatching();
        m_serialPort->close();
        qDebug().noquote() << "[DeviceUartManager] 串口已关闭:" << m_portName << m_deviceId;
    }
    if (!m_serialPort)
        createPortObject();
    return openWithLineSettings(portName, baudRate);
}

bool DeviceUartManager::openWithLineSettings(const QString &portName, int baudRate)
{
    m_serialPort->setPortName(portName);
    m_serialPort->setBaudRate(baudRate, QSerialPort::AllDirections);
    m_serialPort->setDataBits(QSerialPort::Data8);
    m_serialPort->setParity(QSerialPort::NoParity);
    m_serialPort->setStopBits(QSerialPort::OneStop);
    m_serialPort->setFlowControl(QSerialPort::NoFlowControl);
    m_serialPort->setReadBufferSize(kReadBufferSize);

    QElapsedTimer timer;
    timer.start();
    const bool opened = m_serialPort->open(QIODevice::ReadWrite);
    const qint64 elapsed = timer.elapsed();

    if (!opened) {
        if (elapsed > kSlowOpenMs)
            qWarning().noquote() << "[DeviceUartManager] 串口打开超时:" << portName
                                 << "耗时:" << elapsed << "ms";
        const QString error = portErrorText(QStringLiteral("串口打开失败"));
        qDebug().noquote() << "[DeviceUartManager] 串口打开失败:" << error << "耗时:" << elapsed
                           << "ms"
                           << "设备ID:" << m_deviceId;
        updateStatus(false, QStringLiteral("串口%1打开失败: %2").arg(portName, error));
        return false;
    }

    qDebug().noquote() << "[DeviceUartManager] 串口打开成功:" << portName << "耗时:" << elapsed
                       << "ms"
                       << "设备ID:" << m_deviceId;
    m_portName = portName;
    m_baudRate = baudRate;
    // Bytes of an earlier session (a reply cut by a hang-up) would prefix this one's stream.
    m_receiveBuffer.clear();
    sendHelloMessage();
    updateStatus(true, QStringLiteral("串口%1已连接").arg(portName));
    QTimer::singleShot(kInfoRequestDelayMs, this, &DeviceUartManager::sendDeviceInfoRequest);
    startWatching();
    emit linkOpened(m_deviceId);
    // A slot may have closed the link again.
    return isPortOpen();
}

bool DeviceUartManager::tryOpenSerialPort(const QString &portName, int baudRate)
{
    if (portName.isEmpty()) {
        qDebug() << "[DeviceUartManager] 错误: 串口名称为空";
        updateStatus(false, QStringLiteral("串口名称为空"));
        return false;
    }
    try {
        createPortObject();
        return openWithLineSettings(portName, baudRate);
    } catch (const std::exception &e) {
        qWarning().noquote() << "[DeviceUartManager] tryOpenSerialPort异常:" << e.what();
        updateStatus(
            false,
            QStringLiteral("串口%1打开异常: %2").arg(portName, QString::fromLocal8Bit(e.what())));
    } catch (...) {
        qWarning().noquote() << "[DeviceUartManager] tryOpenSerialPort发生未知异常，设备ID:"
                             << m_deviceId;
        updateStatus(false, QStringLiteral("串口%1打开发生未知异常").arg(portName));
    }
    return false;
}

void DeviceUartManager::closeSerialPort()
{
    stopWatching();
    if (m_serialPort && m_serialPort->isOpen()) {
        m_serialPort->close();
        qDebug().noquote() << "[DeviceUartManager] 串口已关闭:" << m_portName << m_deviceId;
    }
    updateStatus(false, QStringLiteral("串口已断开"));
}

void DeviceUartManager::forceCloseSerialPort()
{
    stopWatching();
    releasePort();
}

void DeviceUartManager::releasePort()
{
    if (QSerialPort *port = m_serialPort) {
        m_serialPort = nullptr;
        disconnect(port, nullptr, this, nullptr);
        if (port->isOpen()) {
            port->close();
            qDebug().noquote() << "[DeviceUartManager] 串口已强制关闭:" << m_portName
                               << "设备ID:" << m_deviceId;
        }
        // Deleting the port inside its own signal or under a running open would pull the
        // object from under its caller.
        if (m_opening || sender() == port) {
            port->deleteLater();
            qDebug().noquote() << "[DeviceUartManager] 串口对象延迟删除(重入保护)，设备ID:"
                               << m_deviceId;
        } else {
            delete port;
            qDebug().noquote() << "[DeviceUartManager] 串口对象已删除，设备ID:" << m_deviceId;
        }
    }
    updateStatus(false, QStringLiteral("串口已断开"));
}

void DeviceUartManager::handleSerialPortError(QSerialPort::SerialPortError error)
{
    if (error == QSerialPort::NoError)
        return;
    const QString text = portErrorText(QStringLiteral("串口错误"));
    qDebug().noquote() << "[DeviceUartManager] 串口错误:" << int(error) << text
                       << "设备ID:" << m_deviceId;
    updateStatus(false, QStringLiteral("串口错误: %1").arg(text));
    // A vanished device keeps reporting errors while the port stays open: close it for good.
    // Inside an open (also a reopen) the open's own failure path follows.
    if (m_opening) {
        if (m_serialPort && m_serialPort->isOpen())
            m_serialPort->close();
        return;
    }
    const bool wasOpen = isPortOpen();
    releasePort();
    if (wasOpen && m_reopenWanted)
        loseLink(QStringLiteral("串口%1已断开，等待设备重新连接").arg(m_portName));
}

qint64 DeviceUartManager::writeToPort(const QByteArray &data)
{
    const qint64 written = m_serialPort->write(data);
    if (m_serialPort) // an error signal from inside the write may have released the port
        m_serialPort->flush();
    if (written < data.size())
        qDebug().noquote() << "[DeviceUartManager] Warning: data send incomplete, expected:"
                           << data.size() << "actual:" << written << "device ID:" << m_deviceId;
    return written;
}

bool DeviceUartManager::sendData(const QByteArray &data)
{
    if (!m_serialPort || !m_serialPort->isOpen())
        return false;
    const bool sent = writeToPort(data) > 0;
    if (sent)
        m_lastTraffic.restart();
    return sent;
}

void DeviceUartManager::sendHelloMessage()
{
    if (!m_serialPort || !m_serialPort->isOpen()) {
        qDebug().noquote() << "[DeviceUartManager] 串口未打开，无法发送hello消息，设备ID:"
                           << m_deviceId;
        return;
    }
    const qint64 written = m_serialPort->write("hello", 5);
    if (written == 5)
        qDebug().noquote() << "[DeviceUartManager] hello消息发送成功（异步），字节数:" << written
                           << m_deviceId;
    else
        qDebug().noquote() << "[DeviceUartManager] hello消息发送失败，已发送:" << written
                           << "总长度:" << 5 << m_deviceId;
}

void DeviceUartManager::sendSetCommand(PendingCommand command, const QByteArray &packet,
                                       const char *failureLog)
{
    m_pendingCommand = command;
    if (!packet.isEmpty() && sendData(packet))
        return;
    m_pendingCommand = PendingNone;
    qWarning().noquote() << failureLog << m_deviceId;
}

void DeviceUartManager::sendUdiskSetDirection(quint8 direction)
{
    sendSetCommand(PendingUdiskSet, TkProtocol::createUdiskSetPacket(direction, 0),
                   "[DeviceUartManager] sendUdiskSetDirection 发送失败 deviceId:");
}

void DeviceUartManager::sendMouseAutoMoveSet(bool enable)
{
    sendSetCommand(PendingMouseAutoMove, TkProtocol::createMouseAutoMoveSetPacket(enable, 0),
                   "[DeviceUartManager] sendMouseAutoMoveSet 发送失败 deviceId:");
}

void DeviceUartManager::sendDeviceRestart()
{
    sendSetCommand(PendingRestart, TkProtocol::createDeviceRestartPacket(0),
                   "[DeviceUartManager] sendDeviceRestart 发送失败 deviceId:");
}

void DeviceUartManager::sendDeviceInfoRequest()
{
    if (!m_serialPort || !m_serialPort->isOpen()) {
        qDebug().noquote() << "[DeviceUartManager] sendDeviceInfoRequest 跳过：串口未打开 deviceId:"
                           << m_deviceId;
        return;
    }
    const QByteArray packet = TkProtocol::createDeviceInfoQueryPacket(0);
    if (packet.isEmpty())
        return;
    if (sendData(packet)) {
        ++m_programInfoRequests;
        qDebug().noquote() << "[DeviceUartManager] 已发送设备信息查询请求 deviceId:" << m_deviceId;
    } else {
        qWarning().noquote() << "[DeviceUartManager] 发送设备信息查询失败 deviceId:" << m_deviceId;
    }
}

void DeviceUartManager::handleSerialDataReceived()
{
    if (!m_serialPort || !m_serialPort->isOpen())
        return;
    const QByteArray bytes = m_serialPort->readAll();
    if (bytes.isEmpty())
        return;
    m_receiveBuffer.append(bytes);

    TkPacket packet;
    while (TkProtocol::tryConsumeOnePacket(m_receiveBuffer, packet, kMaxReplyPayload)) {
        if (packet.channel != 1)
            continue;
        // Any reply shows the box alive.
        m_boxHasAnswered = true;
        m_heartbeatAwaited = false;
        m_missedHeartbeats = 0;
        m_lastTraffic.restart();
        if (packet.command == TkProtocol::ReplyGeneral) {
            const quint8 code = packet.payload.isEmpty() ? 255 : quint8(packet.payload.at(0));
            const QString origin = pendingCommandName(m_pendingCommand);
            m_pendingCommand = PendingNone;
            qDebug().noquote() << "[DeviceUartManager] 通用应答 rsp_code:" << code
                               << "origin:" << origin << "deviceId:" << m_deviceId;
            emit deviceGeneralReply(m_deviceId, code, origin);
        } else if (packet.command == TkProtocol::ReplyDeviceInfo) {
            TkProtocol::updateGlobalDeviceInfoCache(packet.payload);
            // Replies come in the order of the requests; without a request of the program's
            // outstanding this one answers the heartbeat, which keeps the cache fresh silently
            // (no record in the log every few seconds, no signal for views to react to).
            if (m_programInfoRequests == 0 && m_heartbeatInfoRequests > 0) {
                --m_heartbeatInfoRequests;
                continue;
            }
            m_programInfoRequests = qMax(0, m_programInfoRequests - 1);
            qDebug().noquote() << QStringLiteral("[DeviceInfo] 设备 %1 信息:\n%2")
                                      .arg(m_deviceId,
                                           TkProtocol::formatDeviceInfoPayload(packet.payload));
            emit deviceInfoPayloadReceived(m_deviceId, packet.payload);
        }
        // The slots above may have closed the link.
        if (!m_serialPort)
            return;
    }
}

void DeviceUartManager::startWatching()
{
    const WatchTiming timing = watchTiming();
    m_reopenWanted = true;
    m_reopenTimer->stop();
    m_failedReopens = 0;
    m_heartbeatAwaited = false;
    m_missedHeartbeats = 0;
    m_programInfoRequests = 0;
    m_heartbeatInfoRequests = 0;
    m_lastTraffic.restart();
    m_heartbeatTimer->start(qMax(1, timing.heartbeatIntervalMs));
}

void DeviceUartManager::stopWatching()
{
    m_reopenWanted = false;
    m_heartbeatTimer->stop();
    m_reopenTimer->stop();
}

void DeviceUartManager::onHeartbeat()
{
    if (!isPortOpen()) {
        m_heartbeatTimer->stop();
        return;
    }
    const WatchTiming timing = watchTiming();
    m_heartbeatTimer->setInterval(qMax(1, timing.heartbeatIntervalMs)); // follows a new timing
    if (m_heartbeatAwaited) {
        ++m_missedHeartbeats;
        qDebug().noquote() << "[DeviceUartManager] 心跳未应答，连续次数:" << m_missedHeartbeats
                           << "设备ID:" << m_deviceId;
        if (m_missedHeartbeats >= timing.missedHeartbeatLimit) {
            if (m_boxHasAnswered) {
                qWarning().noquote()
                    << QStringLiteral("[DeviceUartManager] 设备连续%1次未应答心跳，判定链路断开，"
                                      "串口:")
                           .arg(m_missedHeartbeats)
                    << m_portName << "设备ID:" << m_deviceId;
                loseLink(QStringLiteral("串口%1无应答，等待设备重新连接").arg(m_portName));
            } else {
                // Firmware without the vendor protocol never answers: its silence tells
                // nothing, and dropping its link would only interrupt the keyboard.
                qDebug().noquote()
                    << "[DeviceUartManager] 设备从未应答信息查询，停止心跳，设备ID:" << m_deviceId;
                m_heartbeatTimer->stop();
            }
            return;
        }
    } else if (m_lastTraffic.elapsed() < timing.heartbeatIntervalMs) {
        return; // frames or replies went by lately: nothing to ask
    }
    const QByteArray packet = TkProtocol::createDeviceInfoQueryPacket(0);
    if (writeToPort(packet) > 0) {
        ++m_heartbeatInfoRequests;
        m_heartbeatAwaited = true;
    }
}

void DeviceUartManager::loseLink(const QString &status)
{
    m_heartbeatTimer->stop();
    m_heartbeatAwaited = false;
    m_missedHeartbeats = 0;
    if (m_serialPort)
        releasePort();
    updateStatus(false, status);
    qDebug().noquote() << "[DeviceUartManager] 链路已断开，等待串口重新出现后自动重连:"
                       << m_portName << "设备ID:" << m_deviceId;
    m_failedReopens = 0;
    m_reopenTimer->start(qMax(1, watchTiming().reopenPollMs));
    emit linkLost(m_deviceId);
}

void DeviceUartManager::tryReopen()
{
    if (!m_reopenWanted || isPortOpen())
        return;
    const int poll = qMax(1, watchTiming().reopenPollMs);
    // Silent while the port is away; the open itself logs every attempt.
    if (!isEnumeratedNow(m_portName)) {
        m_reopenTimer->start(poll);
        return;
    }
    qDebug().noquote() << "[DeviceUartManager] 串口已重新出现，尝试自动重连:" << m_portName
                       << "设备ID:" << m_deviceId;
    if (openSerialPort(m_portName, m_baudRate)) {
        qDebug().noquote() << "[DeviceUartManager] 链路已自动恢复:" << m_portName
                           << "设备ID:" << m_deviceId;
        return;
    }
    // A port that is there but does not open (still being set up, or held by another
    // program): try again, less often each time.
    if (!m_reopenWanted)
        return;
    m_failedReopens = qMin(m_failedReopens + 1, 5);
    m_reopenTimer->start(poll << m_failedReopens);
}

void DeviceUartManager::updateStatus(bool connected, const QString &status)
{
    qDebug().noquote() << "[DeviceUartManager] 串口状态更新:"
                       << (connected ? QStringLiteral("已连接") : QStringLiteral("已断开"))
                       << status << "设备ID:" << m_deviceId;
    m_connected = connected;
    m_statusText = status;
    if (!connected)
        TkProtocol::clearGlobalDeviceInfoCache();
}

void DeviceUartManager::loadUartConfigFromDb()
{
    if (m_deviceId.isEmpty()) {
        qDebug() << "[DeviceUartManager] 设备ID为空，无法加载串口配置";
        return;
    }
    const QVariantMap record = DBManager::instance()->getDeviceByDid(m_deviceId);
    if (record.isEmpty()) {
        qDebug().noquote()
            << "[DeviceUartManager] 数据库中未找到设备配置，设备可能尚未初始化，设备ID:"
            << m_deviceId;
        return;
    }
    const QString port = record.value(QStringLiteral("uart_port")).toString();
    const int rate = record.value(QStringLiteral("baud_rate")).toInt();
    if (port.isEmpty() || rate < 1) {
        qDebug().noquote()
            << "[DeviceUartManager] 数据库中的串口配置为空，等待用户手动设置，设备ID:"
            << m_deviceId;
        return;
    }
    qDebug().noquote() << "[DeviceUartManager] 从数据库加载串口配置:" << port << "波特率:" << rate
                       << "设备ID:" << m_deviceId;
    m_portName = port;
    m_baudRate = rate;
    qDebug().noquote() << "[DeviceUartManager] 串口配置已加载，等待用户操作或数据发送，设备ID:"
                       << m_deviceId;
}

void DeviceUartManager::saveUartConfigToDb(const QString &portName, int baudRate)
{
    if (m_deviceId.isEmpty()) {
        qDebug() << "[DeviceUartManager] 设备ID为空，无法保存配置";
        return;
    }
    if (!isValidSerialPortName(portName)) {
        qDebug().noquote() << "[DeviceUartManager] 无效的串口名称，不保存到数据库:" << portName;
        return;
    }
    QVariantMap record = DBManager::instance()->getDeviceByDid(m_deviceId);
    if (record.isEmpty())
        record.insert(QStringLiteral("did"), m_deviceId);
    record.insert(QStringLiteral("uart_port"), portName);
    record.insert(QStringLiteral("baud_rate"), baudRate);
    if (DBManager::instance()->insertOrUpdateDevice(record))
        qDebug().noquote() << "[DeviceUartManager] 串口配置已保存到数据库:" << portName
                           << "波特率:" << baudRate << "设备ID:" << m_deviceId;
    else
        qDebug().noquote() << "[DeviceUartManager] 串口配置保存到数据库失败，设备ID:" << m_deviceId;
}

void DeviceUartManager::applyConfigChange(const QString &portName, int baudRate, bool byUser)
{
    if (byUser)
        qDebug().noquote() << "[DeviceUartManager] 用户手动设置串口配置:" << portName
                           << "波特率:" << baudRate << "设备ID:" << m_deviceId;
    else
        qDebug().noquote() << "[DeviceUartManager] 更新串口配置:" << portName
                           << "波特率:" << baudRate << "设备ID:" << m_deviceId;
    if (!isValidSerialPortName(portName)) {
        if (byUser)
            qDebug().noquote() << "[DeviceUartManager] 用户选择了无效的串口名称，跳过配置更新:"
                               << portName;
        else
            qDebug().noquote() << "[DeviceUartManager] 无效的串口名称，跳过配置更新:" << portName;
        return;
    }
    if (portName == m_portName && baudRate == m_baudRate)
        return;
    saveUartConfigToDb(portName, baudRate);
    if (byUser)
        qDebug().noquote() << "[DeviceUartManager] 用户设置已保存到数据库，设备ID:" << m_deviceId;
    openSerialPort(portName, baudRate);
    emit uartConfigChanged(portName, baudRate);
}

void DeviceUartManager::updateUartConfig(const QString &portName, int baudRate)
{
    applyConfigChange(portName, baudRate, false);
}

void DeviceUartManager::updateUartConfigByUser(const QString &portName, int baudRate)
{
    applyConfigChange(portName, baudRate, true);
}
