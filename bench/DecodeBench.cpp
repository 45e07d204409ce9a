// Decoding a clip of ten seconds at 44.1 kHz: in the helper program, against the bare decoder in
// this process. The bare decoder takes about 5 ms for mono and 8 ms for stereo on a 2.6 GHz core;
// the helper should add no more than two milliseconds. Half a millisecond of them is its start and
// end, which the last line shows alone, a clip that is given up at once. Most of the rest is that its
// caches are cold: the samples are taken over while it decodes. A machine with other work distorts
// all that waits for the helper.
#include <benchmark/benchmark.h>

#include "core/audio/ClipDecoding.h"
#include "helper/DecoderEntries.h"
#include "tests/tools/EncodedClips.h"

namespace zepho {
namespace {

constexpr int rate = 44100;
constexpr std::size_t tenSeconds = 441'000;

const Bytes& clip(DecoderEntry entry, int channels) {
    const auto make = [](DecoderEntry kind, int count) {
        const Bytes wav = test::toneWav(rate, count, tenSeconds);
        return kind == DecoderEntry::mp3 ? test::encodeMp3(wav) : test::encodeVorbis(wav);
    };
    static const Bytes clips[] = {make(DecoderEntry::mp3, 1), make(DecoderEntry::mp3, 2),
                                  make(DecoderEntry::ogg, 1), make(DecoderEntry::ogg, 2)};
    return clips[(entry == DecoderEntry::mp3 ? 0 : 2) + channels - 1];
}

void inHelper(benchmark::State& state, DecoderEntry entry) {
    const Bytes& bytes = clip(entry, static_cast<int>(state.range(0)));
    for (auto step : state) {
        std::int32_t status = 0;
        const std::optional<PcmBuffer> pcm = callDecoder(entry, bytes, status);
        if (!pcm || pcm->data.size() != tenSeconds) state.SkipWithError("not decoded");
    }
}

void inProcess(benchmark::State& state, DecoderEntry entry) {
    const Bytes& bytes = clip(entry, static_cast<int>(state.range(0)));
    const auto decode = entry == DecoderEntry::mp3 ? zepho_mp3_decode : zepho_ogg_decode;
    for (auto step : state) {
        float* samples = nullptr;
        std::uint64_t frames = 0;
        std::uint32_t hertz = 0;
        if (decode(bytes.data(), bytes.size(), &samples, &frames, &hertz) != 1)
            state.SkipWithError("not decoded");
        const PcmBuffer pcm{{samples, samples + frames}, static_cast<int>(hertz)};
        benchmark::DoNotOptimize(pcm.data.data());
        zepho_audio_free(samples);
    }
}

void refusedInHelper(benchmark::State& state) {
    const Bytes bytes = toBytes("OggS and nothing else");
    for (auto step : state) {
        std::int32_t status = 0;
        benchmark::DoNotOptimize(callDecoder(DecoderEntry::ogg, bytes, status));
    }
}

BENCHMARK_CAPTURE(inHelper, mp3, DecoderEntry::mp3)->DenseRange(1, 2)->UseRealTime();
BENCHMARK_CAPTURE(inProcess, mp3, DecoderEntry::mp3)->DenseRange(1, 2)->UseRealTime();
BENCHMARK_CAPTURE(inHelper, ogg, DecoderEntry::ogg)->DenseRange(1, 2)->UseRealTime();
BENCHMARK_CAPTURE(inProcess, ogg, DecoderEntry::ogg)->DenseRange(1, 2)->UseRealTime();
BENCHMARK(refusedInHelper)->UseRealTime();

}  // namespace
}  // namespace zepho

BENCHMARK_MAIN();
