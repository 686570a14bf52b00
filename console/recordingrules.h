#pragma once

#include <QDateTime>
#include <QString>

// File names and counters of screenshots and recordings.

// The time in file names: ISO 8601 local time with every ':' replaced by '-'
// (2026-11-16T18-07-05).
QString fileNameTimestamp(const QDateTime &time);

// "tavrokvm-picture-<timestamp>.png".
QString screenshotFileName(const QDateTime &time);

// "tavrokvm-video-<timestamp>-<whole seconds recorded>s.mp4"; a negative length counts as 0.
QString recordingFileName(const QDateTime &time, qint64 recordedMs);

// What the elapsed label of a running recording shows: its whole seconds plus one, so that it
// reads 1 during the first second.
int recordingElapsedLabelSeconds(qint64 elapsedMs);
