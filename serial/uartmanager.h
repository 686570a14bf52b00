#pragma once

#include <QObject>
#include <QStringList>

// Process-wide entry to the serial side: port enumeration and the per-box link registry.
class UartManager : public QObject
{
    Q_OBJECT
public:
    static UartManager *instance();

    // Fills the list of ports taken at start-up (synchronous).
    void preloadSerialPorts();
    QStringList preloadedSerialPorts() const { return m_preloadedPorts; }

private:
    UartManager() = default;
    QStringList m_preloadedPorts;
};
