// The console's recordings with the GStreamer back end: an H.264 encoder element of this process,
// ranked above every installed one so that the back end's encodebin picks it. It is a bin:
// videoconvert → 4:2:0 caps → x264enc with settings for a live picture.
//
// It also guards the start of a recording. Qt 6.4 links the camera's tee to the recording branch
// (its capsfilter, then encodebin) before it starts encodebin; a frame that arrives in between
// meets encodebin's inactive pad, the tee hands FLUSHING back to the camera source, and the
// source's streaming stops for good: the live picture freezes. Once inside encodebin, the element
// watches encodebin's sink pads and holds the data entering each branch until the pad it feeds is
// active.
#include "platform/recordingencoder.h"

#include <QDebug>

#include <atomic>

#include <gst/gst.h>

namespace {

constexpr const char *kElementName = "tavrokvmh264enc";

// Encoder settings, measured with tavrokvm-bench-recording (NV12 1920x1080 at 60 fps, two cores,
// the live picture on the CPU path): "ultrafast" with "zerolatency" keeps the picture at 60 fps
// for about a third of one core; "superfast" and "veryfast" held the camera to 35-38 fps and
// x264enc's defaults to 27 fps. "zerolatency" also means no look-ahead and no B-frames, so no
// encoder holds dozens of full pictures in memory. Constant quality, capped at a bit rate a
// desktop picture never needs; a key frame every 2 s at 60 fps so that players seek quickly.
constexpr const char *kSpeedPreset = "ultrafast";
constexpr const char *kTune = "zerolatency";
constexpr guint kQuality = 23; // x264's constant rate factor
constexpr guint kMaxBitRateKbps = 16000;
constexpr guint kKeyFrameInterval = 120;
// How long a branch's first data waits for encodebin to start; the back end starts it right after
// linking, so this is only reached when that start fails (and the data then goes on as before).
constexpr int kBranchHoldLimitMs = 5000;
constexpr const char *kWatchedKey = "tavrokvm-branch-watch";

// The sound branches of the latest recording and whether sound entered one of them; written on
// streaming threads, read by the console.
std::atomic<int> g_soundBranches{0};
std::atomic<bool> g_soundEntered{false};
std::atomic<GstClockTime> g_soundEnteredNs{0}; // how much sound entered so far

GstStaticPadTemplate sinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-raw"));

GstStaticPadTemplate srcTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("video/x-h264, stream-format=(string){ avc, byte-stream }, "
                    "alignment=(string)au, profile=(string){ high, main, constrained-baseline }"));

} // namespace

struct TavroKvmH264Enc
{
    GstBin parent;
};

struct TavroKvmH264EncClass
{
    GstBinClass parentClass;
};

G_DEFINE_TYPE(TavroKvmH264Enc, tavrokvm_h264_enc, GST_TYPE_BIN)

