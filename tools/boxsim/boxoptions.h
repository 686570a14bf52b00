#pragma once

#include <QByteArray>
#include <QString>

#include "console/input/keyboardlayout.h"
#include "protocol/deviceinfo.h"
#include "targetscreen.h"

class QCommandLineParser;

// The record's defaults with the box's own serial number "TK0000000001", the USB disk on the
// target, auto-move off and 42 degrees.
DeviceInfoRecord defaultRecord();

// Everything the simulated box can be told on its command line.
struct BoxOptions
{
    QString link; // symlink made to point at the pty's slave device

    // The information record the box starts with; set-commands change its USB-disk direction
    // and auto-move switch. Fields not given on the command line keep the record's defaults.
    DeviceInfoRecord record = defaultRecord();
    // Length of the record sent; zero bytes pad it beyond the fields (firmware may add some).
    int recordSize = DeviceInfoLayout::RecordSize;

    // Behaviour and fault injection
    quint8 replyCode = 0;
    bool noReplies = false;
    int replyDelayMs = 0;
    bool corruptChecksums = false;
    bool garbageBetween = false;
    qint64 hangupAfterBytes = 0;   // 0: never
    qint64 cutReplyAfterBytes = 0; // 0: never; else the first reply is cut there, then hang-up
    int restartDownTimeMs = 500;
    quint32 seed = 1; // of the garbage bytes

    // The target computer behind the box
    int screenWidth = 1920;
    int screenHeight = 1080;
    QString screenFile; // where its screen is published for the virtual camera; empty: nowhere
    targetscreen::BorderMode borderMode = targetscreen::BorderMode::None;
    int borderLeft = 0;
    int borderTop = 0;
    // The target reads the keyboard and the mouse every N ms and sees only the latest report of
    // each; 0 takes every report at once.
    int hidPollMs = 0;
    // The target's screen reaches the camera this much later (its display and the capture chip).
    int captureDelayMs = 0;
    // The target's keyboard layout; not compiled for "us", which the target's own US table
    // decodes.
    KeyboardLayout keyboardLayout;
};

// Declares the command-line options on `parser`.
void addBoxOptions(QCommandLineParser &parser);

// Reads the options from a parser that has processed the command line. Returns false with a
// one-line `error` for a missing link or a value out of range; `options` is then incomplete.
bool readBoxOptions(const QCommandLineParser &parser, BoxOptions &options, QString &error);
