// Time as the program needs it: a wall clock for people, a steady clock for waits.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zepho {

using WallTime = std::chrono::system_clock::time_point;

// Milliseconds of a clock that never goes back; its zero means nothing.
std::uint64_t monotonicMs();

// Local time of day as "HH:mm:ss.SSS", the same under every locale.
std::string formatTimeOfDay(WallTime time);

// Universal time in whole seconds, "2026-08-07T07:34:00Z".
std::string formatIso8601(WallTime time);
// Reads that form, also with an offset such as "+08:00" for the "Z". Nothing for any other text, a
// day that the calendar lacks and a time that WallTime cannot hold.
[[nodiscard]] std::optional<WallTime> parseIso8601(std::string_view text);

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
