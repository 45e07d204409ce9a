#include "core/base/JsonObjectText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/platform/Require.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

// Of the library's longest form of a number, and then some.
constexpr std::size_t numberRoom = 64;
// A byte becomes six at most: \u001f.
constexpr std::size_t longestEscape = 6;
constexpr std::size_t usualSize = 512;

char* put(char* at, std::string_view piece) {
    return std::copy(piece.begin(), piece.end(), at);
}

bool isPlain(std::string_view value) {
    bool plain = true;
    for (const char c : value)
        plain &= static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\';
    return plain;
}

char* putEscaped(char* at, std::string_view value) {
    constexpr std::string_view hex = "0123456789abcdef";
    constexpr std::string_view shortNames = "btn.fr";  // from 8 on; 11 has none
    for (const char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != '"' && byte != '\\') {
            *at++ = c;
            continue;
        }
        *at++ = '\\';
        if (byte >= 0x20) {
            *at++ = c;
        } else if (byte >= 8 && byte <= 13 && byte != 11) {
            *at++ = shortNames[byte - 8U];
        } else {
            at = put(at, "u00");
            *at++ = hex[byte >> 4U];
            *at++ = hex[byte & 15U];
        }
    }
    return at;
}

}  // namespace

JsonObjectText& JsonObjectText::add(std::string_view name, std::string_view value) {
    encodable = encodable && isValidUtf8(value);
    const bool plain = isPlain(value);
    char* at = begin(name, (plain ? 1 : longestEscape) * value.size() + 2);
    *at++ = '"';
    at = plain ? put(at, value) : putEscaped(at, value);
    *at++ = '"';
    return end(at);
}

JsonObjectText& JsonObjectText::add(std::string_view name, double value) {
    encodable = encodable && std::isfinite(value);
    char* const at = begin(name, numberRoom);
    // By what jsonString() writes numbers with.
    return end(encodable ? nlohmann::detail::to_chars(at, at + numberRoom, value) : at);
}

JsonObjectText& JsonObjectText::add(std::string_view name, bool value) {
    const std::string_view word = value ? "true" : "false";
    return end(put(begin(name, word.size()), word));
}

JsonObjectText& JsonObjectText::addInteger(std::string_view name, std::int64_t value) {
    char* const at = begin(name, numberRoom);
    return end(std::to_chars(at, at + numberRoom, value).ptr);
}

JsonObjectText& JsonObjectText::addInteger(std::string_view name, std::uint64_t value) {
    char* const at = begin(name, numberRoom);
    return end(std::to_chars(at, at + numberRoom, value).ptr);
}

std::string JsonObjectText::finish() {
    if (!encodable) return "{}";
    text.resize(used);
    text += '}';
    return std::move(text);
}

char* JsonObjectText::begin(std::string_view name, std::size_t room) {
    require(std::string_view(text).substr(nameStart, nameSize) < name,
            "members in the order of their names");
    constexpr std::string_view around = ",\"\":}";
    const std::size_t needed = used + name.size() + around.size() + room;
    if (text.size() < needed) text.resize(std::max({usualSize, 2 * text.size(), needed}));
    char* at = text.data() + used;
    if (used > 1) *at++ = ',';
    *at++ = '"';
    nameStart = static_cast<std::size_t>(at - text.data());
    nameSize = name.size();
    at = put(at, name);
    *at++ = '"';
    *at++ = ':';
    return at;
}

JsonObjectText& JsonObjectText::end(const char* behindValue) {
    used = static_cast<std::size_t>(behindValue - text.data());
    return *this;
}

}  // namespace zepho
