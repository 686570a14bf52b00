#pragma once

#include <QString>

// The video encoder the multimedia back end uses for the console's recordings.
//
// Qt 6.4's GStreamer back end records through `encodebin` with a profile that names only the
// codecs: it passes no encoder settings and no input format, so the highest-ranked H.264 encoder
// runs with its own defaults (x264enc: "medium", a 40-frame look-ahead, B-frames), which cannot
// keep up with 1080p60 on two cores, and a YUY2 picture is encoded as High 4:2:2.
//
// Makes every H.264 recording of this process 4:2:0 (NV12 or I420 into the encoder, whatever the
// camera delivers) with settings for live capture. Call before a recording starts; later calls do
// nothing. False, logged, when the system offers no such control (no GStreamer, no x264enc);
// recordings then use the back end's defaults. macOS: false (the back end chooses).
bool installRecordingEncoder();

// One line for the log: what recordings are encoded with.
QString recordingEncoderDescription();

// True while the running recording has a sound branch that has not yet taken in enough sound for
// the encoder to write a frame of it (200 ms). A recording stopped in that state is written with
// an empty sound track, or one players reject, so the console waits for that much sound before it
// stops one. False when it cannot tell (macOS).
bool recordingAwaitsFirstSound();
