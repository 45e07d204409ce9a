// Text in UTF-8, in the Unicode sense, with ICU behind it.
//
// All functions are pure and may be called from any thread. Input that is not valid UTF-8 is
// accepted everywhere: an invalid sequence counts as one U+FFFD.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace zepho {

// Removes white space and new lines (the Unicode classes, not ASCII only) from both ends.
std::string trimmed(std::string_view text);
// The same without a copy: a part of `text`.
std::string_view trimmedView(std::string_view text);

// Case mapping by the root locale: the same on every machine, whatever its language.
std::string lowercased(std::string_view text);
std::string uppercased(std::string_view text);
// Equality without regard to case.
bool equalsIgnoringCase(std::string_view left, std::string_view right);

// One user-perceived character (extended grapheme cluster): its bytes and its first scalar. One of
// more than 16 MiB counts as several.
struct Grapheme {
    std::string_view bytes;
    char32_t first = 0;
};
void forEachGrapheme(std::string_view text, const std::function<void(const Grapheme&)>& visit);
std::size_t graphemeCount(std::string_view text);
// The first `count` user-perceived characters of `text`.
std::string graphemePrefix(std::string_view text, std::size_t count);

bool isWhiteSpace(char32_t scalar);
// A letter or a number in the Unicode sense (general categories L* and N*).
bool isLetterOrNumber(char32_t scalar);

bool isValidUtf8(std::string_view text);
// `text` with each invalid sequence replaced by U+FFFD.
std::string replaceInvalidUtf8(std::string_view text);

}  // namespace zepho
