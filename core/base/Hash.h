// Content hashes in the forms that files and keys carry. Pure; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "core/base/VoiceInfo.h"

namespace zepho {

// SHA-256 as 64 upper-case hexadecimal digits.
std::string sha256Utf8(std::string_view text);
std::string sha256Bytes(ByteView bytes);

// A 64-bit hash of the UTF-8 bytes that is the same in every run and on every machine.
std::int64_t stableHash(std::string_view text);

// The identity of one finished clip: a hash of everything that changes the sound. The language,
// gender and airline act only through the voice that routing chose. `sampleRate` is the target rate
// in hertz, `speedApplied` whether the engine itself speaks at the request's speed.
std::string makeCacheKey(const TtsRequest& request, const VoiceInfo& voice,
                         std::string_view engineTag, std::int64_t sampleRate, bool speedApplied);

}  // namespace zepho
