// sonic changing the speed of the clip, 16-bit samples on both sides.
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>
#include <sonic.h>

#include "bench/SpeedClip.h"

namespace zepho::bench {
namespace {

void sonic(benchmark::State& state) {
    clip();
    for (auto _ : state) {
        sonicStream stream = sonicCreateStream(clipRate, 1);
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

BENCHMARK(sonic)->Apply(bothSpeeds);

}  // namespace
}  // namespace zepho::bench
