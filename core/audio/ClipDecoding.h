// Turns reference clips of any format we know into samples, and their faults into sentences.
//
// MP3 and Ogg are decoded in a helper program, see DecoderHelper.h; WAV is read right here. All
// results are mono at the file's own rate. Bytes may be damaged in any way: what cannot be decoded
// gives no value. Any thread; blocks for as long as the helper takes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/audio/DecoderHelper.h"
#include "core/audio/PcmBuffer.h"
#include "core/platform/Bytes.h"

namespace zepho {

enum class OggResult {
    ok,
    noDecoder,  // never comes out of decodeOgg
    notVorbis,
    opus,
    failed,
};

struct OggDecoding {
    OggResult result = OggResult::failed;
    std::optional<PcmBuffer> pcm;  // only with `ok`
};

// Runs one decoder on the bytes. `status` becomes what it said; see DecodedClip.
[[nodiscard]] std::optional<PcmBuffer> callDecoder(DecoderEntry entry, ByteView bytes,
                                                   std::int32_t& status);

[[nodiscard]] std::optional<PcmBuffer> decodeMp3(ByteView bytes);
[[nodiscard]] OggDecoding decodeOgg(ByteView bytes);

// WAV, Ogg or MP3, whichever the bytes are.
[[nodiscard]] std::optional<PcmBuffer> decodeReference(ByteView bytes);

// Why an Ogg file was refused, in the current language; nothing for `ok`.
[[nodiscard]] std::optional<std::string> oggResultText(OggResult result);

}  // namespace zepho
