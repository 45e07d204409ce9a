#include "core/pack/Deflate.h"

#include <algorithm>
#include <memory>
#include <new>

#include <libdeflate.h>

#include "core/pack/ZipFormat.h"

namespace zepho {
namespace {

constexpr int defaultLevel = 6;
constexpr std::uint64_t maxGrowth = 128;
constexpr std::uint64_t minCapacity = 1024;

struct FreeCompressor {
    void operator()(libdeflate_compressor* held) const { libdeflate_free_compressor(held); }
};
struct FreeDecompressor {
    void operator()(libdeflate_decompressor* held) const { libdeflate_free_decompressor(held); }
};
using Compressor = std::unique_ptr<libdeflate_compressor, FreeCompressor>;
using Decompressor = std::unique_ptr<libdeflate_decompressor, FreeDecompressor>;

}  // namespace

std::uint32_t crc32(ByteView data) {
    // A null buffer asks libdeflate for the initial value, which is the CRC of nothing.
    return libdeflate_crc32(0, data.data(), data.size());
}

std::optional<Bytes> deflate(ByteView data) {
    if (data.empty()) return Bytes();
    const Compressor codec(libdeflate_alloc_compressor(defaultLevel));
    if (!codec) throw std::bad_alloc();
    Bytes packed(data.size() + data.size() / 2 + 64);
    const std::size_t used = libdeflate_deflate_compress(codec.get(), data.data(), data.size(),
                                                         packed.data(), packed.size());
    if (used == 0) return std::nullopt;
    packed.resize(used);
    return packed;
}

Bytes inflate(ByteView data, std::uint64_t expected, std::uint64_t& budget) {
    if (data.empty()) return {};
    const Decompressor codec(libdeflate_alloc_decompressor());
    if (!codec) throw std::bad_alloc();
    const std::uint64_t likely = std::max({4 * std::uint64_t{data.size()}, expected, minCapacity});
    const std::uint64_t most = likely * maxGrowth;
    for (const std::uint64_t capacity : {likely, most}) {
        // Pages of the buffer that the output does not reach are never touched.
        Bytes content(std::min(capacity, budget));
        std::size_t produced = 0;
        const libdeflate_result result = libdeflate_deflate_decompress(
            codec.get(), data.data(), data.size(), content.data(), content.size(), &produced);
        if (result == LIBDEFLATE_INSUFFICIENT_SPACE) {
            budget -= content.size();
            continue;
        }
        if (result != LIBDEFLATE_SUCCESS || produced == 0) {
            budget -= content.size();
            throw ZipError::corrupt("inflate failed");
        }
        budget -= produced;
        if (capacity == likely) {
            content.resize(produced);
            return content;
        }
        // Of the second buffer most may be unused: not to be kept as long as the content.
        if (produced < most) return Bytes(content.data(), content.data() + produced);
    }
    throw ZipError::corrupt("inflate output kept growing");
}

}  // namespace zepho
