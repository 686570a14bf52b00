#include "vcamsrc.h"

#include <gst/video/video.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "targetscreen.h"
#include "vcamdesktop.h"
#include "vcamjpeg.h"
#include "vcampicture.h"
#include "vcamprovider.h"

GST_DEBUG_CATEGORY_STATIC(vcam_src_debug);
#define GST_CAT_DEFAULT vcam_src_debug

namespace {

constexpr int kJpegQuality = 80;

// Used by the streaming thread (negotiation and frames); start and stop run while it is not
// running. `negotiated` and `duration` are also read by queries, under the object lock.
struct Stream
{
    bool negotiated = false;
    bool jpeg = false;
    GstVideoInfo info; // the raw output, or the I420 picture that is encoded
    GstClockTime duration = GST_CLOCK_TIME_NONE;
    std::vector<std::uint8_t> picture; // I420 with padded rows, for JPEG
    std::vector<std::uint8_t> encoded;
    GstClockTime offset = GST_CLOCK_TIME_NONE; // running time of tick 0
    guint64 tick = 0;                          // frame periods since offset
    guint64 frame = 0;                         // the number drawn on the picture
    bool holding = false;                      // counted as a stream of its camera
    // The simulated target whose screen this camera shows; null: the test pattern.
    std::unique_ptr<targetscreen::Reader> target;
    targetscreen::State targetState;
    // The wait for a frame's capture time, under the object lock; `flushing` between unlock and
    // unlock_stop.
    GstClockID captureWait = nullptr;
    bool flushing = false;
};

enum { PROP_0, PROP_KIND, PROP_SERIAL, PROP_NODE };

GstStaticPadTemplate srcTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("image/jpeg; video/x-raw, format=(string){ NV12, YUY2 }"));

} // namespace

struct _TavroKvmVcamSrc
{
    GstPushSrc parent;
    // Properties, under the object lock.
    vcam::Kind kind;
    gchar *serial;
    gint node; // the provider's device node this element was made for; -1 when made by hand
    GstCaps *deviceCaps;
    Stream *stream;
};

G_DEFINE_TYPE(TavroKvmVcamSrc, tavrokvm_vcam_src, GST_TYPE_PUSH_SRC)

GstCaps *tavrokvm_vcam_caps_for_kind(vcam::Kind kind)
{
    GstCaps *caps = gst_caps_new_empty();
    for (const vcam::Format &f : vcam::kindInfo(kind).formats) {
        GstStructure *s;
        if (f.type == vcam::Format::Mjpeg) {
            s = gst_structure_new("image/jpeg", "width", G_TYPE_INT, f.width, "height", G_TYPE_INT,
                                  f.height, "framerate", GST_TYPE_FRACTION, f.fps, 1, nullptr);
        } else {
            s = gst_structure_new("video/x-raw", "format", G_TYPE_STRING,
                                  f.type == vcam::Format::Nv12 ? "NV12" : "YUY2", "width",
                                  G_TYPE_INT, f.width, "height", G_TYPE_INT, f.height, "framerate",
                                  GST_TYPE_FRACTION, f.fps, 1, nullptr);
        }
        gst_caps_append_structure(caps, s);
    }
    return caps;
}

