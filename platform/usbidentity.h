#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// What identifies one USB camera across runs and re-plugs.
struct UsbCameraFacts
{
    QString vendorId;  // four lower-case hex digits, "a5c0"
    QString productId; // "2132"
    QString serial;    // USB serial number; may be empty
    QString port;      // USB port path ("1-2.3"), used when there is no serial
};

// "vid_a5c0&pid_2132&sn_<serial>", or "vid_a5c0&pid_2132&port_<port>" without a serial; empty
// when vendor or product id is missing. Never contains the words the camera rules look for in
// generic devices ("usb", "video", "camera") unless the serial itself does.
QByteArray usbIdentityText(const UsbCameraFacts &facts);

// The identities of cameras present together, in their order: each one's usbIdentityText, except
// that cameras that would share one (cheap boxes ship one fixed serial) also name their USB port,
// "vid_a5c0&pid_2132&sn_<serial>&port_<port>". A box alone keeps its identity on any port.
QList<QByteArray> usbIdentityTexts(const QList<UsbCameraFacts> &cameras);

// A USB vendor or product id as the identity writes it: four lower-case hex digits. Accepts
// "a5c0", "A5C0", "0xa5c0" and short forms ("0x1d6b" -> "1d6b", "0x46d" -> "046d"); empty for
// anything else.
QString normalizedUsbId(const QString &text);

// Facts of the USB device behind a V4L2 node ("/dev/video0"), read from sysfs under `sysRoot`
// ("/sys" outside tests); empty facts when the node is not a USB device.
UsbCameraFacts usbFactsFromSysfs(const QString &deviceNode, const QString &sysRoot = "/sys");

// Identity of a camera whose USB facts are unknown: description and position ("desc#2").
QByteArray fallbackIdentityText(const QString &description, int counter);
