// The clip cache with 100,000 clips: its start against nothing but a parse of the index file by the
// JSON library, one more clip with its index write, and a hit.
//
// The index is some 40 MB. The library's parse takes about half a second; the start, which also lists
// the directory and builds the table, is expected to take a third of it, and a third of its memory. The
// index is written four times as fast as the library does it. A put is two synced file writes,
// tens of milliseconds for the index of 40 MB on an SSD; one within two seconds of the last is a
// single file write. A hit of 1 MB is a few microseconds from memory, and about 0.2 ms as a plain
// read of the file, which stands beside it.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include "bench/FilledCache.h"
#include "core/base/Json.h"
#include "core/platform/Files.h"
#include "core/platform/Memory.h"
#include "core/store/WavCache.h"

namespace zepho {
namespace {

// ZEPHO_BENCH_ENTRIES asks for another number.
int clipCount() {
    const char* const wanted = std::getenv("ZEPHO_BENCH_ENTRIES");
    return wanted == nullptr ? 100000 : std::atoi(wanted);
}

TtsResult clipOfSize(std::size_t size) {
    TtsResult clip;
    clip.wav = Bytes(size, 'w');
    clip.sampleRate = 44100;
    clip.durationMs = 4321;
    clip.voiceId = "8f14e45fceea167a5a36dedd4bea2543";
    clip.language = "zh";
    return clip;
}

// Made once for all benchmarks.
class FilledDirectory {
public:
    FilledDirectory()
        : dir((std::filesystem::temp_directory_path() / "zephon-bench-cache-").string()) {
        dir += std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) + "/";
        fillCacheDirectory(dir, clipCount());
    }
    ~FilledDirectory() { std::filesystem::remove_all(dir); }

    std::string dir;
};

const std::string& directory() {
    static const FilledDirectory filled;
    return filled.dir;
}

// "VmRSS" or "VmHWM" of this process, in bytes.
double memory(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(field)) return std::stod(line.substr(field.size() + 1)) * 1024;
    return 0;
}

// The most that this process holds beyond what it held at first.
class PeakMemory {
public:
    PeakMemory() {
        giveBackMemory();
        std::ofstream("/proc/self/clear_refs") << "5";  // lowers VmHWM to VmRSS
        base = memory("VmRSS");
    }
    [[nodiscard]] benchmark::Counter counter() const {
        return {memory("VmHWM") - base, benchmark::Counter::kDefaults, benchmark::Counter::kIs1024};
    }

private:
    double base = 0;
};

void start(benchmark::State& state) {
    const std::string& dir = directory();
    const PeakMemory peak;
    double resident = 0;
    for (auto _ : state) {
        const WavCache cache(dir, 0);
        benchmark::DoNotOptimize(cache.stats());
        resident = memory("VmRSS");
    }
    state.counters["VmRSS"] =
        benchmark::Counter(resident, benchmark::Counter::kDefaults, benchmark::Counter::kIs1024);
    state.counters["peak"] = peak.counter();
}
BENCHMARK(start)->Unit(benchmark::kMillisecond)->UseRealTime();

// With `pause`, each put falls into a new interval and writes the index as well.
void put(benchmark::State& state) {
    WavCache cache(directory(), 0);
    const TtsResult clip = clipOfSize(441044);
    const bool withIndex = state.range(0) != 0;
    int number = 0;
    for (auto _ : state) {
        if (withIndex) {
            state.PauseTiming();
            std::this_thread::sleep_for(std::chrono::milliseconds(2100));
            state.ResumeTiming();
        }
        cache.put("new" + std::to_string(++number), "one more", clip);
    }
    state.counters["VmHWM"] = benchmark::Counter(memory("VmHWM"), benchmark::Counter::kDefaults,
                                                 benchmark::Counter::kIs1024);
    for (; number > 0; --number)
        std::filesystem::remove(directory() + "new" + std::to_string(number) + ".wav");
}
BENCHMARK(put)->ArgName("index")->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(put)
    ->ArgName("index")
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(5);

void parseIndexOnly(benchmark::State& state) {
    const std::string path = directory() + "index.json";
    const PeakMemory peak;
    for (auto _ : state) {
        const auto bytes = loadFileBytes(path);
        benchmark::DoNotOptimize(Json::parse(bytes->begin(), bytes->end()));
    }
    state.counters["peak"] = peak.counter();
    state.counters["MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
}
BENCHMARK(parseIndexOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

// The whole index onto the disk, against the library's sorted and indented text of the same lines,
// written in the same way. Both again in memory only, which leaves out what the disk takes from either.
void writeIndexTo(benchmark::State& state, const std::string& path) {
    auto records = *loadCacheIndex(directory() + "index.json");
    // The cache's table goes over them about the wrong way round.
    std::reverse(records.begin(), records.end());
    for (auto _ : state) saveCacheIndex(path, records);
    std::filesystem::remove(path);
}

void writeIndexByLibraryTo(benchmark::State& state, const std::string& path) {
    Json index;
    {
        const auto bytes = loadFileBytes(directory() + "index.json");
        index = Json::parse(bytes->begin(), bytes->end());
    }
    for (auto _ : state) saveFileBytes(path, asBytes(index.dump(2)));
    std::filesystem::remove(path);
}

std::string fileInMemory() {
    return "/dev/shm/zephon-bench-" +
           lastPathComponent(directory().substr(0, directory().size() - 1));
}

void writeIndex(benchmark::State& state) {
    writeIndexTo(state, directory() + "written.json");
}
void writeIndexByLibrary(benchmark::State& state) {
    writeIndexByLibraryTo(state, directory() + "written.json");
}
void writeIndexInMemory(benchmark::State& state) {
    writeIndexTo(state, fileInMemory());
}
void writeIndexInMemoryByLibrary(benchmark::State& state) {
    writeIndexByLibraryTo(state, fileInMemory());
}
BENCHMARK(writeIndex)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(writeIndexByLibrary)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(writeIndexInMemory)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(writeIndexInMemoryByLibrary)->Unit(benchmark::kMillisecond)->UseRealTime();

constexpr std::size_t hitSize = 1 << 20;

void hit(benchmark::State& state) {
    const std::string dir = directory() + "hits/";
    {
        WavCache cache(dir, 0);
        cache.put("hit", "hit", clipOfSize(hitSize));
        // Young files are not trusted to tell of every change.
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        for (auto _ : state) benchmark::DoNotOptimize(cache.tryGet("hit"));
    }
    std::filesystem::remove_all(dir);
}
BENCHMARK(hit)->UseRealTime();

void readFileOnly(benchmark::State& state) {
    const std::string path = directory() + "plain.bin";
    saveFileBytes(path, Bytes(hitSize, 'w'));
    for (auto _ : state) benchmark::DoNotOptimize(loadFileBytes(path));
    std::filesystem::remove(path);
}
BENCHMARK(readFileOnly)->UseRealTime();

}  // namespace
}  // namespace zepho

BENCHMARK_MAIN();
