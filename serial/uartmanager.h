#pragma once

#include <QCoreApplication>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include "serial/portrules.h"

class DeviceUartManager;
class QSerialPortInfo;

// Process-wide entry to the serial side: lists the ports that can be a box, finds the box's
// own port by its "TK CDC" description, and owns one link per box (keyed by DID).
// GUI thread only.
class UartManager : public QObject
{
    Q_OBJECT
public:
    static UartManager *instance();
    ~UartManager() override;

    // The box's link, created (with its stored settings loaded, not opened) on first request.
    // Never null; callers never pass an empty DID.
    DeviceUartManager *getDeviceUartManager(const QString &did);
    // Forgets the box's link and closes its port at once; the object itself is deleted from
    // the event loop, so this may be called from the link's own signals. A later request for
    // the DID gets a new link.
    void removeDeviceUartManager(const QString &did);
    // Closes and deletes every link. Runs by itself when the application is about to quit and
    // when the application object is destroyed, so no link outlives the application object.
    void removeAllDeviceUartManagers();

    // Fills the list of ports taken at start-up (synchronous; a late result is discarded).
    void preloadSerialPorts();
    QStringList preloadedSerialPorts() const { return m_preloadedPorts; }

    // Display items of the qualifying ports, in enumeration order; empty when the enumeration
    // took longer than 5000 ms.
    QStringList getAvailableSerialPorts();
    // Pure name of the first qualifying port whose item contains "TK CDC" (any case), or "".
    QString findFirstTkCdcPortName();

    static bool isValidSerialPortName(const QString &name);
    static QString formatPortDisplayName(const QSerialPortInfo &info);
    static QString purePortNameFromDisplayItem(const QString &item);

    // Display items of the qualifying ports among `ports` (pure, for tests and callers that
    // already hold an enumeration); logs each decision.
    static QStringList qualifyingDisplayItems(const QList<SerialPortEntry> &ports,
                                              PortPlatform platform);

signals:
    // Some box's link opened or reopened (DeviceUartManager::linkOpened of every link), so a
    // view can follow whichever box it shows without holding on to a link.
    void linkOpened(const QString &deviceDid);

private:
    UartManager();
    void followApplicationEnd();

    QMap<QString, DeviceUartManager *> m_devices;
    QStringList m_preloadedPorts;
    QPointer<QCoreApplication> m_followedApplication;
};
