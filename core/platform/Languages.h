// The language that the user prefers.
#pragma once

#include <string>

namespace zepho {

// The first of the desktop's list as a tag like "zh-Hant-TW", as it is now; empty if there is none.
std::string preferredLanguage();

}  // namespace zepho
