// Rubber Band changing the speed of the clip, in its offline form.
#include <algorithm>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <rubberband/RubberBandStretcher.h>

#include "bench/SpeedClip.h"

namespace zepho::bench {
namespace {

void rubberBand(benchmark::State& state) {
    clip();
    for (auto _ : state) {
        const std::vector<float> in = clipFloats();
        RubberBand::RubberBandStretcher stretcher(
            clipRate, 1, RubberBand::RubberBandStretcher::OptionProcessOffline,
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

BENCHMARK(rubberBand)->Apply(bothSpeeds);

}  // namespace
}  // namespace zepho::bench
