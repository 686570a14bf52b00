#include "console/captureformat.h"

#include <QDebug>
#include <algorithm>
#include <cmath>

namespace {

constexpr int kMinUsableFps = 15;
constexpr int kListedCandidates = 10;
constexpr int kDiagnosticCandidates = 5;

using Formats = QList<CaptureFormatDesc>;
using Indices = QList<int>;

int roundedFps(const CaptureFormatDesc &f)
{
    return int(std::lround(f.maxFps)); // half away from zero
}

bool isLandscape(const CaptureFormatDesc &f)
{
    return f.width > f.height;
}

qint64 pixels(const CaptureFormatDesc &f)
{
    return qint64(f.width) * f.height;
}

QString sizeText(int width, int height)
{
    return QStringLiteral("%1x%2").arg(width).arg(height);
}

QString sizeText(const CaptureFormatDesc &f)
{
    return sizeText(f.width, f.height);
}

QString describe(const CaptureFormatDesc &f)
{
    return QStringLiteral("%1 %2 @ %3 FPS")
        .arg(pixelFormatName(f.pixelFormat), sizeText(f))
        .arg(f.maxFps);
}

// Order A: landscape first, then larger, then faster.
bool orderA(const CaptureFormatDesc &a, const CaptureFormatDesc &b)
{
    if (isLandscape(a) != isLandscape(b))
        return isLandscape(a);
    if (pixels(a) != pixels(b))
        return pixels(a) > pixels(b);
    return a.maxFps > b.maxFps;
}

// 0 = 4K at 60, 1 = 4K, 2 = 1080p at 60, 3 = 1080p, 4 = any other size.
int sizeTier(const CaptureFormatDesc &f)
{
    const int longSide = std::max(f.width, f.height);
    const int shortSide = std::min(f.width, f.height);
    const bool fast = roundedFps(f) >= 60;
    if (longSide == 3840 && shortSide == 2160)
        return fast ? 0 : 1;
    if (longSide == 1920 && shortSide == 1080)
        return fast ? 2 : 3;
    return 4;
}

// Order B: landscape first, then the tier (4K60 > 4K > 1080P60 > 1080P > other), then larger,
// then faster.
bool orderB(const CaptureFormatDesc &a, const CaptureFormatDesc &b)
{
    if (isLandscape(a) != isLandscape(b))
        return isLandscape(a);
    if (sizeTier(a) != sizeTier(b))
        return sizeTier(a) < sizeTier(b);
    if (pixels(a) != pixels(b))
        return pixels(a) > pixels(b);
    return a.maxFps > b.maxFps;
}

// Position in the fallback's pixel format priority: the accelerated formats, then RGBX8888;
// formats not listed come last.
int formatPriority(int pixelFormat)
{
    static const QList<int> priority =
        kHardwareAcceleratedPixelFormats + QList<int>{CapturePixelFormat::RGBX8888};
    const qsizetype found = priority.indexOf(pixelFormat);
    return found < 0 ? int(priority.size()) : int(found);
}

// Order C: listed pixel formats by priority, then landscape, larger, 60 fps or more, faster.
bool orderC(const CaptureFormatDesc &a, const CaptureFormatDesc &b)
{
    if (formatPriority(a.pixelFormat) != formatPriority(b.pixelFormat))
        return formatPriority(a.pixelFormat) < formatPriority(b.pixelFormat);
    if (isLandscape(a) != isLandscape(b))
        return isLandscape(a);
    if (pixels(a) != pixels(b))
        return pixels(a) > pixels(b);
    const bool a60 = a.maxFps >= 60, b60 = b.maxFps >= 60;
    if (a60 != b60)
        return a60;
    return a.maxFps > b.maxFps;
}

template<typename Less> void sortIndices(Indices &indices, const Formats &formats, Less less)
{
    std::sort(indices.begin(), indices.end(),
              [&](int a, int b) { return less(formats[a], formats[b]); });
}

Indices withinLimitsOfFormat(const Formats &formats, int pixelFormat)
{
    Indices result;
    for (int i = 0; i < formats.size(); ++i) {
        if (formats[i].pixelFormat == pixelFormat && isWithinCaptureLimits(formats[i]))
            result.append(i);
    }
    return result;
}

// First landscape entry of a sorted list, else the first; -1 for an empty list.
int firstLandscapeOrFirst(const Indices &sorted, const Formats &formats)
{
    for (int i : sorted) {
        if (isLandscape(formats[i]))
            return i;
    }
    return sorted.isEmpty() ? -1 : sorted.first();
}

const char *fallbackName(int pixelFormat)
{
    return pixelFormat == CapturePixelFormat::NV12 ? "NV12" : "YUY2";
}

} // namespace

