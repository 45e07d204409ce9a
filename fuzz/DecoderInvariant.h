// What holds for the answer of a decoder entry, whatever the bytes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>

#include "core/platform/Require.h"
#include "helper/DecoderEntries.h"

namespace zepho::fuzz {

inline void checkEntry(decltype(&zepho_mp3_decode) decode, const std::uint8_t* data,
                       std::size_t size, std::initializer_list<std::int32_t> statuses) {
    float* samples = nullptr;
    std::uint64_t frames = 0;
    std::uint32_t rate = 0;
    const std::int32_t status = decode(data, size, &samples, &frames, &rate);
    require(std::find(statuses.begin(), statuses.end(), status) != statuses.end(),
            "the status is one of those told");
    if (status == 1) {
        require(samples != nullptr && frames >= 1 && rate >= 1, "success comes with samples");
        // Reads both ends, so that a count beyond the array shows.
        volatile float ends = samples[0] + samples[frames - 1];
        (void)ends;
    } else {
        require(samples == nullptr && frames == 0 && rate == 0, "failure touches no output");
    }
    zepho_audio_free(samples);
}

}  // namespace zepho::fuzz
