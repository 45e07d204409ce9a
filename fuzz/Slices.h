// Cuts one fuzz input into the several values that a target needs. Pure; never reads beyond the end.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "core/platform/Bytes.h"

namespace zepho::fuzz {

class Slices {
public:
    Slices(const std::uint8_t* data, std::size_t size) : left(data, size) {}

    [[nodiscard]] bool empty() const { return left.empty(); }
    // 0 when nothing is left.
    std::uint8_t byte() {
        if (left.empty()) return 0;
        const std::uint8_t first = left.front();
        left = left.subspan(1);
        return first;
    }
    ByteView bytes(std::size_t count) {
        const ByteView taken = left.first(std::min(count, left.size()));
        left = left.subspan(taken.size());
        return taken;
    }
    // As long as its first byte says.
    std::string_view text() { return asText(bytes(byte())); }
    ByteView rest() { return bytes(left.size()); }

private:
    ByteView left;
};

}  // namespace zepho::fuzz