bool isWithinCaptureLimits(const CaptureFormatDesc &f)
{
    return f.width <= kCaptureMaxWidth && f.height <= kCaptureMaxHeight &&
           pixels(f) <= kCaptureMaxPixels && roundedFps(f) <= kCaptureMaxFps;
}

int negotiateCaptureFormat(const Formats &formats, const QString &deviceDescription)
{
    qDebug().noquote() << "[openCamera] ========== 设备格式分析开始 ==========";
    qDebug().noquote().nospace() << "[openCamera] 设备支持的所有格式（共" << formats.size()
                                 << "个）：";
    int mjpegCount = 0, nv12Count = 0, yuyvCount = 0;
    for (const CaptureFormatDesc &f : formats) {
        qDebug().noquote() << "  格式:" << pixelFormatName(f.pixelFormat)
                           << "分辨率:" << sizeText(f) << "帧率:" << f.maxFps << "FPS";
        mjpegCount += f.pixelFormat == CapturePixelFormat::Jpeg;
        nv12Count += f.pixelFormat == CapturePixelFormat::NV12;
        yuyvCount += f.pixelFormat == CapturePixelFormat::YUYV;
    }
    qDebug().noquote().nospace() << "[openCamera] 格式统计 - MJPEG:" << mjpegCount
                                 << "个, NV12:" << nv12Count << "个, YUYV:" << yuyvCount << "个";

    qDebug().noquote() << "[openCamera] ========== 格式限制检查 ==========";
    qDebug().noquote().nospace() << "[openCamera] 限制条件: 宽度≤" << kCaptureMaxWidth << ", 高度≤"
                                 << kCaptureMaxHeight << ", 像素≤" << kCaptureMaxPixels << ", 帧率≤"
                                 << kCaptureMaxFps << "FPS";
    Indices mjpeg;
    for (int i = 0; i < formats.size(); ++i) {
        const CaptureFormatDesc &f = formats[i];
        if (f.pixelFormat != CapturePixelFormat::Jpeg)
            continue;
        const bool ok = isWithinCaptureLimits(f);
        qDebug().noquote() << (ok ? "[openCamera] ✓ 接受MJPEG格式:"
                                  : "[openCamera] ✗ 跳过MJPEG格式（超过限制）:")
                           << sizeText(f) << "像素:" << pixels(f) << "帧率:" << f.maxFps;
        qDebug().noquote().nospace()
            << "[openCamera]   检查: 宽度" << f.width << (f.width <= kCaptureMaxWidth ? "✓" : "✗")
            << " 高度" << f.height << (f.height <= kCaptureMaxHeight ? "✓" : "✗") << " 像素"
            << pixels(f) << (pixels(f) <= kCaptureMaxPixels ? "✓" : "✗") << " 帧率" << roundedFps(f)
            << (roundedFps(f) <= kCaptureMaxFps ? "✓" : "✗");
        if (ok)
            mjpeg.append(i);
    }
    qDebug().noquote().nospace() << "[openCamera] MJPEG格式统计: 总计" << mjpegCount
                                 << "个, 符合条件" << mjpeg.size() << "个, 过滤"
                                 << mjpegCount - mjpeg.size() << "个";

    if (!mjpeg.isEmpty()) {
        qDebug().noquote().nospace()
            << "[openCamera] ✓✓✓ 发现" << mjpeg.size()
            << "个符合条件的MJPEG格式（≤3840x2160, ≤60FPS），优先选择分辨率最大的 ✓✓✓";
        sortIndices(mjpeg, formats, orderA);
        qDebug().noquote() << "[openCamera] 符合条件的MJPEG格式列表（按分辨率排序，将选择第一个）:";
        for (int n = 0; n < std::min(kListedCandidates, int(mjpeg.size())); ++n)
            qDebug().noquote() << QStringLiteral("  %1.").arg(n + 1) << describe(formats[mjpeg[n]]);
        const int chosen = firstLandscapeOrFirst(mjpeg, formats);
        if (isLandscape(formats[chosen]))
            qDebug().noquote() << "[openCamera] ✓✓✓ 选择横屏MJPEG格式（优先横屏、高分辨率、60fps）:"
                               << describe(formats[chosen]);
        else
            qWarning().noquote() << "[openCamera] ⚠⚠⚠ 未找到横屏MJPEG格式，使用竖屏格式:"
                                 << describe(formats[chosen]);
        qDebug().noquote() << "[openCamera] ✓✓✓ 最终选择MJPEG格式:" << describe(formats[chosen]);
        return chosen;
    }

    qWarning().noquote() << "[openCamera] ⚠⚠⚠ 未发现符合限制的MJPEG格式（≤3840x2160, "
                            "≤60FPS），按优先级选择：NV12 > YUY2 ⚠⚠⚠";
    for (int pixelFormat : {int(CapturePixelFormat::NV12), int(CapturePixelFormat::YUYV)}) {
        Indices candidates = withinLimitsOfFormat(formats, pixelFormat);
        if (candidates.isEmpty())
            continue;
        const char *name = fallbackName(pixelFormat);
        qDebug().noquote().nospace() << "[openCamera] ✓ 发现" << candidates.size() << "个符合条件的"
                                     << name << "格式（≤3840x2160, ≤60FPS）";
        sortIndices(candidates, formats, orderB);
        const int chosen = candidates.first();
        qDebug().noquote() << QStringLiteral(
                                  "[openCamera] ✓✓✓ %1协商结果（4K60>4K>1080P60>1080P）:")
                                  .arg(QLatin1String(name))
                           << describe(formats[chosen]);
        return chosen;
    }

    qWarning().noquote() << "[openCamera] ⚠⚠⚠⚠⚠ 严重警告：设备不支持MJPEG、NV12或YUY2格式！⚠⚠⚠⚠⚠";
    qWarning().noquote()
        << "[openCamera] 要求：格式优先级 MJPEG > NV12 > YUY2，分辨率≤3840x2160，帧率≤60Hz";
    qWarning().noquote() << "[openCamera] 但设备没有这些格式，将使用其他格式（可能不是最优选择）";
    qDebug().noquote() << "[openCamera] 调用findBestSupportedFormat查找最佳格式...";
    const int chosen = bestSupportedFormatIndex(formats, deviceDescription);
    if (chosen < 0) {
        qDebug().noquote() << "[openCamera] findBestSupportedFormat 未返回可用格式";
        return -1;
    }
    qDebug().noquote() << "[openCamera] findBestSupportedFormat 返回:" << describe(formats[chosen]);
    const int pf = formats[chosen].pixelFormat;
    if (pf != CapturePixelFormat::Jpeg && pf != CapturePixelFormat::NV12 &&
        pf != CapturePixelFormat::YUYV)
        qWarning().noquote() << "[openCamera] ⚠ 警告：选择的格式不是MJPEG/NV12/YUY2，而是"
                             << pixelFormatName(pf);
    return chosen;
}

