// Exporting a pack of 50 MB of WAV clips, disk included, against `zip -6` as a process over the same
// files, and reading such an archive back, against `unzip`.
//
// Expected: one core deflates about 65 MB/s, two and a half times as fast as zip; the export uses two
// cores where they are free and is then four times as fast. The archive (counter "ratio", archive to
// content) is no larger than zip's. Reading gives about 400 MB/s, three times unzip. A bomb of 600 MB
// is refused within half a second. ZEPHO_BENCH_CLIPS names a directory of other clips to pack: noise is
// stored without an attempt at it, at about twice the pace of `zip -0`.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "core/audio/PcmBuffer.h"
#include "core/config/AppConfig.h"
#include "core/pack/ClonePack.h"
#include "core/pack/ZipFormat.h"
#include "core/pack/ZipReader.h"
#include "core/pack/ZipWriter.h"
#include "core/platform/Files.h"
#include "core/store/VoiceLibrary.h"
#include "tests/pack/ZipForge.h"
#include "tests/support/TempDir.h"

namespace {

using namespace zepho;

// Speech as a compressor sees it: a gliding voice of a dozen partials in syllables, pauses between
// the words, and breath noise over all of it.
Bytes speechLikeWav(std::uint32_t number) {
    constexpr int rate = 44100;
    constexpr int samples = 14 * rate;
    std::mt19937 random(number + 1);
    std::normal_distribution<float> breath(0.0F, 12.0F);
    PcmBuffer pcm;
    pcm.sampleRate = rate;
    pcm.data.resize(samples);
    double phase = 0;
    const double pitch = 100 + 15 * (number % 9);
    for (int i = 0; i < samples; ++i) {
        const double t = static_cast<double>(i) / rate;
        phase += 2 * std::numbers::pi * pitch * (1 + 0.1 * std::sin(2.1 * t)) / rate;
        const bool pause = std::fmod(t + 0.1 * number, 2.7) > 2.2;
        const double syllable = pause ? 0 : std::pow(std::fabs(std::sin(9 * t + number)), 1.5);
        double voice = 0;
        for (int partial = 1; partial <= 12; ++partial)
            voice += std::sin(partial * phase) / (partial + 2 * std::sin(3 * t + partial));
        const double value = 5000 * syllable * voice + breath(random);
        pcm.data[static_cast<std::size_t>(i)] =
            static_cast<float>(std::fmax(-32768.0, std::fmin(32767.0, value)) / 32768);
    }
    return buildWav(pcm, 1);
}

// A library of one voice whose clips are on disk, made once for all benchmarks.
struct Clips {
    Clips() {
        if (const char* given = std::getenv("ZEPHO_BENCH_CLIPS"); given != nullptr) {
            for (const auto& file : std::filesystem::directory_iterator(given))
                if (const auto bytes = loadFileBytes(file.path().string()))
                    add(file.path().filename().string(), *bytes);
        } else {
            for (std::uint32_t number = 0; number < 42; ++number)
                add("v-" + std::to_string(number) + "-0.wav", speechLikeWav(number));
        }
        const std::string list = R"({"voices":[{"id":"v","clips":[)" + entries + "]}]}";
        saveFileBytes(temporary.path() + "voices.json", asBytes(list));
        library.load();
    }
    void add(const std::string& name, ByteView bytes) {
        saveFileBytes(directory + name, bytes);
        entries += (entries.empty() ? "" : ",") + (R"({"file":")" + name + R"(","text":"t"})");
        total += static_cast<std::int64_t>(bytes.size());
    }
    [[nodiscard]] std::string archive(const std::string& name) const {
        return temporary.path() + name;
    }

    test::TempDir temporary;
    std::string directory = temporary.path() + "clips/";
    std::string entries;
    std::int64_t total = 0;
    AppConfig config;
    VoiceLibrary library{config, temporary.path() + "voices.json", directory};
};

const Clips& clips() {
    static const Clips made;
    return made;
}

void report(benchmark::State& state, const std::string& archive) {
    state.SetBytesProcessed(state.iterations() * clips().total);
    const auto size = static_cast<double>(std::filesystem::file_size(archive));
    state.counters["ratio"] = size / static_cast<double>(clips().total);
}

std::string exportedPack(const std::string& name) {
    std::string archive = clips().archive(name);
    const PackSummary summary = exportVoicePack(archive, {"v"}, clips().library);
    if (summary.bytes != clips().total) std::abort();
    return archive;
}

void ourExport(benchmark::State& state) {
    std::string archive;
    for (auto step : state) archive = exportedPack("ours.cln");
    report(state, archive);
}

// The same without the second thread and without the disk.
void oneThread(benchmark::State& state) {
    const std::string archive = exportedPack("ours.cln");
    const ZipReader reader(archive);
    std::vector<ZipEntry> entries;
    for (const std::string& name : reader.names()) entries.push_back({name, reader.read(name)});
    for (auto step : state) {
        ZipWriter writer;
        for (const ZipEntry& entry : entries) writer.add(entry.name, entry.data);
        benchmark::DoNotOptimize(writer.finish().data());
    }
    report(state, archive);
}

void zip6(benchmark::State& state) {
    const std::string archive = clips().archive("theirs.zip");
    const std::string command =
        "rm -f " + archive + " && cd " + clips().directory + " && zip -q -6 -r " + archive + " .";
    for (auto step : state)
        if (std::system(command.c_str()) != 0) return state.SkipWithError("zip is not installed");
    report(state, archive);
}

void ourReading(benchmark::State& state) {
    const std::string archive = exportedPack("read.cln");
    for (auto step : state) {
        const ZipReader reader(archive);
        for (const std::string& name : reader.names())
            benchmark::DoNotOptimize(reader.read(name).data());
    }
    report(state, archive);
}

void unzip(benchmark::State& state) {
    const std::string archive = exportedPack("unzip.cln");
    const std::string command = "unzip -q -p " + archive + " >/dev/null";
    for (auto step : state)
        if (std::system(command.c_str()) != 0) return state.SkipWithError("unzip is not installed");
    report(state, archive);
}

BENCHMARK(ourExport)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(oneThread)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(zip6)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ourReading)->Unit(benchmark::kMillisecond)->UseRealTime();
// What a stranger's archive may cost before it is refused: 64 KB that claim 1 byte and hold 64 MB,
// and 610 KB that hold 600 MB.
void refusedBomb(benchmark::State& state) {
    const Bytes stream = test::zeroBomb(static_cast<std::uint64_t>(state.range(0)) << 20);
    const ZipReader reader(test::forgeZip({{"bomb", stream, 8, 1}}));
    for (auto step : state) {
        try {
            benchmark::DoNotOptimize(reader.read("bomb").data());
            if (state.range(0) > 64) state.SkipWithError("not refused");
        } catch (const ZipError&) {
        }
    }
}

BENCHMARK(refusedBomb)->Arg(64)->Arg(600)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(unzip)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    clips();  // not on anybody's clock
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
