#include "serial/uartmanager.h"

UartManager *UartManager::instance()
{
    static UartManager manager;
    return &manager;
}

void UartManager::preloadSerialPorts()
{
    m_preloadedPorts.clear();
}
