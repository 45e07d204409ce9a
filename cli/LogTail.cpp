#include "cli/LogTail.h"

#include <algorithm>

namespace zephonctl {

std::vector<std::string> splitLines(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

std::size_t knownLines(const std::vector<std::string>& before,
                       const std::vector<std::string>& now) {
    // The longest end of the old lines with which the new ones begin.
    for (std::size_t dropped = 0; dropped < before.size(); ++dropped) {
        const std::size_t common = before.size() - dropped;
        if (common <= now.size() &&
            std::equal(before.begin() + static_cast<std::ptrdiff_t>(dropped), before.end(),
                       now.begin()))
            return common;
    }
    return 0;
}

}  // namespace zephonctl
