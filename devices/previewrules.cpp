#include "devices/previewrules.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

struct PreviewPass
{
    int maxLongSide;
    int maxShortSide;
    int maxFps;
};

// Tried in order; the first pass that yields a format ends the search.
constexpr PreviewPass kPasses[] = {
    {960, 540, 10}, {960, 540, 12}, {960, 540, 15}, {1280, 720, 10}, {1280, 720, 15},
};
constexpr int kMinWidth = 320;
constexpr int kMinHeight = 240;
constexpr int kFallbackMinWidth = 160;
constexpr int kFallbackMinHeight = 120;
constexpr int kFallbackLongSide = 1280;
constexpr int kFallbackShortSide = 720;
constexpr int kFallbackMaxFps = 15;
constexpr int kTargetFps = 10;
constexpr qint64 kRatePenalty = 100000;
constexpr int kFlashTicks = 5;

bool validSize(const CaptureFormatDesc &f)
{
    return f.width > 0 && f.height > 0;
}

bool fitsSides(const CaptureFormatDesc &f, int longSide, int shortSide)
{
    return std::max(f.width, f.height) <= longSide && std::min(f.width, f.height) <= shortSide;
}

bool passes(const CaptureFormatDesc &f, const PreviewPass &pass)
{
    return validSize(f) && f.width >= kMinWidth && f.height >= kMinHeight &&
           fitsSides(f, pass.maxLongSide, pass.maxShortSide) && previewRoundedFps(f) <= pass.maxFps;
}

// Best score among the formats of the pass with (or without) MJPEG; first one on ties.
int bestInPass(const QList<CaptureFormatDesc> &formats, const PreviewPass &pass, bool jpeg)
{
    int best = -1;
    for (int i = 0; i < formats.size(); ++i) {
        const CaptureFormatDesc &f = formats[i];
        if ((f.pixelFormat == CapturePixelFormat::Jpeg) != jpeg || !passes(f, pass))
            continue;
        if (best < 0 || previewFormatScore(f) < previewFormatScore(formats[best]))
            best = i;
    }
    return best;
}

} // namespace

int previewRoundedFps(const CaptureFormatDesc &format)
{
    return std::max(1, int(std::lround(format.maxFps)));
}

qint64 previewFormatScore(const CaptureFormatDesc &format)
{
    const int rate = previewRoundedFps(format);
    return qint64(format.width) * format.height * rate + kRatePenalty * std::abs(rate - kTargetFps);
}

int choosePreviewFormat(const QList<CaptureFormatDesc> &formats)
{
    for (const PreviewPass &pass : kPasses) {
        int chosen = bestInPass(formats, pass, false);
        if (chosen < 0)
            chosen = bestInPass(formats, pass, true);
        if (chosen >= 0)
            return chosen;
    }
    // Nothing small and slow: the smallest usable format, if any.
    int smallest = -1;
    for (int i = 0; i < formats.size(); ++i) {
        const CaptureFormatDesc &f = formats[i];
        if (!validSize(f) || f.width < kFallbackMinWidth || f.height < kFallbackMinHeight ||
            !fitsSides(f, kFallbackLongSide, kFallbackShortSide) ||
            previewRoundedFps(f) > kFallbackMaxFps)
            continue;
        if (smallest < 0 ||
            qint64(f.width) * f.height < qint64(formats[smallest].width) * formats[smallest].height)
            smallest = i;
    }
    return smallest;
}

bool previewFrameIsPainted(const PreviewPaintClock &clock, qint64 nowMs, qint64 frameMs)
{
    if (clock.lastPaintMs <= 0)
        return true;
    if (frameMs >= 0 && clock.lastPaintFrameMs >= 0)
        return frameMs < clock.lastPaintFrameMs ||
               frameMs - clock.lastPaintFrameMs >= kPreviewPaintIntervalMs;
    return nowMs - clock.lastPaintMs >= kPreviewPaintIntervalMs;
}

bool previewStreamHealthy(bool cameraActive, qint64 lastFrameMs, qint64 nowMs, qint64 maxAgeMs)
{
    return cameraActive && lastFrameMs > 0 && nowMs - lastFrameMs <= maxAgeMs;
}

PreviewFlashStep previewFlashStep(int counter)
{
    if (counter >= kFlashTicks)
        return {false, true};
    return {(counter + 1) % 2 == 0, false};
}

PreviewSlotDecision decidePreviewSlot(const PreviewSlotState &state)
{
    PreviewSlotDecision decision;
    if (state.slot >= state.cameraCount) {
        decision.action = PreviewSlotAction::Close;
        return decision;
    }
    decision.changed = !state.boundId.isEmpty() && state.boundId != state.cameraId;
    if (!state.mainId.isEmpty() && state.mainId == state.cameraId && state.mainHoldsCamera) {
        decision.action = PreviewSlotAction::Suppress;
        decision.newlySuppressed = !state.suppressed;
        return decision;
    }
    decision.suppressionLifted = state.suppressed;
    decision.reopen = state.force || decision.changed;
    decision.action =
        !decision.reopen && state.streaming ? PreviewSlotAction::Keep : PreviewSlotAction::Open;
    return decision;
}