int bestSupportedFormatIndex(const Formats &formats, const QString &deviceDescription)
{
    qDebug().noquote() << "[TavroVideo::findBestSupportedFormat] Finding best format for device:"
                       << deviceDescription;
    qDebug().noquote() << "[TavroVideo::findBestSupportedFormat] Total supported formats:"
                       << formats.size();
    if (formats.isEmpty()) {
        qDebug().noquote()
            << "[TavroVideo::findBestSupportedFormat] No supported formats reported by the "
               "device!";
        return -1;
    }
    qDebug().noquote()
        << "[TavroVideo::findBestSupportedFormat] === 格式优先级：MJPEG > NV12 > YUY2 ===";
    qDebug().noquote()
        << "[TavroVideo::findBestSupportedFormat] === 限制条件：分辨率≤3840x2160，帧率≤60Hz ===";

    Indices mjpeg = withinLimitsOfFormat(formats, CapturePixelFormat::Jpeg);
    if (!mjpeg.isEmpty()) {
        qDebug().noquote().nospace()
            << "[TavroVideo::findBestSupportedFormat] ✓ 发现" << mjpeg.size()
            << "个符合条件的MJPEG格式（≤3840x2160, ≤60FPS），将优先使用不解码直接播放";
        sortIndices(mjpeg, formats, orderA);
        const int chosen = firstLandscapeOrFirst(mjpeg, formats);
        qDebug().noquote() << (isLandscape(formats[chosen])
                                   ? "[TavroVideo::findBestSupportedFormat] ✓ "
                                     "选择横屏MJPEG格式（优先横屏、高分辨率、60fps）:"
                                   : "[TavroVideo::findBestSupportedFormat] ⚠ "
                                     "未找到横屏MJPEG格式，使用竖屏格式:")
                           << describe(formats[chosen]);
        return chosen;
    }

    qDebug().noquote()
        << "[TavroVideo::findBestSupportedFormat] 未发现MJPEG格式，按优先级选择：NV12 > YUY2";
    for (int pixelFormat : {int(CapturePixelFormat::NV12), int(CapturePixelFormat::YUYV)}) {
        Indices candidates = withinLimitsOfFormat(formats, pixelFormat);
        if (candidates.isEmpty())
            continue;
        sortIndices(candidates, formats, orderA);
        const int chosen = firstLandscapeOrFirst(candidates, formats);
        const QLatin1String name(fallbackName(pixelFormat));
        qDebug().noquote()
            << (isLandscape(formats[chosen])
                    ? QStringLiteral("[TavroVideo::findBestSupportedFormat] ✓ 选择横屏%1格式:")
                          .arg(name)
                    : QStringLiteral(
                          "[TavroVideo::findBestSupportedFormat] ⚠ 未找到横屏%1格式，使用竖屏格式:")
                          .arg(name))
            << describe(formats[chosen]);
        return chosen;
    }

    qDebug().noquote()
        << "[TavroVideo::findBestSupportedFormat] ⚠ 未发现NV12和YUY2格式，使用其他格式（fallback）";
    Indices candidates;
    for (int i = 0; i < formats.size(); ++i) {
        const CaptureFormatDesc &f = formats[i];
        const bool valid = f.width >= 0 && f.height >= 0;
        const bool accepted = f.maxFps >= kMinUsableFps && valid && isLandscape(f);
        qDebug().noquote() << "  格式:" << describe(f);
        if (accepted) {
            qDebug().noquote() << "  -> 已添加到候选格式 (横屏)";
            candidates.append(i);
        } else {
            const QString ratio = valid && f.height > 0
                                      ? QString::number(double(f.width) / f.height)
                                      : QStringLiteral("N/A");
            qDebug().noquote().nospace()
                << "  -> 被拒绝: FPS=" << f.maxFps << ", 有效=" << (valid ? "true" : "false")
                << ", 宽高比=" << ratio;
        }
    }
    if (candidates.isEmpty()) {
        qDebug().noquote()
            << "[TavroVideo::findBestSupportedFormat] No suitable landscape formats found "
               "after filtering.";
        qDebug().noquote()
            << "[TavroVideo::findBestSupportedFormat] Fallback: No landscape formats found. "
               "Relaxing constraints to allow any valid resolution.";
        for (int i = 0; i < formats.size(); ++i) {
            const CaptureFormatDesc &f = formats[i];
            if (f.maxFps >= kMinUsableFps && f.width >= 1 && f.height >= 1)
                candidates.append(i);
        }
        if (candidates.isEmpty()) {
            qDebug().noquote()
                << "[TavroVideo::findBestSupportedFormat] Fallback failed: Still no suitable "
                   "formats found.";
            return -1;
        }
    }

    sortIndices(candidates, formats, orderC);
    const CaptureFormatDesc &best = formats[candidates.first()];
    qDebug().noquote() << "[TavroVideo::findBestSupportedFormat] Sorted suitable formats. Best is:"
                       << sizeText(best) << "@" << best.maxFps << "FPS,"
                       << "PixelFormat:" << pixelFormatName(best.pixelFormat);
    for (int i : std::as_const(candidates)) {
        if (formats[i].width >= 3840 && formats[i].height >= 2160) {
            qDebug().noquote() << "[TavroVideo::findBestSupportedFormat] 4K candidate:"
                               << describe(formats[i]);
            break;
        }
    }
    for (int n = 0; n < std::min(kDiagnosticCandidates, int(candidates.size())); ++n) {
        const CaptureFormatDesc &f = formats[candidates[n]];
        qDebug().noquote() << QStringLiteral("  #%1: %2x%3 (%4MP) @ %5FPS, PixelFormat: %6")
                                  .arg(n + 1)
                                  .arg(f.width)
                                  .arg(f.height)
                                  .arg(pixels(f) / 1e6, 0, 'f', 2)
                                  .arg(f.maxFps)
                                  .arg(pixelFormatName(f.pixelFormat));
    }
    QStringList rates720;
    for (const CaptureFormatDesc &f : formats) {
        if (f.width == 1280 && f.height == 720)
            rates720.append(QString::number(f.maxFps));
    }
    if (!rates720.isEmpty())
        qDebug().noquote() << "[TavroVideo::findBestSupportedFormat] 1280x720 可用帧率:"
                           << rates720.join(QStringLiteral(", "));
    return candidates.first();
}

