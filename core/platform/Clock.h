// Time as the program needs it: a wall clock for people, a steady clock for waits.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace zepho {

using WallTime = std::chrono::system_clock::time_point;

// Milliseconds of a clock that never goes back; its zero means nothing.
std::uint64_t monotonicMs();

// Local time of day as "HH:mm:ss.SSS", the same under every locale.
std::string formatTimeOfDay(WallTime time);

// Counts milliseconds from its construction, fractions cut off.
class Stopwatch {
public:
    [[nodiscard]] std::int64_t elapsedMs() const {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::steady_clock::now() - start)
            .count();
    }

private:
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

}  // namespace zepho
