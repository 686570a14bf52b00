#pragma once

#include <QString>
#include <QVector>

#include "console/input/keyboardlayout.h"

// A clipboard text turned into keyboard reports for one target layout.
struct PastePlan
{
    struct Report
    {
        quint8 modifiers = 0;
        quint8 usage = 0;  // 0: every key up
        int character = 0; // characters of the text finished once this report has left
    };
    QVector<Report> reports; // a press and a release per stroke, in order
    int characters = 0;      // in the text (a "\r\n" counts once)
    int skipped = 0;         // characters the layout cannot type
    QString skippedPreview;  // the first few of them, for the log
};

// Each character becomes its strokes on `layout`, each stroke a press report then an all-up
// report, so that repeated characters are seen as separate presses. Line breaks ("\n", "\r\n",
// "\r") are Return. Characters the layout lacks are skipped and counted.
PastePlan planPaste(const QString &text, const KeyboardLayout &layout);

// Interval between paste reports, per box. A target that reads its keyboard every 8 ms (the
// slowest common USB polling of keyboards) sees a report that stays one poll period; the
// reports reach the box with some jitter (the host's timers, the USB and serial drivers), which
// can shorten one report by as much as it delays the next. Two poll periods leave a whole
// period for that jitter.
constexpr int kDefaultPasteIntervalMs = 16;
constexpr int kMaxPasteIntervalMs = 100;