namespace {

// The pad inside encodebin that data for one of its (ghost) pads reaches; a new reference.
GstPad *innermostTarget(GstPad *pad)
{
    auto *current = GST_PAD(gst_object_ref(pad));
    while (GST_IS_GHOST_PAD(current)) {
        GstPad *target = gst_ghost_pad_get_target(GST_GHOST_PAD(current));
        if (!target)
            break;
        gst_object_unref(current);
        current = target;
    }
    return current;
}

// Runs on the camera's streaming thread with the first data for a recording branch. encodebin's
// own pad is active from the start; the element behind it is not until encodebin has started.
GstPadProbeReturn holdUntilActive(GstPad *, GstPadProbeInfo *, gpointer encodeBinPad)
{
    GstPad *target = innermostTarget(GST_PAD(encodeBinPad));
    for (int waited = 0; GST_PAD_IS_FLUSHING(target) && waited < kBranchHoldLimitMs; ++waited)
        g_usleep(1000);
    gst_object_unref(target);
    return GST_PAD_PROBE_REMOVE;
}

// The back end linked its branch element (a capsfilter) to encodebin's pad; the tee is linked to
// the branch element next.
void onEncodeBinPadLinked(GstPad *encodeBinPad, GstPad *branchSrc, gpointer)
{
    GstElement *branch = gst_pad_get_parent_element(branchSrc);
    if (!branch)
        return;
    if (GstPad *entry = gst_element_get_static_pad(branch, "sink")) {
        gst_pad_add_probe(entry, GST_PAD_PROBE_TYPE_DATA_DOWNSTREAM, holdUntilActive,
                          gst_object_ref(encodeBinPad), gst_object_unref);
        gst_object_unref(entry);
    }
    gst_object_unref(branch);
}

// Sound enough for the file to get a sound track: AAC needs 1024 samples, a lone short buffer
// followed by the end of the stream gives an empty track, and sound that starts late arrives
// first as a burst timestamped in the past, which the muxer may drop; the live sound after the
// burst is kept.
constexpr GstClockTime kFirstSoundNs = 500 * GST_MSECOND;
constexpr GstClockTime kUnknownBufferNs = 10 * GST_MSECOND;

GstClockTime soundDuration(GstBuffer *buffer)
{
    const GstClockTime duration = GST_BUFFER_DURATION(buffer);
    return GST_CLOCK_TIME_IS_VALID(duration) ? duration : kUnknownBufferNs;
}

GstPadProbeReturn noteFirstSound(GstPad *, GstPadProbeInfo *info, gpointer)
{
    if (g_soundEntered)
        return GST_PAD_PROBE_REMOVE;
    GstClockTime added = 0;
    if (GstBuffer *buffer = GST_PAD_PROBE_INFO_BUFFER(info)) {
        added = soundDuration(buffer);
    } else if (GstBufferList *list = GST_PAD_PROBE_INFO_BUFFER_LIST(info)) {
        for (guint i = 0; i < gst_buffer_list_length(list); ++i)
            added += soundDuration(gst_buffer_list_get(list, i));
    }
    if (g_soundEnteredNs.fetch_add(added) + added < kFirstSoundNs)
        return GST_PAD_PROBE_OK;
    g_soundEntered = true;
    return GST_PAD_PROBE_REMOVE;
}

void watchEncodeBinPad(GstPad *pad)
{
    if (!GST_PAD_IS_SINK(pad) || g_object_get_data(G_OBJECT(pad), kWatchedKey))
        return;
    g_object_set_data(G_OBJECT(pad), kWatchedKey, GINT_TO_POINTER(1));
    g_signal_connect(pad, "linked", G_CALLBACK(onEncodeBinPadLinked), nullptr);
    if (g_str_has_prefix(GST_OBJECT_NAME(pad), "audio")) {
        ++g_soundBranches;
        gst_pad_add_probe(
            pad, GstPadProbeType(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST),
            noteFirstSound, nullptr, nullptr);
    }
}

// Every sink pad so far, not only the new one: the sound's pad may have been asked for before
// this encoder was made.
void onEncodeBinPadAdded(GstElement *encodeBin, GstPad *, gpointer)
{
    GstIterator *pads = gst_element_iterate_sink_pads(encodeBin);
    gst_iterator_foreach(
        pads,
        [](const GValue *pad, gpointer) { watchEncodeBinPad(GST_PAD(g_value_get_object(pad))); },
        nullptr);
    gst_iterator_free(pads);
}

// Runs while encodebin adds this element, under encodebin's lock: nothing here may take it.
void watchEncodeBin(GstElement *encodeBin)
{
    if (g_object_get_data(G_OBJECT(encodeBin), kWatchedKey))
        return;
    g_object_set_data(G_OBJECT(encodeBin), kWatchedKey, GINT_TO_POINTER(1));
    // A new recording: its sound branches are counted afresh.
    g_soundBranches = 0;
    g_soundEntered = false;
    g_soundEnteredNs = 0;
    g_signal_connect(encodeBin, "pad-added", G_CALLBACK(onEncodeBinPadAdded), nullptr);
}

bool isEncodeBin(GstObject *object)
{
    if (!object || !GST_IS_ELEMENT(object))
        return false;
    GstElementFactory *factory = gst_element_get_factory(GST_ELEMENT(object));
    return factory && g_strcmp0(GST_OBJECT_NAME(factory), "encodebin") == 0;
}

} // namespace

// Called when the element joins a bin (and leaves it, with no bus).
static void tavrokvm_h264_enc_set_bus(GstElement *element, GstBus *bus)
{
    GST_ELEMENT_CLASS(tavrokvm_h264_enc_parent_class)->set_bus(element, bus);
    GstObject *parent = gst_object_get_parent(GST_OBJECT(element));
    if (bus && isEncodeBin(parent))
        watchEncodeBin(GST_ELEMENT(parent));
    if (parent)
        gst_object_unref(parent);
}

