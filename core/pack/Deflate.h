// The compression of zip entries: raw DEFLATE and the CRC-32 of zip, with libdeflate behind them.
//
// Pure functions over whole buffers; any thread.
#pragma once

#include <cstdint>
#include <optional>

#include "core/platform/Bytes.h"

namespace zepho {

// Reflected polynomial 0xEDB88320, starting from all ones, complemented at the end.
[[nodiscard]] std::uint32_t crc32(ByteView data);

// A raw stream at the codec's default level. Empty for empty data, absent if there is no compressed
// form that fits one and a half times the data.
[[nodiscard]] std::optional<Bytes> deflate(ByteView data);

// The content of a raw stream. `expected` is what the archive claims; a wrong claim costs a second
// attempt at most.
// The output stays below 128 times the greatest of four times the data, the claim and 1024, and
// every attempt at it is taken out of `budget`, which is never overdrawn: one budget handed to many
// calls bounds their work together. Throws ZipError.
[[nodiscard]] Bytes inflate(ByteView data, std::uint64_t expected, std::uint64_t& budget);

}  // namespace zepho
