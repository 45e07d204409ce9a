// Which lines of a log are new since it was looked at before.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zephonctl {

[[nodiscard]] std::vector<std::string> splitLines(std::string_view text);

// How many lines at the front of `now` were in `before` already. The log drops old lines at its front
// and gets new ones at its end.
[[nodiscard]] std::size_t knownLines(const std::vector<std::string>& before,
                                     const std::vector<std::string>& now);

}  // namespace zephonctl
