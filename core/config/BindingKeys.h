// The canonical spelling of binding keys: AIRLINE:language:gender and language:gender.
//
// The language part is empty for "automatic", the gender part "default" for any gender. Pure.
#pragma once

#include <string>
#include <string_view>

#include "core/base/TtsTypes.h"

namespace zepho {

std::string airlineKey(std::string_view airline, std::string_view language, TtsGender gender);
std::string defaultKey(std::string_view language, TtsGender gender);

// The canonical form of a key from a file or a pack. One with too few parts comes back trimmed: it
// can match no look-up and does no harm.
std::string normalizeAirlineKey(std::string_view key);
std::string normalizeDefaultKey(std::string_view key);

}  // namespace zepho