namespace {

TavroKvmVcamSrc *self(gpointer object)
{
    return TAVROKVM_VCAM_SRC(object);
}

GstCaps *getCaps(GstBaseSrc *src, GstCaps *filter)
{
    GST_OBJECT_LOCK(src);
    GstCaps *caps = gst_caps_ref(self(src)->deviceCaps);
    GST_OBJECT_UNLOCK(src);
    if (filter) {
        GstCaps *both = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(caps);
        caps = both;
    }
    return caps;
}

gboolean setCaps(GstBaseSrc *src, GstCaps *caps)
{
    Stream &st = *self(src)->stream;
    const GstStructure *s = gst_caps_get_structure(caps, 0);
    int width = 0;
    int height = 0;
    int fpsN = 0;
    int fpsD = 1;
    gst_structure_get_int(s, "width", &width);
    gst_structure_get_int(s, "height", &height);
    gst_structure_get_fraction(s, "framerate", &fpsN, &fpsD);
    if (width <= 0 || height <= 0 || fpsN <= 0 || fpsD <= 0) {
        GST_WARNING_OBJECT(src, "unusable caps %" GST_PTR_FORMAT, caps);
        return FALSE;
    }

    st.jpeg = gst_structure_has_name(s, "image/jpeg");
    if (st.jpeg) {
        gst_video_info_set_format(&st.info, GST_VIDEO_FORMAT_I420, guint(width), guint(height));
        const std::size_t luma = std::size_t(vcam::jpegLumaStride(width)) * std::size_t(height);
        const std::size_t chroma =
            std::size_t(vcam::jpegChromaStride(width)) * std::size_t((height + 1) / 2);
        st.picture.assign(luma + 2 * chroma, 0);
    } else if (!gst_video_info_from_caps(&st.info, caps)) {
        GST_WARNING_OBJECT(src, "unusable caps %" GST_PTR_FORMAT, caps);
        return FALSE;
    }
    st.offset = GST_CLOCK_TIME_NONE;
    GST_OBJECT_LOCK(src);
    st.duration = gst_util_uint64_scale_int(GST_SECOND, fpsD, fpsN);
    st.negotiated = true;
    GST_OBJECT_UNLOCK(src);
    GST_INFO_OBJECT(src, "producing %" GST_PTR_FORMAT, caps);
    return TRUE;
}

// Qt relinks a running camera to change its format: for a moment the caps filter after it may
// already want the new format while the decoder behind it still wants the old one, and nothing
// fits. A camera would fail the stream there; wait for downstream to settle instead, until the
// pad flushes (a state change or a flush ends the wait).
gboolean negotiate(GstBaseSrc *src)
{
    bool waited = false;
    while (!GST_BASE_SRC_CLASS(tavrokvm_vcam_src_parent_class)->negotiate(src)) {
        if (GST_PAD_IS_FLUSHING(GST_BASE_SRC_PAD(src)))
            return FALSE;
        if (!waited)
            GST_INFO_OBJECT(src, "downstream accepts none of the formats yet; waiting");
        waited = true;
        g_usleep(10 * 1000);
    }
    if (waited)
        GST_INFO_OBJECT(src, "downstream settled");
    return TRUE;
}

// Tells the provider's count of streams per camera that this element starts or stops.
void countStream(TavroKvmVcamSrc *src, bool started)
{
    GST_OBJECT_LOCK(src);
    const gint node = src->node;
    const std::string kind = vcam::kindInfo(src->kind).word;
    const std::string serial = src->serial ? src->serial : "";
    GST_OBJECT_UNLOCK(src);
    if (started)
        tavrokvm_vcam_stream_started(node, kind.c_str(), serial.c_str());
    else
        tavrokvm_vcam_stream_stopped(node, kind.c_str(), serial.c_str());
}

gboolean start(GstBaseSrc *src)
{
    Stream &st = *self(src)->stream;
    GST_OBJECT_LOCK(src);
    st.negotiated = false;
    st.flushing = false;
    GST_OBJECT_UNLOCK(src);
    st.offset = GST_CLOCK_TIME_NONE;
    st.frame = 0;
    st.target.reset();
    if (const char *targets = std::getenv("TAVROKVM_VCAM_TARGETS"); targets && *targets) {
        GST_OBJECT_LOCK(src);
        const std::string serial = self(src)->serial ? self(src)->serial : "";
        GST_OBJECT_UNLOCK(src);
        st.target =
            std::make_unique<targetscreen::Reader>(std::string(targets) + "/" + serial + ".screen");
    }
    countStream(self(src), true);
    st.holding = true;
    return TRUE;
}

gboolean stop(GstBaseSrc *src)
{
    Stream &st = *self(src)->stream;
    GST_OBJECT_LOCK(src);
    st.negotiated = false;
    GST_OBJECT_UNLOCK(src);
    if (st.holding)
        countStream(self(src), false);
    st.holding = false;
    st.target.reset();
    std::vector<std::uint8_t>().swap(st.picture);
    std::vector<std::uint8_t>().swap(st.encoded);
    return TRUE;
}

gboolean query(GstBaseSrc *src, GstQuery *q)
{
    if (GST_QUERY_TYPE(q) == GST_QUERY_LATENCY) {
        const Stream &st = *self(src)->stream;
        GST_OBJECT_LOCK(src);
        const bool negotiated = st.negotiated;
        const GstClockTime duration = st.duration;
        GST_OBJECT_UNLOCK(src);
        if (!negotiated)
            return FALSE;
        // A frame is complete one period after its capture started.
        gst_query_set_latency(q, TRUE, duration, duration);
        return TRUE;
    }
    return GST_BASE_SRC_CLASS(tavrokvm_vcam_src_parent_class)->query(src, q);
}

// Live: each frame waits for its capture time on the pipeline clock.
void getTimes(GstBaseSrc *, GstBuffer *buffer, GstClockTime *start, GstClockTime *end)
{
    *start = GST_BUFFER_PTS(buffer);
    *end = GST_CLOCK_TIME_IS_VALID(*start) && GST_BUFFER_DURATION_IS_VALID(buffer)
               ? *start + GST_BUFFER_DURATION(buffer)
               : GST_CLOCK_TIME_NONE;
}

GstClockTime runningTime(GstElement *element)
{
    GstClock *clock = gst_element_get_clock(element);
    if (!clock)
        return GST_CLOCK_TIME_NONE;
    const GstClockTime now = gst_clock_get_time(clock);
    gst_object_unref(clock);
    const GstClockTime base = gst_element_get_base_time(element);
    return now > base ? now - base : 0;
}

void draw(TavroKvmVcamSrc *src, vcam::Picture &picture, guint64 frame)
{
    GST_OBJECT_LOCK(src);
    const std::string label = src->serial ? src->serial : "";
    GST_OBJECT_UNLOCK(src);
    Stream &st = *src->stream;
    if (st.target && st.target->read(st.targetState)) {
        vcam::drawDesktop(picture, st.targetState, label, frame);
        return;
    }
    // Read once: a process draws every camera with the same borders.
    static const vcam::Borders borders = vcam::parseBorders(std::getenv("TAVROKVM_VCAM_BORDERS"));
    vcam::drawFrame(picture, borders, label, frame);
}

GstBuffer *rawFrame(TavroKvmVcamSrc *src, Stream &st)
{
    GstBuffer *buffer = gst_buffer_new_allocate(nullptr, st.info.size, nullptr);
    GstVideoFrame frame;
    if (!buffer || !gst_video_frame_map(&frame, &st.info, buffer, GST_MAP_WRITE)) {
        if (buffer)
            gst_buffer_unref(buffer);
        GST_ELEMENT_ERROR(src, RESOURCE, NO_SPACE_LEFT, (nullptr),
                          ("cannot allocate a %" G_GSIZE_FORMAT "-byte frame", st.info.size));
        return nullptr;
    }
    vcam::Picture picture;
    picture.layout = GST_VIDEO_FRAME_FORMAT(&frame) == GST_VIDEO_FORMAT_NV12 ? vcam::Picture::Nv12
                                                                             : vcam::Picture::Yuy2;
    picture.width = GST_VIDEO_FRAME_WIDTH(&frame);
    picture.height = GST_VIDEO_FRAME_HEIGHT(&frame);
    for (guint i = 0; i < GST_VIDEO_FRAME_N_PLANES(&frame) && i < 3; ++i) {
        picture.planes[i] = static_cast<std::uint8_t *>(GST_VIDEO_FRAME_PLANE_DATA(&frame, i));
        picture.strides[i] = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, i);
    }
    draw(src, picture, st.frame);
    gst_video_frame_unmap(&frame);
    return buffer;
}

