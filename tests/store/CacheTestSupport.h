// Clips, files and log lines for the tests of the clip cache.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/audio/PcmBuffer.h"
#include "core/diag/AppLog.h"
#include "core/platform/Files.h"
#include "core/store/WavCache.h"
#include "tests/support/TempDir.h"

namespace zepho::test {

// A WAV file of exactly `size` bytes, an even number from 46 on; `fill` tells two of them apart.
inline Bytes wavOfSize(std::size_t size, int fill = 1) {
    PcmBuffer pcm;
    pcm.sampleRate = 8000;
    pcm.data.assign((size - 44) / 2, static_cast<float>(fill) / 256.0F);
    return buildWav(pcm, 1);
}

inline void putClip(WavCache& cache, const std::string& key, std::size_t size, int fill = 1) {
    TtsResult clip;
    clip.wav = wavOfSize(size, fill);
    cache.put(key, "text of " + key, clip);
}

inline void writeFile(const std::string& path, std::string_view content) {
    saveFileBytes(path, asBytes(content));
}

inline std::string readFile(const std::string& path) {
    const auto bytes = loadFileBytes(path);
    return bytes ? std::string(asText(*bytes)) : "(no file)";
}

inline std::vector<std::string> warnings() {
    std::vector<std::string> texts;
    for (const LogEntry& entry : AppLog::snapshot())
        if (entry.level == LogLevel::warn && entry.source == "cache") texts.push_back(entry.text);
    return texts;
}

// The statistics against the sum of the entries.
inline void expectInvariants(const WavCache& cache) {
    std::int64_t sum = 0;
    const auto entries = cache.snapshot();
    for (const auto& [key, entry] : entries) {
        EXPECT_GE(entry.bytes, 0);
        sum += entry.bytes;
    }
    EXPECT_EQ(cache.stats().bytes, sum);
    EXPECT_EQ(cache.stats().count, static_cast<std::int64_t>(entries.size()));
}

}  // namespace zepho::test
