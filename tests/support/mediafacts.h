#pragma once

// What GStreamer's discoverer reads from a media file: container, length, streams, and the video
// stream's codec, chroma format, profile and size. Header-only; link gstreamer-pbutils-1.0 and
// initialise GStreamer first (opening a camera through Qt Multimedia does).

#include <gst/pbutils/pbutils.h>

#include <QSize>
#include <QString>
#include <QUrl>

struct MediaFacts
{
    bool read = false;
    QString container;
    double seconds = 0;
    int videoStreams = 0;
    int audioStreams = 0;
    QString videoCodec;
    QString chromaFormat;
    QString profile;
    QSize size;
    QString audioCodec;       // caps name of the first audio stream ("audio/mpeg" for AAC)
    int audioMpegVersion = 0; // its "mpegversion" (4 for AAC)
};

inline QString discoveredCapsField(const GstStructure *structure, const char *field)
{
    const gchar *value = gst_structure_get_string(structure, field);
    return value ? QString::fromUtf8(value) : QString();
}

inline MediaFacts discoverMedia(const QString &path)
{
    MediaFacts facts;
    GError *error = nullptr;
    GstDiscoverer *discoverer = gst_discoverer_new(10 * GST_SECOND, &error);
    g_clear_error(&error);
    if (!discoverer)
        return facts;
    const QByteArray uri = QUrl::fromLocalFile(path).toEncoded();
    GstDiscovererInfo *info = gst_discoverer_discover_uri(discoverer, uri.constData(), &error);
    g_clear_error(&error);
    if (info && gst_discoverer_info_get_result(info) == GST_DISCOVERER_OK) {
        facts.read = true;
        facts.seconds = double(gst_discoverer_info_get_duration(info)) / double(GST_SECOND);
        if (GstDiscovererStreamInfo *top = gst_discoverer_info_get_stream_info(info)) {
            if (GstCaps *caps = gst_discoverer_stream_info_get_caps(top)) {
                facts.container =
                    QString::fromUtf8(gst_structure_get_name(gst_caps_get_structure(caps, 0)));
                gst_caps_unref(caps);
            }
            gst_discoverer_stream_info_unref(top);
        }
        GList *videos = gst_discoverer_info_get_video_streams(info);
        facts.videoStreams = int(g_list_length(videos));
        if (videos) {
            auto *video = GST_DISCOVERER_VIDEO_INFO(videos->data);
            facts.size = QSize(int(gst_discoverer_video_info_get_width(video)),
                               int(gst_discoverer_video_info_get_height(video)));
            if (GstCaps *caps =
                    gst_discoverer_stream_info_get_caps(GST_DISCOVERER_STREAM_INFO(video))) {
                const GstStructure *structure = gst_caps_get_structure(caps, 0);
                facts.videoCodec = QString::fromUtf8(gst_structure_get_name(structure));
                facts.chromaFormat = discoveredCapsField(structure, "chroma-format");
                facts.profile = discoveredCapsField(structure, "profile");
                gst_caps_unref(caps);
            }
        }
        gst_discoverer_stream_info_list_free(videos);
        GList *audios = gst_discoverer_info_get_audio_streams(info);
        facts.audioStreams = int(g_list_length(audios));
        if (audios) {
            if (GstCaps *caps =
                    gst_discoverer_stream_info_get_caps(GST_DISCOVERER_STREAM_INFO(audios->data))) {
                const GstStructure *structure = gst_caps_get_structure(caps, 0);
                facts.audioCodec = QString::fromUtf8(gst_structure_get_name(structure));
                gst_structure_get_int(structure, "mpegversion", &facts.audioMpegVersion);
                gst_caps_unref(caps);
            }
        }
        gst_discoverer_stream_info_list_free(audios);
    }
    if (info)
        gst_discoverer_info_unref(info);
    g_object_unref(discoverer);
    return facts;
}
