// The placeholder voice speaking one announcement of about 12 seconds, against plain code for the
// same samples and against a small real synthesiser, espeak-ng, started for the line as a program.
//
// Expected: with AVX2 about ten thousand times real time (a millisecond for the line), ten times as
// fast as the plain loop over std::sin; espeak-ng some hundred times real time, the start of
// its process included. The counter is the speed in multiples of real time.
#include <cstdio>
#include <cstdlib>
#include <string>

#include <benchmark/benchmark.h>

#include "core/engine/PlaceholderEngine.h"
#include "tests/engine/PlaceholderReference.h"

namespace {

const std::string chinese =
    "各位旅客请注意，您乘坐的前往东京成田机场的航班现在开始登机，请您带好随身物品，"
    "出示登机牌，由二十七号登机口上飞机。祝您旅途愉快，谢谢！";
const std::string english =
    "Good afternoon. Flight one three zero one to Tokyo Narita is now boarding at gate twenty seven. "
    "Please have your boarding pass and passport ready.";

const std::string& lineOf(const benchmark::State& state) {
    return state.range(0) == 0 ? chinese : english;
}

double secondsOf(const zepho::PcmBuffer& pcm) {
    return static_cast<double>(pcm.data.size()) / pcm.sampleRate;
}

void reportSpeed(benchmark::State& state, double seconds) {
    state.SetLabel(state.range(0) == 0 ? "Chinese" : "English");
    state.counters["audio_s"] = seconds;
    state.counters["x_real_time"] =
        benchmark::Counter(seconds, benchmark::Counter::kIsIterationInvariantRate);
}

void placeholder(benchmark::State& state) {
    zepho::PlaceholderEngine engine{zepho::EngineOptions()};
    zepho::S2Params params;
    params.text = lineOf(state);
    double seconds = 0;
    for (auto step : state) {
        const zepho::PcmBuffer pcm = engine.synthesize(params, zepho::VoiceHint());
        benchmark::DoNotOptimize(pcm.data.data());
        seconds = secondsOf(pcm);
    }
    reportSpeed(state, seconds);
}

void plainLoop(benchmark::State& state) {
    double seconds = 0;
    for (auto step : state) {
        const zepho::PcmBuffer pcm =
            zepho::test::placeholderReference(lineOf(state), zepho::TtsGender::auto_, 0);
        benchmark::DoNotOptimize(pcm.data.data());
        seconds = secondsOf(pcm);
    }
    reportSpeed(state, seconds);
}

// Speaks at its own pace: the length of its audio is taken from the size of the WAV it prints.
void espeak(benchmark::State& state) {
    const std::string program = "espeak-ng -v " + std::string(state.range(0) == 0 ? "cmn" : "en") +
                                " --stdout '" + lineOf(state) + "'";
    if (std::system("command -v espeak-ng >/dev/null") != 0) {
        state.SkipWithError("espeak-ng is not installed");
        return;
    }
    std::size_t bytes = 0;
    if (FILE* pipe = ::popen((program + " | wc -c").c_str(), "r"); pipe != nullptr) {
        if (std::fscanf(pipe, "%zu", &bytes) != 1) bytes = 0;
        ::pclose(pipe);
    }
    const std::string quiet = program + " >/dev/null";
    for (auto step : state)
        if (std::system(quiet.c_str()) != 0) state.SkipWithError("espeak-ng failed");
    reportSpeed(state, static_cast<double>(bytes) / 2 / 22050);
}

BENCHMARK(placeholder)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(plainLoop)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(espeak)->DenseRange(0, 1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
