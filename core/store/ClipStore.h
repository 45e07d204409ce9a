// The files of reference clips: where they lie, what is accepted as one, and how it gets there.
//
// Stateless functions over one directory, for the voice library; any thread. A file name comes from
// outside with the voice list, so one that could lead out of the directory counts as unusable.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "core/audio/ClipDecoding.h"
#include "core/base/VoiceInfo.h"

namespace zepho {

// How long the engine's makers want a reference to be, in milliseconds.
inline constexpr std::int64_t shortestClipMs = 1000;  // below it a clip is refused
inline constexpr std::int64_t goodClipMs = 5000;      // below it cloning may be unstable
inline constexpr std::int64_t referenceCapMs = 30000;

// `directory` (with its "/") plus the name; empty for a name that is empty or not that of a file
// directly in the directory.
[[nodiscard]] std::string clipPathIn(const std::string& directory, std::string_view fileName);

// The samples of a clip in any of the formats. The result tells of the Ogg decoder only where the
// bytes are Ogg; otherwise it is notVorbis and only `pcm` counts.
[[nodiscard]] OggDecoding decodeClip(ByteView bytes);

// Checks the clip and writes its bytes, as they are, under a name made of id, index and format.
// Throws TtsError: badAudio for what cannot be a reference, cloneFailed where it cannot be written.
[[nodiscard]] VoiceClip storeClip(const std::string& directory, const std::string& voiceId,
                                  std::size_t index, const VoiceClipInput& input);

// Deletes the clip's file. A failure is ignored.
void deleteClipFile(const std::string& directory, const VoiceClip& clip);

}  // namespace zepho
