#pragma once

#include <QByteArray>
#include <QCameraDevice>
#include <QList>

// The toolkit's camera ids are not stable on every system (Qt 6.4 with GStreamer numbers cameras
// in the order they appear), so every place that identifies a box by its camera uses this
// identity instead: it is stable across runs and re-plugs, differs between two identical boxes,
// and for the box's camera carries "vid_a5c0" and "pid_2132" (or "pid_2131").
struct IdentifiedCamera
{
    QCameraDevice device;
    QByteArray identity;
};

// The cameras of QMediaDevices::videoInputs(), in its order, each with its identity: one entry per
// camera present. Entries the toolkit keeps for a camera that is gone, or lists twice, are left
// out (Qt 6.4 with GStreamer does both). Enumerates anew on every call: code that needs several
// identities asks once and looks them up in the list.
QList<IdentifiedCamera> identifiedVideoInputs();

// The identity of a camera of the current list; empty when it is not listed.
QByteArray cameraIdentity(const QCameraDevice &device);

// The camera of the current list with this identity; a null device when none has it.
QCameraDevice findCameraByIdentity(const QByteArray &identity);

// The same look-ups in a list already enumerated.
inline QByteArray identityIn(const QList<IdentifiedCamera> &cameras, const QCameraDevice &device)
{
    for (const IdentifiedCamera &camera : cameras) {
        if (camera.device == device)
            return camera.identity;
    }
    return QByteArray();
}

inline QCameraDevice cameraWithIdentity(const QList<IdentifiedCamera> &cameras,
                                        const QByteArray &identity)
{
    for (const IdentifiedCamera &camera : cameras) {
        if (camera.identity == identity)
            return camera.device;
    }
    return QCameraDevice();
}
