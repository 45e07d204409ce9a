#include <array>
#include <cstdio>
#include <ctime>

#include "core/platform/Clock.h"

namespace zepho {

std::uint64_t monotonicMs() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

std::string formatTimeOfDay(WallTime time) {
    const auto sinceEpoch =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
    const auto seconds = static_cast<std::time_t>(sinceEpoch / 1000);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min,
                  local.tm_sec, static_cast<int>(sinceEpoch % 1000));
    return text.data();
}

}  // namespace zepho
