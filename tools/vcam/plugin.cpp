// The virtual camera as a GStreamer plugin: the device provider and the element it opens.

#include <gst/gst.h>

#include "vcamprovider.h"
#include "vcamsrc.h"

#ifndef PACKAGE
#define PACKAGE "tavrokvm"
#endif

static gboolean pluginInit(GstPlugin *plugin)
{
    return gst_element_register(plugin, "tavrokvmvcamsrc", GST_RANK_NONE, TAVROKVM_TYPE_VCAM_SRC) &&
           gst_device_provider_register(plugin, "tavrokvmvcamprovider", GST_RANK_PRIMARY,
                                        TAVROKVM_TYPE_VCAM_PROVIDER);
}

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, tavrokvmvcam,
                  "TavroKVM virtual capture cameras", pluginInit, TAVROKVM_VCAM_VERSION,
                  "Proprietary", "TavroKVM", "https://tavrokvm.invalid")
