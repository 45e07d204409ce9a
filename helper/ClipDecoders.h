// The decoders of foreign clips, piece by piece: nothing that grows with the clip is held in memory.
//
// A clip is decoded to mono floats, the mean of its channels, at its own rate. No state; any thread.
// The libraries behind them are NOT safe on hostile bytes: clips from outside are decoded by the
// program zephon-decode only, never by the service. Neither the C++ run-time library nor any other
// of ours is needed, so that that program stays small.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace zepho {

// Where the samples go as they are decoded. False from `take` ends decoding.
struct SampleSink {
    bool (*take)(void* target, const float* samples, std::size_t count);
    void* target;
};

// 1 success, 0 failure, or the sink has ended it; -2 the stream is Opus (decodeOgg only). `rate` is
// set before the first samples come. Samples may have come before a failure shows.
[[nodiscard]] std::int32_t decodeMp3(std::span<const std::uint8_t> clip, std::uint32_t& rate,
                                     SampleSink sink);
[[nodiscard]] std::int32_t decodeOgg(std::span<const std::uint8_t> clip, std::uint32_t& rate,
                                     SampleSink sink);

}  // namespace zepho
