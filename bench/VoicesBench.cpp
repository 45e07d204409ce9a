// A library of 2,000 voices. Expected: a look-up by id and a whole routing in a few microseconds,
// one by name in some tens.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "core/platform/Files.h"
#include "core/store/VoiceLibrary.h"

namespace {

using namespace zepho;

// ZEPHO_BENCH_VOICES asks for another number.
const int voiceCount = [] {
    const char* const wanted = std::getenv("ZEPHO_BENCH_VOICES");
    return wanted == nullptr ? 2000 : std::max(1, std::atoi(wanted));
}();

class Library {
public:
    Library() {
        const std::string file = directory + "voices.json";
        std::string text = R"({"voices":[)";
        for (int i = 0; i < voiceCount; ++i)
            text += (i == 0 ? "" : ",") + (R"({"id":")" + idOf(i) + R"(","display":"空港放送 )" +
                                           std::to_string(i) + R"(","clips":[{"file":"x.wav",)" +
                                           R"("text":"a transcript of a usual length"}]})");
        saveFileBytes(file, asBytes(text + "]}"));
        voices.load();
        std::filesystem::remove_all(directory);
        for (int i = 0; i < 500 && i * 4 < voiceCount; ++i)
            config.setAirlineVoice("A" + std::to_string(i), "", TtsGender::auto_, idOf(i * 4));
    }

    static std::string idOf(int i) { return "v-0123456789" + std::to_string(i); }

    AppConfig config;
    std::string directory = std::filesystem::temp_directory_path() / "zephon-bench-voices/";
    VoiceLibrary voices{config, directory + "voices.json", directory + "clone/"};
};

Library& library() {
    static Library made;
    return made;
}

void findById(benchmark::State& state) {
    VoiceLibrary& voices = library().voices;
    const std::string id = " V" + Library::idOf(voiceCount - 1).substr(1);
    for (auto _ : state) benchmark::DoNotOptimize(voices.find(id));
}
BENCHMARK(findById);

void findByDisplay(benchmark::State& state) {
    VoiceLibrary& voices = library().voices;
    for (auto _ : state) benchmark::DoNotOptimize(voices.findByDisplay("空港放送 1999"));
}
BENCHMARK(findByDisplay);

// The language's and the gender's own bindings are missing, so all four are looked up.
void routeAtLastStep(benchmark::State& state) {
    VoiceLibrary& voices = library().voices;
    TtsRequest request;
    request.airline = "A499";
    request.language = "zh";
    request.gender = TtsGender::female;
    for (auto _ : state) benchmark::DoNotOptimize(voices.resolve(request));
}
BENCHMARK(routeAtLastStep);

void listAll(benchmark::State& state) {
    VoiceLibrary& voices = library().voices;
    for (auto _ : state) benchmark::DoNotOptimize(voices.all());
}
BENCHMARK(listAll);

void removeFirst(benchmark::State& state) {
    std::vector<SharedVoice> shared;
    for (const VoiceInfo& voice : library().voices.all())
        shared.push_back(std::make_shared<const VoiceInfo>(voice));
    for (auto _ : state) {
        state.PauseTiming();
        VoiceList list(shared);
        state.ResumeTiming();
        benchmark::DoNotOptimize(list.remove(Library::idOf(0)));
    }
}
BENCHMARK(removeFirst);

}  // namespace

BENCHMARK_MAIN();