GstBuffer *jpegFrame(TavroKvmVcamSrc *src, Stream &st)
{
    const int width = int(GST_VIDEO_INFO_WIDTH(&st.info));
    const int height = int(GST_VIDEO_INFO_HEIGHT(&st.info));
    vcam::Picture picture;
    picture.layout = vcam::Picture::I420;
    picture.width = width;
    picture.height = height;
    picture.strides[0] = vcam::jpegLumaStride(width);
    picture.strides[1] = picture.strides[2] = vcam::jpegChromaStride(width);
    picture.planes[0] = st.picture.data();
    picture.planes[1] = picture.planes[0] + std::size_t(picture.strides[0]) * std::size_t(height);
    picture.planes[2] =
        picture.planes[1] + std::size_t(picture.strides[1]) * std::size_t((height + 1) / 2);
    draw(src, picture, st.frame);

    std::string error;
    if (!vcam::encodeJpeg(picture, kJpegQuality, st.encoded, error)) {
        GST_ELEMENT_ERROR(src, STREAM, ENCODE, (nullptr), ("JPEG encoder: %s", error.c_str()));
        return nullptr;
    }
    return gst_buffer_new_memdup(st.encoded.data(), st.encoded.size());
}

// A camera made from a device node that is gone (a stale entry of a device list, like an old
// /dev/videoN) or unplugged since; a hand-made element follows its kind and serial.
bool cameraIsGone(TavroKvmVcamSrc *src)
{
    GST_OBJECT_LOCK(src);
    const gint node = src->node;
    const vcam::Kind kind = src->kind;
    const std::string serial = src->serial ? src->serial : "";
    GST_OBJECT_UNLOCK(src);
    if (node >= 0)
        return !tavrokvm_vcam_node_is_plugged(node);
    return tavrokvm_vcam_is_unplugged(vcam::kindInfo(kind).word, serial.c_str());
}