QSize maxSupportedResolution(const Formats &formats)
{
    // Largest landscape size among the usable formats of one class, else the largest portrait.
    const auto largest = [&formats](auto accepts) -> QSize {
        int bestLandscape = -1, bestPortrait = -1;
        for (int i = 0; i < formats.size(); ++i) {
            const CaptureFormatDesc &f = formats[i];
            if (!accepts(f))
                continue;
            int &best = isLandscape(f) ? bestLandscape : bestPortrait;
            if (best < 0 || pixels(f) > pixels(formats[best]))
                best = i;
        }
        const int chosen = bestLandscape >= 0 ? bestLandscape : bestPortrait;
        return chosen >= 0 ? QSize(formats[chosen].width, formats[chosen].height) : QSize();
    };
    const auto usableOf = [](int pixelFormat) {
        return [pixelFormat](const CaptureFormatDesc &f) {
            return f.pixelFormat == pixelFormat && isWithinCaptureLimits(f) &&
                   f.maxFps >= kMinUsableFps;
        };
    };

    QSize result = largest(usableOf(CapturePixelFormat::Jpeg));
    if (!result.isValid())
        result = largest(usableOf(CapturePixelFormat::NV12));
    if (!result.isValid())
        result = largest(usableOf(CapturePixelFormat::YUYV));
    if (!result.isValid())
        result = largest([](const CaptureFormatDesc &f) { return f.width >= 1 && f.height >= 1; });
    if (!result.isValid()) {
        qDebug().noquote() << "[获取最大分辨率] 未找到有效的最大分辨率";
        return QSize();
    }
    qDebug().noquote() << "[获取最大分辨率] 最大支持分辨率:"
                       << sizeText(result.width(), result.height())
                       << "像素数:" << qint64(result.width()) * result.height();
    return result;
}

