#pragma once

// The device provider that lists the virtual cameras, class "Video/Source". Which cameras exist
// comes from TAVROKVM_VCAM_SCENE (a file re-read every 200 ms while the provider runs, so cameras
// can be plugged and unplugged) or else TAVROKVM_VCAM_DEVICES (read when the provider starts);
// with neither, one box.

#include <gst/gst.h>

G_BEGIN_DECLS

#define TAVROKVM_TYPE_VCAM_PROVIDER (tavrokvm_vcam_provider_get_type())
G_DECLARE_FINAL_TYPE(TavroKvmVcamProvider, tavrokvm_vcam_provider, TAVROKVM, VCAM_PROVIDER,
                     GstDeviceProvider)

#define TAVROKVM_TYPE_VCAM_DEVICE (tavrokvm_vcam_device_get_type())
G_DECLARE_FINAL_TYPE(TavroKvmVcamDevice, tavrokvm_vcam_device, TAVROKVM, VCAM_DEVICE, GstDevice)

G_END_DECLS

// Whether the camera of this kind and serial has been unplugged since it was last plugged in. A
// camera that is opened keeps its element; like a real one pulled out, that element then stops
// with an error instead of producing pictures of a camera that is gone.
bool tavrokvm_vcam_is_unplugged(const char *kindWord, const char *serial);
// Whether the provider's device node is plugged in now. Each camera plugged in gets a new node,
// so an element made from a device that has been unplugged never streams again, even when the
// same camera comes back (it comes back as a new device).
bool tavrokvm_vcam_node_is_plugged(int node);

// Streams running per camera, for tests that check a camera is never opened by two capture
// sessions at once. An element counts from its start (streaming begins) to its stop. When
// TAVROKVM_VCAM_HOLDERS names a file, every change rewrites it, one line per camera opened so far:
// "kind:serial@port streaming peak", peak being the most streams the camera had at one time while
// plugged (hand-made elements are "kind:serial"). A camera unplugged lets go of its streams.
void tavrokvm_vcam_stream_started(int node, const char *kindWord, const char *serial);
void tavrokvm_vcam_stream_stopped(int node, const char *kindWord, const char *serial);
