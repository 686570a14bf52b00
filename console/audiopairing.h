#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include "console/camerapreference.h"

// The audio input that carries a box's sound: nothing tells which input belongs to which camera,
// so they are paired by name, honouring an input the operator bound to the box.
struct AudioInputText
{
    QString description;
    QByteArray id;
};

struct AudioPairing
{
    enum Rule { NoRule, Bound, TkUsb3, UsbVideo };
    Rule rule = NoRule;
    // The stored binding names an input that is not listed: the rules chose instead.
    bool boundInputMissing = false;
    QList<int> candidates; // indexes into the inputs, in enumeration order
    int chosen = -1;       // index into the inputs; -1: the box runs video only
    // Several identical boxes: the camera's place among them picks the input by its place.
    bool mappedByOrder = false;
    int videoIndex = 0;
    int audioIndex = 0;
};

// Rule 1 applies to this camera: its name or id says TK, video and USB 3.
bool isTkUsb3VideoCamera(const CameraText &camera);

// `boundId` is the stored binding decoded from hexadecimal (empty when nothing is stored);
// `boxCameras` every camera listed now, for the order of identical boxes.
AudioPairing pairAudioInput(const CameraText &camera, const QList<CameraText> &boxCameras,
                            const QList<AudioInputText> &inputs, const QByteArray &boundId);

// A USB audio-class input, as the device settings list them.
bool isLikelyUsbUacAudioInput(const AudioInputText &input);