static void tavrokvm_h264_enc_class_init(TavroKvmH264EncClass *klass)
{
    GstElementClass *element = GST_ELEMENT_CLASS(klass);
    element->set_bus = tavrokvm_h264_enc_set_bus;
    gst_element_class_set_static_metadata(
        element, "TavroKVM recording encoder", "Codec/Encoder/Video",
        "H.264 4:2:0 for live recordings (x264enc after a 4:2:0 conversion)", "TavroKVM");
    gst_element_class_add_static_pad_template(element, &sinkTemplate);
    gst_element_class_add_static_pad_template(element, &srcTemplate);
}

static void tavrokvm_h264_enc_init(TavroKvmH264Enc *self)
{
    GstElement *convert = gst_element_factory_make("videoconvert", "convert");
    GstElement *chroma = gst_element_factory_make("capsfilter", "chroma420");
    GstElement *encoder = gst_element_factory_make("x264enc", "x264");
    if (!convert || !chroma || !encoder) {
        // Without its pads the element cannot be linked: the recording reports the error.
        for (GstElement *element : {convert, chroma, encoder}) {
            if (element)
                gst_object_unref(gst_object_ref_sink(element));
        }
        return;
    }
    // NV12 is what x264 works in; I420 (decoded MJPEG) it takes as it is; anything else, such as
    // YUY2, is converted to one of the two instead of to a 4:2:2 format.
    GstCaps *caps = gst_caps_from_string("video/x-raw, format=(string){ NV12, I420 }");
    g_object_set(chroma, "caps", caps, nullptr);
    gst_caps_unref(caps);
    gst_util_set_object_arg(G_OBJECT(encoder), "speed-preset", kSpeedPreset);
    gst_util_set_object_arg(G_OBJECT(encoder), "tune", kTune);
    gst_util_set_object_arg(G_OBJECT(encoder), "pass", "qual");
    g_object_set(encoder, "quantizer", kQuality, "bitrate", kMaxBitRateKbps, "key-int-max",
                 kKeyFrameInterval, nullptr);

    GstBin *bin = GST_BIN(self);
    gst_bin_add_many(bin, convert, chroma, encoder, nullptr);
    if (!gst_element_link_many(convert, chroma, encoder, nullptr))
        return;
    GstPad *sink = gst_element_get_static_pad(convert, "sink");
    GstPad *src = gst_element_get_static_pad(encoder, "src");
    gst_element_add_pad(
        GST_ELEMENT(self),
        gst_ghost_pad_new_from_template("sink", sink, gst_static_pad_template_get(&sinkTemplate)));
    gst_element_add_pad(
        GST_ELEMENT(self),
        gst_ghost_pad_new_from_template("src", src, gst_static_pad_template_get(&srcTemplate)));
    gst_object_unref(sink);
    gst_object_unref(src);
}

namespace {

gboolean registerElements(GstPlugin *plugin)
{
    return gst_element_register(plugin, kElementName, GST_RANK_PRIMARY + 1,
                                tavrokvm_h264_enc_get_type());
}

bool registerOnce()
{
    if (!gst_is_initialized())
        gst_init(nullptr, nullptr);
    GstElementFactory *x264 = gst_element_factory_find("x264enc");
    if (!x264) {
        qWarning()
            << "[Recording] 未找到 x264enc（gstreamer1.0-plugins-ugly），录屏使用后端默认编码器";
        return false;
    }
    gst_object_unref(x264);
    if (!gst_plugin_register_static(GST_VERSION_MAJOR, GST_VERSION_MINOR, "tavrokvmrecording",
                                    "TavroKVM recording encoder", registerElements, "1.0",
                                    "Proprietary", "TavroKVM", "TavroKVM",
                                    "https://tavrokvm.invalid")) {
        qWarning() << "[Recording] 录屏编码器注册失败，录屏使用后端默认编码器";
        return false;
    }
    qDebug().noquote() << "[Recording] 录屏编码器:" << recordingEncoderDescription();
    return true;
}

} // namespace

bool installRecordingEncoder()
{
    static const bool installed = registerOnce();
    return installed;
}

QString recordingEncoderDescription()
{
    return QStringLiteral("%1 (H.264 4:2:0, x264enc speed-preset=%2 tune=%3 crf=%4 "
                          "max %5 kbit/s, key-int-max=%6)")
        .arg(QLatin1String(kElementName), QLatin1String(kSpeedPreset), QLatin1String(kTune))
        .arg(kQuality)
        .arg(kMaxBitRateKbps)
        .arg(kKeyFrameInterval);
}

bool recordingAwaitsFirstSound()
{
    return g_soundBranches > 0 && !g_soundEntered;
}
