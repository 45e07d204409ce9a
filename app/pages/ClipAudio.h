// Looks at the file of a reference clip for the window: its length and outline, what is wrong with
// it, and the samples to play. Blocks while the clip is decoded, so not for the main thread;
// stateless otherwise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/audio/WaveformPeaks.h"
#include "core/platform/Bytes.h"

namespace zepho {

struct ClipOutline {
    std::int64_t durationMs = 0;  // 0 where it is not known
    std::vector<WaveformPeak> peaks;
    std::string warning;  // in the interface language; empty where all is well
};
[[nodiscard]] ClipOutline outlineClip(const std::string& path, std::size_t columns);

struct PlayableClip {
    SharedBytes wav;
    std::int64_t durationMs = 0;  // 0 where it is not known
};
// A mono WAV of the clip's samples; the file as it is where nothing decodes it. Nothing for a file
// that cannot be read.
[[nodiscard]] std::optional<PlayableClip> loadPlayableClip(const std::string& path);

// The bytes of a clip for the voice library. Of a file that is no audio only the start comes: enough
// for the library to refuse it. Throws TtsError for a file that cannot be read.
[[nodiscard]] Bytes loadClipBytes(const std::string& path);

}  // namespace zepho
