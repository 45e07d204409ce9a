// Feeds any bytes to the WAV reader and the header probe, and checks what they make of them.

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "core/audio/AudioSniffing.h"
#include "core/audio/SampleKernels.h"
#include "core/audio/WavReader.h"
#include "core/platform/Require.h"

namespace {

using zepho::require;

void checkParsed(zepho::ByteView bytes) {
    const auto wav = zepho::parseWavWithFormat(bytes);
    const std::int64_t duration = zepho::wavDurationMs(bytes);
    if (!wav) {
        require(duration == 0, "a duration without samples");
        return;
    }
    const zepho::WavFormat& format = wav->format;
    require(format.channels >= 1 && format.sampleRate >= 1, "a format without channels or rate");
    require(format.bitsPerSample == 8 || format.bitsPerSample == 16 || format.bitsPerSample == 24 ||
                format.bitsPerSample == 32,
            "a depth that nothing decodes");
    require(wav->pcm.sampleRate == format.sampleRate, "two rates");
    const auto frameSize = static_cast<std::size_t>(format.channels) *
                           static_cast<std::size_t>(format.bitsPerSample / 8);
    const auto frames = wav->pcm.data.size();
    require(frames >= 1 && frames * frameSize <= bytes.size() - 44, "more samples than bytes");
    require(wav->pcm.data.capacity() == frames, "more room than samples");
    require(duration >= 0 && duration == wav->pcm.durationMs(), "two durations");
    for (const float sample : wav->pcm.data) {
        require(std::abs(sample) <= zepho::loudestSample, "a sample that is none");
        require(format.bitsPerSample == 32 || std::abs(sample) <= 1, "an integer sample beyond 1");
    }
}

void checkProbed(zepho::ByteView head, std::int64_t fileSize) {
    const auto header = zepho::parseWavHeader(head, fileSize);
    if (!header) return;
    require(zepho::looksLikeWav(head), "a header of something else");
    require(header->sampleRate >= 1 && header->sampleRate <= 0xFFFFFFFF, "no rate");
    require(header->durationMs >= 0, "a duration below 0");
    require(header->totalBytes == fileSize, "another file size");
    // At one bit each second and channel at the least.
    require(header->durationMs <= fileSize * 8000, "a duration beyond the file");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const zepho::ByteView bytes(data, size);
    checkParsed(bytes);
    checkProbed(bytes, static_cast<std::int64_t>(size));
    checkProbed(bytes, 0);
    checkProbed(bytes, std::int64_t{1} << 40);
    require(zepho::engineReadsFormat(bytes) ==
                (zepho::sniffExtension(bytes) == ".wav" || zepho::sniffExtension(bytes) == ".mp3"),
            "sniffing at odds with itself");
    return 0;
}
