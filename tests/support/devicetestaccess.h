#pragma once

// What tests may do to the device page beyond its public interface: move its clock past the
// throttles. Header-only.

#include "devices/device.h"

class DeviceTestAccess
{
public:
    static void advanceClock(device &page, qint64 ms) { page.m_clockOffsetMs += ms; }
};