// Waits on the pipeline clock until the running time `due`; false when a flush or a state change
// interrupts the wait.
bool waitForCaptureTime(TavroKvmVcamSrc *src, GstClockTime due)
{
    Stream &st = *src->stream;
    GstClock *clock = gst_element_get_clock(GST_ELEMENT(src));
    if (!clock)
        return true;
    GstClockID id =
        gst_clock_new_single_shot_id(clock, gst_element_get_base_time(GST_ELEMENT(src)) + due);
    gst_object_unref(clock);
    GST_OBJECT_LOCK(src);
    if (st.flushing) {
        GST_OBJECT_UNLOCK(src);
        gst_clock_id_unref(id);
        return false;
    }
    st.captureWait = id;
    GST_OBJECT_UNLOCK(src);
    const GstClockReturn result = gst_clock_id_wait(id, nullptr);
    GST_OBJECT_LOCK(src);
    st.captureWait = nullptr;
    GST_OBJECT_UNLOCK(src);
    gst_clock_id_unref(id);
    return result != GST_CLOCK_UNSCHEDULED;
}

gboolean unlock(GstBaseSrc *base)
{
    Stream &st = *self(base)->stream;
    GST_OBJECT_LOCK(base);
    st.flushing = true;
    if (st.captureWait)
        gst_clock_id_unschedule(st.captureWait);
    GST_OBJECT_UNLOCK(base);
    return TRUE;
}

gboolean unlockStop(GstBaseSrc *base)
{
    GST_OBJECT_LOCK(base);
    self(base)->stream->flushing = false;
    GST_OBJECT_UNLOCK(base);
    return TRUE;
}

GstFlowReturn create(GstPushSrc *push, GstBuffer **out)
{
    TavroKvmVcamSrc *src = self(push);
    Stream &st = *src->stream;
    if (!st.negotiated)
        return GST_FLOW_NOT_NEGOTIATED;
    if (cameraIsGone(src)) {
        GST_ELEMENT_ERROR(
            src, RESOURCE, NOT_FOUND, ("The camera was unplugged."),
            ("%s %s is gone", vcam::kindInfo(src->kind).word, src->serial ? src->serial : ""));
        return GST_FLOW_ERROR;
    }

    const GstClockTime now = runningTime(GST_ELEMENT(src));
    if (!GST_CLOCK_TIME_IS_VALID(st.offset)) {
        // Like a sensor, the first frame is complete one period after streaming starts.
        st.offset = GST_CLOCK_TIME_IS_VALID(now) ? now : 0;
        st.tick = 1;
    } else if (GST_CLOCK_TIME_IS_VALID(now) && now > st.offset) {
        // Running late (a slow machine, a large JPEG): skip the frames that are past, as a
        // camera drops them, rather than sending stale ones.
        const guint64 due = (now - st.offset) / st.duration;
        if (due > st.tick + 1) {
            st.frame += due - st.tick;
            st.tick = due;
        }
    }

    // The picture is taken when its frame is due, not when the previous one left: what it
    // shows is as fresh as the camera's rate allows.
    if (GST_CLOCK_TIME_IS_VALID(now) && !waitForCaptureTime(src, st.offset + st.tick * st.duration))
        return GST_FLOW_FLUSHING;

    GstBuffer *buffer = st.jpeg ? jpegFrame(src, st) : rawFrame(src, st);
    if (!buffer)
        return GST_FLOW_ERROR;
    GST_BUFFER_PTS(buffer) = st.offset + st.tick * st.duration;
    GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
    GST_BUFFER_DURATION(buffer) = st.duration;
    GST_BUFFER_OFFSET(buffer) = st.frame;
    GST_BUFFER_OFFSET_END(buffer) = st.frame + 1;
    ++st.tick;
    ++st.frame;
    if (!GST_CLOCK_TIME_IS_VALID(now))
        g_usleep(gulong(st.duration / GST_USECOND)); // no clock to wait on: keep the rate anyway
    *out = buffer;
    return GST_FLOW_OK;
}

