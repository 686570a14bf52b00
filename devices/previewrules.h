#pragma once

#include <QByteArray>
#include <QList>

#include "console/captureformat.h"

// The preview grid's rules: which format a tile asks of its camera, when a frame is painted, when
// a stream counts as alive, the steps of the border flash, and what a slot does at a sync.

constexpr int kPreviewSlotCount = 12;
constexpr int kPreviewColumns = 4;
constexpr qint64 kPreviewPaintIntervalMs = 100;

// The rate the preview rules see: the format's maximum rate rounded half away from zero, at
// least 1.
int previewRoundedFps(const CaptureFormatDesc &format);

// Lower is better: pixels per second plus 100 000 for every frame per second away from 10.
qint64 previewFormatScore(const CaptureFormatDesc &format);

// The format a preview tile asks of its camera: small (at most 960×540, then 1280×720) and slow
// (about 10 fps), uncompressed before MJPEG. Index into `formats`; -1 when none qualifies and
// the camera keeps its default format.
int choosePreviewFormat(const QList<CaptureFormatDesc> &formats);

// When the last frame was painted: its arrival (milliseconds since the epoch, 0 = none yet) and
// its capture time as the pipeline stamped it (milliseconds of the stream, -1 = not stamped).
struct PreviewPaintClock
{
    qint64 lastPaintMs = 0;
    qint64 lastPaintFrameMs = -1;
};

// Whether a frame is painted: at most one every kPreviewPaintIntervalMs. The spacing is measured
// on the capture times when both frames carry one (a 10 fps camera's frames are 100 ms apart
// however they arrive; a stream that starts again restarts its times), else on arrival.
bool previewFrameIsPainted(const PreviewPaintClock &clock, qint64 nowMs, qint64 frameMs);

// A stream is alive while its camera runs and its last frame (0 = none yet) is at most
// `maxAgeMs` old.
bool previewStreamHealthy(bool cameraActive, qint64 lastFrameMs, qint64 nowMs, qint64 maxAgeMs);

// One 90 ms tick of the border flash, `counter` being the ticks before this one: whether the
// border is green after it, and whether the flash is over (normal border, timer stopped).
struct PreviewFlashStep
{
    bool highlighted = false;
    bool finished = false;
};
PreviewFlashStep previewFlashStep(int counter);

// What a slot of the grid does at a sync.
struct PreviewSlotState
{
    int slot = 0;
    int cameraCount = 0;
    QByteArray cameraId;          // identity of the slot's camera (the table's row `slot`)
    QByteArray boundId;           // identity the tile is bound to, empty when closed
    QByteArray mainId;            // the console's camera at the sync, empty when none
    bool mainHoldsCamera = false; // the console's camera of `cameraId` exists and is active
    bool suppressed = false;      // the tile shows the placeholder
    bool streaming = false;       // the tile's camera runs
    bool force = false;           // re-open even a running stream
};

enum class PreviewSlotAction {
    Close,    // no camera for this slot: placeholder off, tile closed
    Suppress, // the console holds the camera: placeholder on, tile's camera closed
    Keep,     // already streaming its camera
    Open,     // open the slot's camera (re-open when `reopen`)
};

struct PreviewSlotDecision
{
    PreviewSlotAction action = PreviewSlotAction::Close;
    bool reopen = false;            // Open: re-open even if bound and running
    bool changed = false;           // the tile was bound to another camera
    bool newlySuppressed = false;   // Suppress: the placeholder was not shown before
    bool suppressionLifted = false; // the placeholder was shown and goes
};

PreviewSlotDecision decidePreviewSlot(const PreviewSlotState &state);
