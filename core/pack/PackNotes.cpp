#include "core/pack/PackNotes.h"

#include <algorithm>
#include <utility>

#include "core/platform/Unicode.h"

namespace zepho {

std::string nameInNote(std::string_view name) {
    constexpr std::size_t maxCharacters = 60;
    // One character may be made of any number of bytes.
    constexpr std::size_t maxBytes = 600;
    std::size_t end = std::min(name.size(), maxBytes);
    const auto isWithinScalar = [&] { return (static_cast<unsigned char>(name[end]) >> 6) == 2; };
    while (end > 0 && end < name.size() && isWithinScalar()) --end;
    std::string shown = graphemePrefix(name.substr(0, end), maxCharacters);
    if (shown.size() < name.size()) shown += "…";
    return shown;
}

void PackNotes::add(std::string text) {
    if (kept.size() < maxNotes)
        kept.push_back(std::move(text));
    else
        ++left;
}

std::vector<std::string> PackNotes::take() {
    if (left > 0) kept.push_back("… +" + std::to_string(std::exchange(left, 0)));
    return std::exchange(kept, {});
}

}  // namespace zepho