void setKind(TavroKvmVcamSrc *src, const gchar *word)
{
    const vcam::KindInfo *info = vcam::findKind(word ? word : "");
    GST_OBJECT_LOCK(src);
    if (info) {
        src->kind = info->kind;
        gst_caps_unref(src->deviceCaps);
        src->deviceCaps = tavrokvm_vcam_caps_for_kind(src->kind);
    }
    const char *kept = vcam::kindInfo(src->kind).word;
    GST_OBJECT_UNLOCK(src);
    if (!info)
        g_warning("[vcam] unknown camera kind '%s'; keeping '%s'", word ? word : "", kept);
}

void setProperty(GObject *object, guint id, const GValue *value, GParamSpec *pspec)
{
    TavroKvmVcamSrc *src = self(object);
    switch (id) {
    case PROP_KIND:
        setKind(src, g_value_get_string(value));
        break;
    case PROP_SERIAL:
        GST_OBJECT_LOCK(src);
        g_free(src->serial);
        src->serial = g_value_dup_string(value);
        GST_OBJECT_UNLOCK(src);
        break;
    case PROP_NODE:
        GST_OBJECT_LOCK(src);
        src->node = g_value_get_int(value);
        GST_OBJECT_UNLOCK(src);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
        break;
    }
}

void getProperty(GObject *object, guint id, GValue *value, GParamSpec *pspec)
{
    TavroKvmVcamSrc *src = self(object);
    GST_OBJECT_LOCK(src);
    switch (id) {
    case PROP_KIND:
        g_value_set_string(value, vcam::kindInfo(src->kind).word);
        break;
    case PROP_SERIAL:
        g_value_set_string(value, src->serial);
        break;
    case PROP_NODE:
        g_value_set_int(value, src->node);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
        break;
    }
    GST_OBJECT_UNLOCK(src);
}

void finalize(GObject *object)
{
    TavroKvmVcamSrc *src = self(object);
    delete src->stream;
    gst_caps_unref(src->deviceCaps);
    g_free(src->serial);
    G_OBJECT_CLASS(tavrokvm_vcam_src_parent_class)->finalize(object);
}

} // namespace

static void tavrokvm_vcam_src_class_init(TavroKvmVcamSrcClass *klass)
{
    GST_DEBUG_CATEGORY_INIT(vcam_src_debug, "tavrokvmvcamsrc", 0, "TavroKVM virtual camera");

    GObjectClass *objectClass = G_OBJECT_CLASS(klass);
    objectClass->set_property = setProperty;
    objectClass->get_property = getProperty;
    objectClass->finalize = finalize;
    const auto flags = GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
    g_object_class_install_property(
        objectClass, PROP_KIND,
        g_param_spec_string("kind", "Kind", "box, box2131, builtin or usbvideo", "box", flags));
    g_object_class_install_property(objectClass, PROP_SERIAL,
                                    g_param_spec_string("serial", "Serial",
                                                        "Serial number, drawn on the picture",
                                                        nullptr, flags));
    g_object_class_install_property(
        objectClass, PROP_NODE,
        g_param_spec_int("node", "Node", "Device node of the provider's camera; -1: none", -1,
                         G_MAXINT, -1, flags));

    GstElementClass *elementClass = GST_ELEMENT_CLASS(klass);
    gst_element_class_add_static_pad_template(elementClass, &srcTemplate);
    gst_element_class_set_static_metadata(elementClass, "TavroKVM virtual camera", "Source/Video",
                                          "Live test picture in a virtual camera's formats",
                                          "TavroKVM");

    GstBaseSrcClass *baseClass = GST_BASE_SRC_CLASS(klass);
    baseClass->get_caps = getCaps;
    baseClass->set_caps = setCaps;
    baseClass->negotiate = negotiate;
    baseClass->start = start;
    baseClass->stop = stop;
    baseClass->query = query;
    baseClass->get_times = getTimes;
    baseClass->unlock = unlock;
    baseClass->unlock_stop = unlockStop;
    GST_PUSH_SRC_CLASS(klass)->create = create;
}

static void tavrokvm_vcam_src_init(TavroKvmVcamSrc *src)
{
    src->stream = new Stream;
    src->kind = vcam::Kind::Box;
    src->node = -1;
    src->deviceCaps = tavrokvm_vcam_caps_for_kind(src->kind);
    gst_base_src_set_live(GST_BASE_SRC(src), TRUE);
    gst_base_src_set_format(GST_BASE_SRC(src), GST_FORMAT_TIME);
}
