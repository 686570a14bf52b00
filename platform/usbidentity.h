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

// Facts of the USB device behind a V4L2 node ("/dev/video0"), read from sysfs under `sysRoot`
// ("/sys" outside tests); empty facts when the node is not a USB device.
UsbCameraFacts usbFactsFromSysfs(const QString &deviceNode, const QString &sysRoot = "/sys");

// Identity of a camera whose USB facts are unknown: description and position ("desc#2").
QByteArray fallbackIdentityText(const QString &description, int counter);

// Pairs each entry of `listed` (the toolkit's camera descriptions, in its order) with an entry of
// `known` (descriptions of the devices the platform knows, in the order they appeared): the n-th
// listed camera of a description takes the n-th known device of that description, wrapping
// around when the toolkit lists a device twice. -1 where no known device has the description.
QList<int> matchCamerasByDescription(const QStringList &listed, const QStringList &known);
