// Random identities for records that views tell apart.
#pragma once

#include <compare>
#include <cstdint>

namespace zepho {

struct Uuid {
    std::uint64_t high = 0;
    std::uint64_t low = 0;

    auto operator<=>(const Uuid&) const = default;

    // A fresh version 4 identity. Any thread.
    static Uuid make();
};

}  // namespace zepho
