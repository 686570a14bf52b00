#pragma once

#include "console/tavrovideo.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"

// The serial link's watch made fast (heartbeat every 100 ms, reopen polled every 50 ms) while this
// object lives, and the view's link closed and opened again so that the timing applies. Tests that
// make the box stop answering then see the link lost and back within a second or two.
class FastLinkWatch
{
public:
    explicit FastLinkWatch(TavroVideo *view) : m_saved(DeviceUartManager::watchTiming())
    {
        DeviceUartManager::WatchTiming fast;
        fast.heartbeatIntervalMs = 100;
        fast.reopenPollMs = 50;
        DeviceUartManager::setWatchTiming(fast);
        m_link = UartManager::instance()->getDeviceUartManager(view->getCurrentDeviceDid());
        if (!m_link)
            return;
        const QString port = m_link->portName();
        const int baud = m_link->baudRate();
        view->closeSerialPort();
        m_reopened = view->openSerialPort(port, baud);
    }
    ~FastLinkWatch() { DeviceUartManager::setWatchTiming(m_saved); }
    FastLinkWatch(const FastLinkWatch &) = delete;
    FastLinkWatch &operator=(const FastLinkWatch &) = delete;

    DeviceUartManager *link() const { return m_link; }
    // The link exists and opened again with the fast timing.
    bool reopened() const { return m_reopened; }

private:
    DeviceUartManager::WatchTiming m_saved;
    DeviceUartManager *m_link = nullptr;
    bool m_reopened = false;
};
