// The small normalising functions that make two spellings of one thing equal, and the names of the
// synthesis languages. Pure; any thread; nothing throws.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/platform/Unicode.h"

namespace zepho {

// A language code ("zh-CN" is "zh", "jp" is "ja"), or the empty text, which means automatic.
std::string normLang(std::string_view text);
// Trimmed and upper-cased; neither length nor characters are checked.
std::string normAirline(std::string_view text);
// Not above 0 (or not a number) gives 1; otherwise limited to speedMin..speedMax.
float clampSpeed(float speed);

// The language's own name; "Auto" in the interface language for the empty text; an unknown code
// stands for itself.
std::string langDisplay(std::string_view code);
// "日本語 (ja)", and "Auto (auto)" in the interface language for the empty text.
std::string langWithCode(std::string_view code);
// The codes that have a name, in the order of lists.
std::vector<std::string> commonLanguages();

}  // namespace zepho
