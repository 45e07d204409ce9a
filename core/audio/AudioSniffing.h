// Tells audio formats by the first bytes of a file. Stateless; may be called from any thread.
//
// The test for MP3 passes on much else, WAV and Ogg data among them: ask the other two first.
#pragma once

#include <string_view>

#include "core/platform/Bytes.h"

namespace zepho {

[[nodiscard]] bool looksLikeOgg(ByteView bytes);
// An ID3 tag, or a frame sync anywhere in the first 8192 bytes.
[[nodiscard]] bool looksLikeMp3(ByteView bytes);

// ".wav", ".ogg", ".mp3", or empty for anything else.
[[nodiscard]] std::string_view sniffExtension(ByteView bytes);

// Whether the inference process takes these bytes as reference audio without conversion.
[[nodiscard]] bool engineReadsFormat(ByteView bytes);

}  // namespace zepho
