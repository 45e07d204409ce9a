// What zephon-decode writes to its standard output, while it decodes: blocks of samples, then how it
// went. A block is its count of samples, at most decoderBlockSize of them, and the samples as 32-bit
// floats; a count of 0 is the end of the blocks, and this record follows it.
//
// Both programs are built together and run on one machine, so the fields lie as in memory. The
// service checks each of them: the writer may have been taken over by the clip it decodes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zepho {

struct DecoderReply {
    std::uint32_t form = 0;    // decoderReplyForm
    std::int32_t status = 0;   // what the decoder returned; the samples count only if it is 1
    std::uint32_t rate = 0;    // samples per second
    std::uint32_t unused = 0;  // keeps `frames` at the same place on every machine
    std::uint64_t frames = 0;  // of all blocks
};
static_assert(sizeof(DecoderReply) == 24);

inline constexpr std::uint32_t decoderReplyForm = 0x315A4453;
inline constexpr std::size_t decoderBlockSize = std::size_t{32} * 1024;

// What is decoded of a longer clip, and what its samples may take at most.
inline constexpr std::uint64_t longestClipSeconds = 600;
inline constexpr std::uint64_t largestClipBytes = std::uint64_t{256} << 20;

}  // namespace zepho
