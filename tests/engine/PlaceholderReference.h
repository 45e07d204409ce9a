// The placeholder voice in plain 32-bit arithmetic, one sample after the other: slow, obvious, and
// the oracle of the fast one. Tests and benchmarks only.
#pragma once

#include <cstdint>
#include <string_view>

#include "core/audio/PcmBuffer.h"
#include "core/base/TtsTypes.h"

namespace zepho::test {

PcmBuffer placeholderReference(std::string_view text, TtsGender gender, std::int64_t seed);

}  // namespace zepho::test
