#include "core/pack/Noise.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>

#include "core/pack/Deflate.h"

namespace zepho {
namespace {

constexpr std::size_t partSize = std::size_t{64} * 1024;
// Pearson's test against all values alike: random bytes give 255 on the average, with a deviation
// of 23. At this value the best code for single bytes saves 40 bytes of a part, less than the code
// takes to be written down.
constexpr double mostUneven = 440;
constexpr std::size_t pieceSize = std::size_t{8} * 1024;
constexpr std::size_t sampledShare = 16;  // one byte in so many

bool isEven(ByteView part) {
    // Four counters for each value, as one waits for its own last addition.
    std::array<std::array<std::uint32_t, 256>, 4> counts{};
    std::size_t pos = 0;
    for (std::uint64_t word = 0; pos + sizeof word <= part.size(); pos += sizeof word) {
        std::memcpy(&word, part.data() + pos, sizeof word);
        for (std::size_t i = 0; i < sizeof word; ++i) ++counts[i % 4][word >> (8 * i) & 0xFF];
    }
    for (; pos < part.size(); ++pos) ++counts[0][part[pos]];
    const double expected = static_cast<double>(part.size()) / 256;
    double sum = 0;
    for (std::size_t value = 0; value < 256; ++value) {
        const double more =
            counts[0][value] + counts[1][value] + counts[2][value] + counts[3][value] - expected;
        sum += more * more;
    }
    return sum / expected <= mostUneven;
}

// Pieces from all over the data, so that what repeats itself shows.
Bytes sampleOf(ByteView data) {
    const std::size_t wanted = std::max(partSize, data.size() / sampledShare);
    const std::size_t pieces = std::min(wanted, data.size()) / pieceSize;
    Bytes sample;
    sample.reserve(pieces * pieceSize);
    for (std::size_t i = 0; i < pieces; ++i)
        appendBytes(sample, data.subspan(data.size() / pieces * i, pieceSize));
    return sample;
}

}  // namespace

bool looksLikeNoise(ByteView data) {
    const std::size_t parts = data.size() / partSize;
    if (parts == 0) return false;
    // The last part takes the rest.
    for (std::size_t i = 0; i < parts; ++i) {
        const ByteView rest = data.subspan(i * partSize);
        if (!isEven(i + 1 < parts ? rest.first(partSize) : rest)) return false;
    }
    const Bytes sample = sampleOf(data);
    const std::optional<Bytes> packed = deflate(sample);
    return !packed || packed->size() >= sample.size();
}

}  // namespace zepho
