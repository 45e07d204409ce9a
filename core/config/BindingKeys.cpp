#include "core/config/BindingKeys.h"

#include <vector>

#include "core/base/Text.h"

namespace zepho {
namespace {

std::vector<std::string_view> splitAtColons(std::string_view key) {
    std::vector<std::string_view> pieces;
    for (;;) {
        const std::size_t colon = key.find(':');
        pieces.push_back(key.substr(0, colon));
        if (colon == std::string_view::npos) return pieces;
        key.remove_prefix(colon + 1);
    }
}

}  // namespace

std::string airlineKey(std::string_view airline, std::string_view language, TtsGender gender) {
    return normAirline(airline) + ":" + defaultKey(language, gender);
}

std::string defaultKey(std::string_view language, TtsGender gender) {
    return normLang(language) + ":" + std::string(ttsGenderCode(gender));
}

std::string normalizeAirlineKey(std::string_view key) {
    const auto pieces = splitAtColons(key);
    if (pieces.size() < 3) return trimmed(key);
    return airlineKey(pieces[0], pieces[1], ttsGenderFromCode(pieces[2]));
}

std::string normalizeDefaultKey(std::string_view key) {
    const auto pieces = splitAtColons(key);
    if (pieces.size() < 2) return trimmed(key);
    return defaultKey(pieces[0], ttsGenderFromCode(pieces[1]));
}

}  // namespace zepho
