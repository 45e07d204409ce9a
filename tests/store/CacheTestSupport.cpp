#include "tests/store/CacheTestSupport.h"

#include <gtest/gtest.h>

#include "core/audio/PcmBuffer.h"
#include "core/diag/AppLog.h"
#include "core/platform/Files.h"

namespace zepho::test {

Bytes wavOfSize(std::size_t size, std::uint8_t fill) {
    PcmBuffer pcm;
    pcm.sampleRate = 8000;
    pcm.data.assign((size - 44) / 2, static_cast<float>(fill) / 256.0F);
    return buildWav(pcm, 1);
}

TtsResult clipOf(const Bytes& wav) {
    TtsResult result;
    result.wav = wav;
    result.sampleRate = 8000;
    result.channels = 1;
    result.durationMs = 77;
    result.synthMs = 1234;
    result.voiceId = "voice";
    result.language = "ja";
    result.gender = TtsGender::female;
    result.speed = 1.25F;
    result.engine = "engine";
    result.etag = "etag";
    return result;
}

void putClip(WavCache& cache, const std::string& key, std::size_t size, std::uint8_t fill) {
    cache.put(key, "text of " + key, clipOf(wavOfSize(size, fill)));
}

void writeFile(const std::string& path, std::string_view content) {
    saveFileBytes(path, asBytes(content));
}

std::string readFile(const std::string& path) {
    const auto bytes = loadFileBytes(path);
    return bytes ? std::string(asText(*bytes)) : std::string("(no file)");
}

std::vector<std::string> warnings() {
    std::vector<std::string> texts;
    for (const LogEntry& entry : AppLog::snapshot())
        if (entry.level == LogLevel::warn && entry.source == "cache") texts.push_back(entry.text);
    return texts;
}

void expectInvariants(const WavCache& cache) {
    std::int64_t sum = 0;
    const auto entries = cache.snapshot();
    for (const auto& [key, entry] : entries) {
        EXPECT_GE(entry.bytes, 0);
        sum += entry.bytes;
    }
    const CacheStats stats = cache.stats();
    EXPECT_EQ(stats.bytes, sum);
    EXPECT_EQ(stats.count, static_cast<std::int64_t>(entries.size()));
}

}  // namespace zepho::test
