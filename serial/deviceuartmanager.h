#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QSerialPort>
#include <QString>

class QTimer;

// The serial link to one box (one per DID, owned by UartManager): opens the port with the
// box's line settings, greets the box, writes frames, sends vendor commands, cuts replies out
// of the received bytes and keeps a status text. While open it watches the box: an idle link
// asks for the information record now and then, and a link that loses its box (port error, or
// a box that stops answering) reopens by itself when the port is back. GUI thread only.
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

    // How every link watches its box. Read when a link opens or loses its box; tests shorten it.
    struct WatchTiming
    {
        // Idle time (nothing sent, nothing received) after which the box is asked for its
        // record. Slow enough to cost nothing (176 bytes both ways on a 2 Mbaud line), quick
        // enough that a dead box shows as disconnected within about ten seconds.
        int heartbeatIntervalMs = 2000;
        // Requests in a row left unanswered, one interval each, before the box counts as gone:
        // one lost or late reply is not enough.
        int missedHeartbeatLimit = 3;
        // How often a lost link looks for its port; an open that fails doubles the wait, up to
        // 32 times this.
        int reopenPollMs = 1000;
    };
    static void setWatchTiming(const WatchTiming &timing);
    static WatchTiming watchTiming();

    DeviceUartManager(const QString &deviceId, QObject *parent);
    ~DeviceUartManager() override;

    QSerialPort *serialPort() const { return m_serialPort; }
    bool isConnected() const { return m_connected; }
    QString statusText() const { return m_statusText; }
    QString portName() const { return m_portName; }
    int baudRate() const { return m_baudRate; }
    QString deviceId() const { return m_deviceId; }
    // The link lost its box and reopens its remembered port once it is enumerated again.
    bool isWaitingToReopen() const { return m_reopenWanted && !isPortOpen(); }

    // Opens or re-opens; true when the port is open with these settings. A port that is not
    // enumerated right now is not touched.
    bool openSerialPort(const QString &portName, int baudRate);
    bool tryOpenSerialPort(const QString &portName, int baudRate);
    // Both closes come from the program or the operator: the link stops watching its box and
    // does not reopen by itself.
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
    // A reply to a request of the program's; the heartbeat's replies only refresh the cache.
    void deviceInfoPayloadReceived(const QString &deviceDid, const QByteArray &payload);
    void deviceGeneralReply(const QString &deviceDid, quint8 rsp_code, const QString &origin);
    // The port opened and the box was greeted: the first open, a change of settings, or a
    // reopen after the box was lost. The target may have been reset meanwhile.
    void linkOpened(const QString &deviceDid);
    // The open link lost its box without being asked to close: the port failed or vanished,
    // or the box stopped answering. Status and cache are cleared before this is emitted.
    void linkLost(const QString &deviceDid);

public slots:
    void handleSerialPortError(QSerialPort::SerialPortError error);
    void handleSerialDataReceived();

private:
    bool isPortOpen() const { return m_serialPort && m_serialPort->isOpen(); }
    void createPortObject();
    bool openWithLineSettings(const QString &portName, int baudRate);
    QString portErrorText(const QString &emptyFallback) const;
    void applyConfigChange(const QString &portName, int baudRate, bool byUser);
    void sendSetCommand(PendingCommand command, const QByteArray &packet, const char *failureLog);
    qint64 writeToPort(const QByteArray &data);
    void releasePort();
    void startWatching();
    void stopWatching();
    void onHeartbeat();
    void loseLink(const QString &status);
    void tryReopen();

    QSerialPort *m_serialPort = nullptr;
    QString m_portName;
    int m_baudRate = kDefaultBaudRate;
    QByteArray m_receiveBuffer;
    const QString m_deviceId;
    bool m_connected = false;
    QString m_statusText;
    int m_pendingCommand = PendingNone;
    bool m_opening = false;

    // Watching the box.
    QTimer *m_heartbeatTimer = nullptr;
    QTimer *m_reopenTimer = nullptr;
    QElapsedTimer m_lastTraffic;     // since a frame went out or a reply came in
    bool m_heartbeatAwaited = false; // a heartbeat request went out and nothing answered yet
    int m_missedHeartbeats = 0;
    bool m_boxHasAnswered = false; // kept across reopens: only such a box is judged by silence
    bool m_reopenWanted = false;   // opened successfully and not closed by the program since
    int m_failedReopens = 0;
    // Information requests not answered yet, to tell the program's replies from the heartbeat's.
    int m_programInfoRequests = 0;
    int m_heartbeatInfoRequests = 0;
};
