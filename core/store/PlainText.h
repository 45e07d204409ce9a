// The part of a text that JSON holds as it stands. Pure; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace zepho {

// How many bytes at the start of `text` are neither a quote, a backslash nor a control character.
// Adds their bits to `bits`: below 0x80, all of them are ASCII.
inline std::size_t plainLength(std::string_view text, std::uint64_t& bits) {
    constexpr std::uint64_t ones = 0x0101010101010101;
    constexpr std::uint64_t highs = 0x8080808080808080;
    // The high bit of some byte, if one of the bytes is below `limit`.
    const auto below = [](std::uint64_t word, std::uint64_t limit) {
        return (word - ones * limit) & ~word & highs;
    };
    std::uint64_t seen = 0;
    std::size_t pos = 0;
    for (std::uint64_t word = 0; pos + sizeof word <= text.size(); pos += sizeof word) {
        std::memcpy(&word, text.data() + pos, sizeof word);
        if ((below(word, 0x20) | below(word ^ ones * '"', 1) | below(word ^ ones * '\\', 1)) != 0)
            break;
        seen |= word;
    }
    if ((seen & highs) != 0) bits |= 0x80;
    for (; pos < text.size(); ++pos) {
        const auto byte = static_cast<std::uint8_t>(text[pos]);
        if (byte < 0x20 || byte == '"' || byte == '\\') break;
        bits |= byte;
    }
    return pos;
}

}  // namespace zepho
