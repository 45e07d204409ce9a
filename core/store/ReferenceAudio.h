// Turns a voice's stored clips into the one audio file and the one transcript that the engine takes.
//
// Stateless; any thread. Everything is made afresh for each call and no stored clip is touched.
// Nothing here throws: what cannot be used is logged and left out.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "core/base/VoiceInfo.h"
#include "core/platform/Bytes.h"

namespace zepho {

// A merge never grows beyond this, whatever rates the clips claim: 25 minutes at 44.1 kHz.
inline constexpr std::size_t maxMergedSamples = std::size_t{1} << 26;

// The transcripts of all clips, joined with a blank.
[[nodiscard]] std::string referenceText(const VoiceInfo& voice);

// A single clip as it is stored, or trimmed to what the engine takes; several clips merged into one
// WAV. Nothing where no clip is usable. `clipsDirectory` ends in "/".
[[nodiscard]] std::optional<SharedBytes> referenceAudio(const VoiceInfo& voice,
                                                        const std::string& clipsDirectory,
                                                        std::size_t mostSamples = maxMergedSamples);

}  // namespace zepho
