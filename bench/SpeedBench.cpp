// How long a speed change of a 12 s clip (44.1 kHz, mono) takes, from 16-bit WAV bytes to 16-bit WAV
// bytes, beside what other libraries need for the same samples (bench/peers).
//
// Expected on one core with AVX-512: 2 to 4 ms, of which reading and writing take 0.2 ms. That is
// about five times as fast as SoundTouch with its default settings and as sonic, fifteen times as
// fast as SoundTouch with frames like ours (40 ms sequence, 16 ms search), and sixty times or more as
// fast as Rubber Band offline. Look at the CPU column: the other one tells what else the machine did.

#include <utility>

#include <benchmark/benchmark.h>

#include "bench/SpeedClip.h"
#include "core/audio/PcmBuffer.h"
#include "core/audio/SpeedChange.h"
#include "core/audio/WavReader.h"

namespace zepho::bench {
namespace {

void stretch(benchmark::State& state) {
    clip();
    for (auto _ : state) {
        auto pcm = parseWav(clip());
        auto wav = buildWav(timeStretch(std::move(*pcm), speedOf(state)), 1);
        benchmark::DoNotOptimize(wav.data());
    }
}

void readAndWrite(benchmark::State& state) {
    clip();
    for (auto _ : state) {
        auto wav = buildWav(*parseWav(clip()), 1);
        benchmark::DoNotOptimize(wav.data());
    }
}

BENCHMARK(stretch)->Apply(bothSpeeds);
BENCHMARK(readAndWrite)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zepho::bench

BENCHMARK_MAIN();
