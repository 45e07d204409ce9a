#include "bench/SpeedClip.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <utility>

#include "core/audio/WavReader.h"

namespace zepho::bench {
namespace {

Bytes makeClip() {
    PcmBuffer pcm;
    pcm.sampleRate = clipRate;
    pcm.data.resize(12 * clipRate);
    std::mt19937 random(7);
    std::uniform_real_distribution<float> noise(-1, 1);
    double phase = 0;
    for (std::size_t i = 0; i < pcm.data.size(); ++i) {
        const double t = static_cast<double>(i) / clipRate;
        const double pitch = 140 + 30 * std::sin(t * 1.7) + 10 * std::sin(t * 5.1);
        phase += 2 * M_PI * pitch / clipRate;
        const double syllable = std::fmod(t, 0.31) / 0.31;
        const double loudness = std::max(0.0, std::sin(syllable * M_PI * 1.25));
        double voice = 0;
        for (int k = 1; k <= 24; ++k) {
            const double f = k * pitch;
            const double formant = std::exp(-std::pow((f - 600) / 250, 2)) +
                                   0.5 * std::exp(-std::pow((f - 1700) / 400, 2)) + 0.03;
            voice += formant * std::sin(k * phase);
        }
        pcm.data[i] = static_cast<float>(loudness * (0.2 * voice + 0.02 * noise(random)));
    }
    return buildWav(pcm, 1);
}

}  // namespace

const Bytes& clip() {
    static const Bytes bytes = makeClip();
    return bytes;
}

std::vector<std::int16_t> clipSamples() {
    constexpr std::size_t headerSize = 44;
    std::vector<std::int16_t> samples((clip().size() - headerSize) / 2);
    std::memcpy(samples.data(), clip().data() + headerSize, samples.size() * 2);
    return samples;
}

std::vector<float> clipFloats() {
    return parseWav(clip())->data;
}

void writeFloats(std::vector<float> samples) {
    const PcmBuffer pcm{std::move(samples), clipRate};
    auto wav = buildWav(pcm, 1);
    benchmark::DoNotOptimize(wav.data());
}

float speedOf(const benchmark::State& state) {
    return static_cast<float>(state.range(0)) / 100;
}

void bothSpeeds(benchmark::internal::Benchmark* bench) {
    bench->Arg(125)->Arg(80)->Unit(benchmark::kMillisecond);
}

}  // namespace zepho::bench
