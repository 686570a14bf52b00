#pragma once

// tavrokvmvcamsrc: the element a virtual camera opens as. A live source that offers the formats
// of its kind of camera and produces whichever one downstream settles on, at that format's rate;
// like a UVC camera it renegotiates when downstream asks for another format while running.

#include <gst/base/gstpushsrc.h>
#include <gst/gst.h>

#include "vcamscene.h"

G_BEGIN_DECLS

#define TAVROKVM_TYPE_VCAM_SRC (tavrokvm_vcam_src_get_type())
G_DECLARE_FINAL_TYPE(TavroKvmVcamSrc, tavrokvm_vcam_src, TAVROKVM, VCAM_SRC, GstPushSrc)

G_END_DECLS

// The formats a camera of this kind announces, in its order, one fixed structure each.
// Transfer full.
GstCaps *tavrokvm_vcam_caps_for_kind(vcam::Kind kind);
