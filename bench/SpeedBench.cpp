// How long a speed change of a 12 s clip (44.1 kHz, mono) takes, from 16-bit WAV bytes to 16-bit WAV
// bytes, beside what other libraries need for the same samples.
//
// Expected on one core with AVX-512: 2 to 4 ms, of which reading and writing take 0.2 ms. That is
// about five times as fast as SoundTouch with its default settings and as sonic, fifteen times as
// fast as SoundTouch with frames like ours (40 ms sequence, 16 ms search), and sixty times or more as
// fast as Rubber Band offline. Look at the CPU column: the other one tells what else the machine did.

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "core/audio/PcmBuffer.h"
#include "core/audio/SpeedChange.h"
#include "core/audio/WavReader.h"

#ifdef ZEPHO_WITH_SOUNDTOUCH
#include <soundtouch/SoundTouch.h>
#endif
#ifdef ZEPHO_WITH_SONIC
#include <sonic.h>
#endif
#ifdef ZEPHO_WITH_RUBBERBAND
#include <rubberband/RubberBandStretcher.h>
#endif

namespace {

constexpr int rate = 44100;
constexpr std::size_t headerSize = 44;

// Syllables of a gliding voice with formants and a little noise, with pauses between them.
zepho::Bytes makeClip() {
    zepho::PcmBuffer pcm;
    pcm.sampleRate = rate;
    pcm.data.resize(12 * rate);
    std::mt19937 random(7);
    std::uniform_real_distribution<float> noise(-1, 1);
    double phase = 0;
    for (std::size_t i = 0; i < pcm.data.size(); ++i) {
        const double t = static_cast<double>(i) / rate;
        const double pitch = 140 + 30 * std::sin(t * 1.7) + 10 * std::sin(t * 5.1);
        phase += 2 * M_PI * pitch / rate;
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
    return zepho::buildWav(pcm, 1);
}

const zepho::Bytes& clip() {
    static const zepho::Bytes bytes = makeClip();
    return bytes;
}

float speedOf(const benchmark::State& state) {
    return static_cast<float>(state.range(0)) / 100;
}

void stretch(benchmark::State& state) {
    clip();
    for (auto _ : state) {
        auto pcm = zepho::parseWav(clip());
        auto wav = zepho::buildWav(zepho::timeStretch(std::move(*pcm), speedOf(state)), 1);
        benchmark::DoNotOptimize(wav.data());
    }
}

void readAndWrite(benchmark::State& state) {
    clip();
    for (auto _ : state) {
        auto wav = zepho::buildWav(*zepho::parseWav(clip()), 1);
        benchmark::DoNotOptimize(wav.data());
    }
}

// What the peers are given and give back: 16-bit samples, converted on both sides where they need
// floats.
std::vector<std::int16_t> clipSamples() {
    std::vector<std::int16_t> samples((clip().size() - headerSize) / 2);
    std::memcpy(samples.data(), clip().data() + headerSize, samples.size() * 2);
    return samples;
}

#if defined(ZEPHO_WITH_SOUNDTOUCH) || defined(ZEPHO_WITH_RUBBERBAND)
std::vector<float> clipFloats() {
    return zepho::parseWav(clip())->data;
}

void writeFloats(std::vector<float> samples) {
    zepho::PcmBuffer pcm{std::move(samples), rate};
    auto wav = zepho::buildWav(pcm, 1);
    benchmark::DoNotOptimize(wav.data());
}
#endif

#ifdef ZEPHO_WITH_SOUNDTOUCH
void soundTouch(benchmark::State& state, bool framesLikeOurs) {
    clip();
    for (auto _ : state) {
        soundtouch::SoundTouch touch;
        touch.setSampleRate(rate);
        touch.setChannels(1);
        touch.setTempo(static_cast<double>(speedOf(state)));
        if (framesLikeOurs) {
            touch.setSetting(SETTING_SEQUENCE_MS, 40);
            touch.setSetting(SETTING_SEEKWINDOW_MS, 16);
            touch.setSetting(SETTING_OVERLAP_MS, 20);
        }
        const std::vector<float> in = clipFloats();
        std::vector<float> out(static_cast<std::size_t>(in.size() / speedOf(state)) + rate);
        std::size_t used = 0;
        const auto drain = [&] {
            while (const auto got = touch.receiveSamples(out.data() + used,
                                                         static_cast<unsigned>(out.size() - used)))
                used += got;
        };
        constexpr std::size_t block = 4096;
        for (std::size_t at = 0; at < in.size(); at += block) {
            touch.putSamples(in.data() + at,
                             static_cast<unsigned>(std::min(block, in.size() - at)));
            drain();
        }
        touch.flush();
        drain();
        out.resize(used);
        writeFloats(std::move(out));
    }
}
#endif

#ifdef ZEPHO_WITH_SONIC
void sonic(benchmark::State& state) {
    clip();
    for (auto _ : state) {
        sonicStream stream = sonicCreateStream(rate, 1);
        sonicSetSpeed(stream, speedOf(state));
        std::vector<std::int16_t> in = clipSamples();
        sonicWriteShortToStream(stream, in.data(), static_cast<int>(in.size()));
        sonicFlushStream(stream);
        std::vector<std::int16_t> out(static_cast<std::size_t>(sonicSamplesAvailable(stream)));
        sonicReadShortFromStream(stream, out.data(), static_cast<int>(out.size()));
        benchmark::DoNotOptimize(out.data());
        sonicDestroyStream(stream);
    }
}
#endif

#ifdef ZEPHO_WITH_RUBBERBAND
void rubberBand(benchmark::State& state) {
    clip();
    for (auto _ : state) {
        const std::vector<float> in = clipFloats();
        RubberBand::RubberBandStretcher stretcher(
            rate, 1, RubberBand::RubberBandStretcher::OptionProcessOffline,
            1.0 / static_cast<double>(speedOf(state)));
        const float* channels[] = {in.data()};
        stretcher.setMaxProcessSize(in.size());
        stretcher.study(channels, in.size(), true);
        stretcher.process(channels, in.size(), true);
        std::vector<float> out(static_cast<std::size_t>(std::max(stretcher.available(), 0)));
        float* outs[] = {out.data()};
        out.resize(stretcher.retrieve(outs, out.size()));
        writeFloats(std::move(out));
    }
}
#endif

// Percent of the normal speed.
void speeds(benchmark::internal::Benchmark* bench) {
    bench->Arg(125)->Arg(80)->Unit(benchmark::kMillisecond);
}

BENCHMARK(stretch)->Apply(speeds);
BENCHMARK(readAndWrite)->Unit(benchmark::kMillisecond);
#ifdef ZEPHO_WITH_SOUNDTOUCH
BENCHMARK_CAPTURE(soundTouch, default, false)->Apply(speeds);
BENCHMARK_CAPTURE(soundTouch, framesLikeOurs, true)->Apply(speeds);
#endif
#ifdef ZEPHO_WITH_SONIC
BENCHMARK(sonic)->Apply(speeds);
#endif
#ifdef ZEPHO_WITH_RUBBERBAND
BENCHMARK(rubberBand)->Apply(speeds);
#endif

}  // namespace

BENCHMARK_MAIN();
