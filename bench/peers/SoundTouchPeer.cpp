// SoundTouch changing the speed of the clip: with its own settings, and with frames like ours.
#include <algorithm>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <soundtouch/SoundTouch.h>

#include "bench/SpeedClip.h"

namespace zepho::bench {
namespace {

void soundTouch(benchmark::State& state, bool framesLikeOurs) {
    clip();
    for (auto _ : state) {
        soundtouch::SoundTouch touch;
        touch.setSampleRate(clipRate);
        touch.setChannels(1);
        touch.setTempo(static_cast<double>(speedOf(state)));
        if (framesLikeOurs) {
            touch.setSetting(SETTING_SEQUENCE_MS, 40);
            touch.setSetting(SETTING_SEEKWINDOW_MS, 16);
            touch.setSetting(SETTING_OVERLAP_MS, 20);
        }
        const std::vector<float> in = clipFloats();
        std::vector<float> out(static_cast<std::size_t>(in.size() / speedOf(state)) + clipRate);
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

BENCHMARK_CAPTURE(soundTouch, default, false)->Apply(bothSpeeds);
BENCHMARK_CAPTURE(soundTouch, framesLikeOurs, true)->Apply(bothSpeeds);

}  // namespace
}  // namespace zepho::bench
