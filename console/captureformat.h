#pragma once

#include <QList>
#include <QSize>
#include <QString>

// Pixel formats as Qt Multimedia numbers them (QVideoFrameFormat::PixelFormat); the console
// view checks at compile time that the numbers agree.
namespace CapturePixelFormat {
enum : int {
    Invalid = 0,
    BGRA8888 = 4,
    RGBX8888 = 10,
    YUV420P = 13,
    UYVY = 16,
    YUYV = 17,
    NV12 = 18,
    NV21 = 19,
    Jpeg = 29,
};
}

// The pixel formats that decode and render without a CPU conversion, in order of preference.
inline const QList<int> kHardwareAcceleratedPixelFormats = {
    CapturePixelFormat::YUV420P, CapturePixelFormat::NV12, CapturePixelFormat::NV21,
    CapturePixelFormat::UYVY,    CapturePixelFormat::YUYV, CapturePixelFormat::Jpeg};

// One format a camera offers, as the format rules see it.
struct CaptureFormatDesc
{
    int pixelFormat = CapturePixelFormat::Invalid;
    int width = 0;
    int height = 0;
    double minFps = 0;
    double maxFps = 0;
};

constexpr int kCaptureMaxWidth = 3840;
constexpr int kCaptureMaxHeight = 2160;
constexpr qint64 kCaptureMaxPixels = 8294400;
constexpr int kCaptureMaxFps = 60;

// Width, height, pixel count and rounded maximum rate within the limits above.
bool isWithinCaptureLimits(const CaptureFormatDesc &format);

// The choice made when a camera is opened (MJPEG within limits first, then NV12, then YUY2, then
// findBestSupportedFormat), with its log lines. Index into `formats`, -1 when nothing qualifies.
int negotiateCaptureFormat(const QList<CaptureFormatDesc> &formats,
                           const QString &deviceDescription);

// The fallback chooser, with its log lines. Index into `formats`, -1 when nothing qualifies.
int bestSupportedFormatIndex(const QList<CaptureFormatDesc> &formats,
                             const QString &deviceDescription);

// Largest usable resolution (MJPEG, then NV12, YUY2, any), logged; invalid when none.
QSize maxSupportedResolution(const QList<CaptureFormatDesc> &formats);

// What the periodic resolution check concludes from the current and the largest resolution.
struct ResolutionCheckVerdict
{
    bool switchWanted = false;   // current × 1.2 < maximum
    double gainPercent = 0;      // (max − cur) / cur × 100, when a switch is wanted
    bool extendInterval = false; // current ≥ maximum × 0.95: check every 30 s from now on
};
ResolutionCheckVerdict judgeResolutionCheck(const QSize &current, const QSize &maximum);

// "Jpeg", "NV12", "YUYV", ... "Unknown(%1)".
QString pixelFormatName(int pixelFormat);
