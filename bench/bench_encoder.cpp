// Encoder throughput: keyboard frames (press/release pairs over a rotating set of keys) and
// absolute mouse frames (a sweep over a 1920x1080 area), median of several runs.
#include <QElapsedTimer>
#include <QTextStream>

#include <algorithm>
#include <vector>

#include "bench/bench.h"
#include "protocol/ch9329.h"

namespace {

constexpr int kRuns = 9;
constexpr int kFramesPerRun = 2'000'000;

template<typename Body> double medianFramesPerSecond(Body body)
{
    std::vector<double> rates;
    for (int run = 0; run < kRuns; ++run) {
        QElapsedTimer timer;
        timer.start();
        const unsigned checksum = body();
        const double seconds = double(timer.nsecsElapsed()) / 1e9;
        rates.push_back(kFramesPerRun / seconds);
        if (checksum == 0xFFFFFFFFu) // keeps the work observable to the optimiser
            rates.back() = 0;
    }
    std::sort(rates.begin(), rates.end());
    return rates[rates.size() / 2];
}

void benchKeyFrames()
{
    static const int keys[] = {Qt::Key_A,  Qt::Key_Shift, '!', Qt::Key_Return,
                               Qt::Key_F5, Qt::Key_Left,  '/', Qt::Key_Control};
    const double rate = medianFramesPerSecond([] {
        uint8_t out[kCh9329KeyFrameSize];
        unsigned sum = 0;
        for (int i = 0; i < kFramesPerRun; ++i) {
            key_convert(0, keys[(i >> 1) & 7], i & 1, out);
            sum += out[13];
        }
        return sum;
    });
    QTextStream(stdout) << "key frames/s (median of " << kRuns
                        << "): " << QString::number(rate / 1e6, 'f', 1) << " M\n";
}

void benchMouseFrames()
{
    const double rate = medianFramesPerSecond([] {
        const uint16_t size[2] = {1920, 1080};
        uint8_t out[kCh9329MouseFrameSize];
        unsigned sum = 0;
        for (int i = 0; i < kFramesPerRun; ++i) {
            const uint16_t point[2] = {uint16_t(i % 1920), uint16_t((i / 1920) % 1080)};
            coord_convert(0, 0, size, point, uint8_t(i & 1), 0, out);
            sum += out[12];
        }
        return sum;
    });
    QTextStream(stdout) << "mouse frames/s (median of " << kRuns
                        << "): " << QString::number(rate / 1e6, 'f', 1) << " M\n";
}

} // namespace

TAVROKVM_BENCH("encoder: key frames", benchKeyFrames);
TAVROKVM_BENCH("encoder: mouse frames", benchMouseFrames);
