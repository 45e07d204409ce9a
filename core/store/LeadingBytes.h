// The first bytes of a text as a number, which decides nearly every comparison of two texts without
// a look at them. Pure; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zepho {

// Texts of different numbers are in the order of their numbers.
inline std::uint64_t leadingBytes(std::string_view text) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < sizeof number; ++i)
        number = number << 8 | (i < text.size() ? static_cast<std::uint8_t>(text[i]) : 0);
    return number;
}

}  // namespace zepho
