// Clips as users bring them, made by real encoders (lame, vorbis-tools, opus-tools).
#pragma once

#include <string>

#include "core/audio/PcmBuffer.h"
#include "core/platform/Bytes.h"

namespace zepho::test {

// A tone of its own for each channel, interleaved: 330 Hz in the first, 550 Hz in the next, …
// `frames` samples each.
Bytes toneWav(int rate, int channels, std::size_t frames);
// What a decoder should make of it: the mean of the channels.
PcmBuffer toneMono(int rate, int channels, std::size_t frames);

// Throw std::runtime_error when the encoder is missing or fails; `options` go to it as they are.
Bytes encodeMp3(ByteView wav, const std::string& options = "");
Bytes encodeVorbis(ByteView wav, const std::string& options = "");
Bytes encodeOpus(ByteView wav);

}  // namespace zepho::test
