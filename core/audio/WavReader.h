// Reads WAV files of any recorder: integer samples of 8, 16, 24 and 32 bits and 32-bit floats.
//
// Whatever the file holds, the samples come out mono (the mean of the channels) at the file's own
// rate. Bytes may be damaged in any way: the answer to what cannot be read is no value, never an
// error. Stateless; may be called from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/audio/PcmBuffer.h"
#include "core/platform/Bytes.h"

namespace zepho {

// What the file declared of its samples.
struct WavFormat {
    int channels = 0;
    int sampleRate = 0;  // hertz
    int bitsPerSample = 0;
    bool isFloat = false;
};

struct ParsedWav {
    PcmBuffer pcm;
    WavFormat format;
};

// What the first bytes of a file tell about it.
struct WavHeader {
    std::int64_t sampleRate = 0;  // hertz
    std::int64_t durationMs = 0;
    std::int64_t totalBytes = 0;  // the size of the file
};

// Nothing is clamped: a float file keeps its peaks over 1. Floats that are no samples (not finite, or
// beyond loudestSample) are read as silence, since nothing downstream could play them.
[[nodiscard]] std::optional<ParsedWav> parseWavWithFormat(ByteView bytes);
[[nodiscard]] std::optional<PcmBuffer> parseWav(ByteView bytes);

// Milliseconds, rounded half away from zero; 0 if the bytes do not parse.
[[nodiscard]] std::int64_t wavDurationMs(ByteView bytes);

// Looks at the first 1024 bytes of the file at most and trusts them, so a long list of clips costs
// no read of their samples.
[[nodiscard]] std::optional<WavHeader> readWavHeader(const std::string& path);
// The same for bytes at hand: `head` is the start of a file of `fileSize` bytes.
[[nodiscard]] std::optional<WavHeader> parseWavHeader(ByteView head, std::int64_t fileSize);

// Whether the bytes begin like a RIFF file; the form is not examined.
[[nodiscard]] bool looksLikeWav(ByteView bytes);

}  // namespace zepho
