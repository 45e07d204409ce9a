// The user's preferred languages as the desktop tells them, best first, as "zh-Hant-TW"-like tags.
#pragma once

#include <string>
#include <vector>

namespace zepho {

std::vector<std::string> preferredLanguages();

}  // namespace zepho
