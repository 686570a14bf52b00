#pragma once

#include <QByteArray>
#include <QObject>
#include <QSerialPort>
#include <QString>

// The serial link to one box (one per DID, owned by UartManager): opens the port with the
// box's line settings, greets the box, writes frames, sends vendor commands, cuts replies out
// of the received bytes and keeps a status text. GUI thread only.
class DeviceUartManager : public QObject
{
    Q_OBJECT
public:
    static constexpr int kDefaultBaudRate = 2000000;

    // Which vendor set-command waits for its general reply.
    enum PendingCommand {
        PendingNone = 0,
        PendingUdiskSet = 1,
        PendingMouseAutoMove = 2,
        PendingRestart = 3
    };

    DeviceUartManager(const QString &deviceId, QObject *parent);
    ~DeviceUartManager() override;

    QSerialPort *serialPort() const { return m_serialPort; }
    bool isConnected() const { return m_connected; }
    QString statusText() const { return m_statusText; }
    QString portName() const { return m_portName; }
    int baudRate() const { return m_baudRate; }
    QString deviceId() const { return m_deviceId; }

    // Opens or re-opens; true when the port is open with these settings. A port that is not
    // enumerated right now is not touched.
    bool openSerialPort(const QString &portName, int baudRate);
    bool tryOpenSerialPort(const QString &portName, int baudRate);
    void closeSerialPort();      // keeps the port object
    void forceCloseSerialPort(); // destroys it (deferred when called from inside the port)

    static bool isValidSerialPortName(const QString &name);

    void loadUartConfigFromDb();
    void saveUartConfigToDb(const QString &portName, int baudRate);
    void updateUartConfig(const QString &portName, int baudRate);
    void updateUartConfigByUser(const QString &portName, int baudRate);

    // Raw bytes; true when at least one byte was written.
    bool sendData(const QByteArray &data);
    void sendHelloMessage();
    void sendUdiskSetDirection(quint8 direction);
    void sendMouseAutoMoveSet(bool enable);
    void sendDeviceRestart();
    void sendDeviceInfoRequest();

    // A disconnect also empties the process-wide information-record cache.
    void updateStatus(bool connected, const QString &status);

    // "UDISK_SET", "MOUSE_AUTO_MOVE_SET", "ACT_SET"; empty for anything else.
    static QString pendingCommandName(int command);

signals:
    void uartConfigChanged(const QString &portName, int baudRate);
    void deviceInfoPayloadReceived(const QString &deviceDid, const QByteArray &payload);
    void deviceGeneralReply(const QString &deviceDid, quint8 rsp_code, const QString &origin);

public slots:
    void handleSerialPortError(QSerialPort::SerialPortError error);
    void handleSerialDataReceived();

private:
    void createPortObject();
    bool openWithLineSettings(const QString &portName, int baudRate);
    QString portErrorText(const QString &emptyFallback) const;
    void applyConfigChange(const QString &portName, int baudRate, bool byUser);
    void sendSetCommand(PendingCommand command, const QByteArray &packet, const char *failureLog);

    QSerialPort *m_serialPort = nullptr;
    QString m_portName;
    int m_baudRate = kDefaultBaudRate;
    QByteArray m_receiveBuffer;
    const QString m_deviceId;
    bool m_connected = false;
    QString m_statusText;
    int m_pendingCommand = PendingNone;
    bool m_opening = false;
};