ResolutionCheckVerdict judgeResolutionCheck(const QSize &current, const QSize &maximum)
{
    // An invalid size counts as no pixels: nothing negotiated yet wants a switch to any valid
    // maximum, and an unknown maximum never asks for a switch or a longer interval.
    const qint64 cur = current.isValid() ? qint64(current.width()) * current.height() : 0;
    const qint64 max = maximum.isValid() ? qint64(maximum.width()) * maximum.height() : 0;
    ResolutionCheckVerdict verdict;
    if (max <= 0)
        return verdict;
    if (double(cur) * 1.2 < double(max)) {
        verdict.switchWanted = true;
        verdict.gainPercent = cur > 0 ? double(max - cur) / double(cur) * 100.0 : 0.0;
        return verdict;
    }
    verdict.extendInterval = double(cur) >= double(max) * 0.95;
    return verdict;
}

QString pixelFormatName(int pixelFormat)
{
    switch (pixelFormat) {
    case 0:
        return QStringLiteral("Invalid");
    case 1:
        return QStringLiteral("ARGB8888");
    case 4:
        return QStringLiteral("BGRA8888");
    case 5:
        return QStringLiteral("BGRA8888_Premultiplied");
    case 6:
        return QStringLiteral("BGRX8888");
    case 7:
        return QStringLiteral("ABGR8888");
    case 9:
        return QStringLiteral("RGBA8888");
    case 10:
        return QStringLiteral("RGBX8888");
    case 11:
        return QStringLiteral("AYUV");
    case 12:
        return QStringLiteral("AYUV_Premultiplied");
    case 13:
        return QStringLiteral("YUV420P");
    case 14:
        return QStringLiteral("YUV422P");
    case 15:
        return QStringLiteral("YV12");
    case 16:
        return QStringLiteral("UYVY");
    case 17:
        return QStringLiteral("YUYV");
    case 18:
        return QStringLiteral("NV12");
    case 19:
        return QStringLiteral("NV21");
    case 20:
        return QStringLiteral("IMC1");
    case 21:
        return QStringLiteral("IMC2");
    case 22:
        return QStringLiteral("IMC3");
    case 23:
        return QStringLiteral("IMC4");
    case 24:
        return QStringLiteral("Y8");
    case 25:
        return QStringLiteral("Y16");
    case 29:
        return QStringLiteral("Jpeg");
    default:
        return QStringLiteral("Unknown(%1)").arg(pixelFormat);
    }
}
