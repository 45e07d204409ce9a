#include "core/audio/SpeedChange.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "core/audio/SampleKernels.h"
#include "core/audio/SimilaritySearch.h"

namespace zepho {
namespace {

// A speed that is not a number counts as 1 too.
float clampedSpeed(float speed) {
    return speed > 0 ? std::clamp(speed, 0.5F, 2.0F) : 1.0F;
}

std::size_t roundedRatio(std::size_t count, float divisor) {
    return static_cast<std::size_t>(std::llround(static_cast<float>(count) / divisor));
}

std::size_t roundedProduct(float value, float factor) {
    return static_cast<std::size_t>(std::llround(value * factor));
}

// The sizes of a stretch, in samples.
struct StretchSizes {
    StretchSizes(int sampleRate, float speed) {
        const auto rate = static_cast<float>(sampleRate);
        frame = std::max<std::size_t>(roundedProduct(rate, 0.04F), 128);
        hopOut = frame / 2;
        hopIn = std::max<std::size_t>(roundedProduct(speed, static_cast<float>(hopOut)), 1);
        search = std::max<std::size_t>(roundedProduct(rate, 0.008F), 1);
    }
    std::size_t frame;   // 40 ms
    std::size_t hopOut;  // frames overlap by half
    std::size_t hopIn;
    std::size_t search;  // 8 ms to each side
};

// The start of the frame that continues best what lies at `laid`, near `inPos`.
std::size_t bestFrame(const std::vector<float>& in, std::size_t inPos, const float* laid,
                      const StretchSizes& sizes, SimilaritySearch& similarity) {
    const std::size_t first = inPos - std::min(inPos, sizes.search);
    const std::size_t last = std::min(inPos + sizes.search, in.size() - sizes.hopOut);
    return similarity.best(in, first, last - first + 1, laid, inPos);
}

}  // namespace

PcmBuffer changeSpeed(PcmBuffer pcm, float speed, TtsSpeedMode mode) {
    return mode == TtsSpeedMode::localResample ? changeSpeedByResample(std::move(pcm), speed)
                                               : timeStretch(std::move(pcm), speed);
}

PcmBuffer timeStretch(PcmBuffer pcm, float speed) {
    speed = clampedSpeed(speed);
    if (pcm.isEmpty() || pcm.sampleRate < 1 || std::abs(speed - 1) < 0.01F) return pcm;
    const std::vector<float>& in = pcm.data;
    const std::size_t count = in.size();
    const StretchSizes sizes(pcm.sampleRate, speed);
    if (count < sizes.frame + 2 * sizes.search) return changeSpeedByResample(std::move(pcm), speed);

    const std::vector<float> window = makeHann(sizes.frame);
    const std::size_t outLen = roundedRatio(count, speed) + sizes.frame;
    std::vector<float> out(outLen);
    SimilaritySearch similarity(sizes.hopOut, 2 * sizes.search + 1);
    std::size_t inPos = 0;
    std::size_t outPos = 0;
    while (inPos + sizes.frame + sizes.search < count && outPos + sizes.frame <= outLen) {
        const std::size_t best =
            outPos == 0 ? 0 : bestFrame(in, inPos, out.data() + outPos, sizes, similarity);
        addWindowed(in.data() + best, window.data(), sizes.frame, out.data() + outPos);
        outPos += sizes.hopOut;
        inPos += sizes.hopIn;
    }
    out.resize(std::min(outLen, outPos + sizes.hopOut));
    pcm.data = std::move(out);
    return pcm;
}

PcmBuffer changeSpeedByResample(PcmBuffer pcm, float speed) {
    speed = clampedSpeed(speed);
    if (pcm.isEmpty() || std::abs(speed - 1) < 0.001F) return pcm;
    const std::size_t outLen = std::max<std::size_t>(roundedRatio(pcm.data.size(), speed), 1);
    pcm.data = interpolate(pcm.data, outLen, speed);
    return pcm;
}

PcmBuffer resample(PcmBuffer pcm, int targetRate) {
    if (targetRate < 1 || pcm.sampleRate < 1 || targetRate == pcm.sampleRate) return pcm;
    const float step = static_cast<float>(pcm.sampleRate) / static_cast<float>(targetRate);
    if (!pcm.isEmpty()) {
        const std::size_t outLen = std::max<std::size_t>(roundedRatio(pcm.data.size(), step), 1);
        pcm.data = interpolate(pcm.data, outLen, step);
    }
    pcm.sampleRate = targetRate;
    return pcm;
}

void applyGain(PcmBuffer& pcm, float gain) {
    if (std::abs(gain - 1) < 0.001F) return;
    for (float& sample : pcm.data) sample *= gain;
}

void peakNormalize(PcmBuffer& pcm, float targetPeak) {
    float peak = 0;
    for (const float sample : pcm.data) peak = std::max(peak, std::abs(sample));
    if (peak < 1e-5F) return;
    applyGain(pcm, targetPeak / peak);
}

std::vector<float> makeHann(std::size_t n) {
    if (n == 1) return {1.0F};
    std::vector<float> window(n);
    for (std::size_t i = 0; i < n; ++i) {
        const float turn = static_cast<float>(i) * 6.283185F / static_cast<float>(n - 1);
        window[i] = (1 - std::cos(turn)) * 0.5F;
    }
    return window;
}

std::vector<float> interpolate(const std::vector<float>& samples, std::size_t outLen, float step) {
    if (samples.empty() || outLen == 0) return {};
    std::vector<float> out(outLen);
    for (std::size_t k = 0; k < outLen; ++k) {
        const float pos = step * static_cast<float>(k);
        const auto j = static_cast<std::size_t>(pos);
        const float f = pos - static_cast<float>(j);
        out[k] =
            j + 1 < samples.size() ? (1 - f) * samples[j] + f * samples[j + 1] : samples.back();
    }
    return out;
}

}  // namespace zepho
