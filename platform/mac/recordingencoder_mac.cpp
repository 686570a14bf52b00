#include "platform/recordingencoder.h"

// The AVFoundation back end chooses its encoder itself.
bool installRecordingEncoder()
{
    return false;
}

QString recordingEncoderDescription()
{
    return QStringLiteral("AVFoundation (H.264)");
}

bool recordingAwaitsFirstSound()
{
    return false;
}
