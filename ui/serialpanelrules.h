#pragma once

// The decisions of the serial settings panel and the device settings dialog that need no
// window: which list item a stored port selects, which baud rate an item stands for, when the
// link is reopened, how the protocol and coordinate mode are stored, and the connection hint.

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVariant>

// One entry of a port list: what it shows ("name (description)") and its item data (the name).
struct PortListItem
{
    QString text;
    QString data;
};

// Which item a stored port selects. An item whose data equals `port` wins (exact); failing that
// the first item whose pure name (text before " (") equals `port` or whose text starts with it
// (partial). index is -1 when `port` is empty or nothing matches.
struct PortItemMatch
{
    int index = -1;
    bool exact = false;
};
PortItemMatch matchPortItem(const QList<PortListItem> &items, const QString &port);

constexpr int kSerialPanelDefaultBaud = 2000000;

// The rate an item's data stands for: a positive number, or 2000000 (`fellBack` set) for
// anything else (text, zero, negative, null).
int baudRateFromItemData(const QVariant &data, bool *fellBack = nullptr);

// The link is reopened when the panel closes only if the port or the rate differs from what the
// link had when the panel opened.
bool serialLinkNeedsReopen(const QString &previousPort, int previousBaud, const QString &newPort,
                           int newBaud);

// Protocol codes: 0 CH9329 (stored "CH9329"), 1 vendor protocol (stored "TK_V1"). Coordinate
// modes: 0 absolute, 1 relative (stored "0" / "1"). A missing or unknown stored value reads as 0.
QString storedProtocolText(int protocol);
int protocolFromStored(const QVariant &stored);
QString storedCoordModeText(int coordMode);
int coordModeFromStored(const QVariant &stored);

// What the device settings dialog's hint line knows about the current box.
struct ConnectionHintFacts
{
    bool hasView = true;
    bool hasDevice = false;  // a box is chosen (its camera is open)
    QByteArray boundAudioId; // the box's manual audio binding; empty: automatic pairing
    bool portOpen = false;
    QString port; // pure name
    int baud = kSerialPanelDefaultBaud;
};
QString connectionHintText(const ConnectionHintFacts &facts);
