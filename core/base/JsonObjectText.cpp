#include "core/base/JsonObjectText.h"

#include <cmath>
#include <cstddef>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/platform/Require.h"
#include "core/platform/Unicode.h"

namespace zepho {

JsonObjectText& JsonObjectText::add(std::string_view name, std::string_view value) {
    encodable = encodable && isValidUtf8(value);
    begin(name);
    appendQuoted(value);
    return *this;
}

JsonObjectText& JsonObjectText::add(std::string_view name, double value) {
    encodable = encodable && std::isfinite(value);
    return addRaw(name, value == 0 && !std::signbit(value) ? "0.0" : Json(value).dump());
}

std::string JsonObjectText::finish() {
    if (!encodable) return "{}";
    text += '}';
    return std::move(text);
}

JsonObjectText& JsonObjectText::addRaw(std::string_view name, std::string_view value) {
    begin(name);
    text += value;
    return *this;
}

void JsonObjectText::begin(std::string_view name) {
    require(std::string_view(text).substr(nameStart, nameSize) < name,
            "members in the order of their names");
    if (text.size() > 1)
        text += ',';
    else
        text.reserve(512);
    text += '"';
    nameStart = text.size();
    nameSize = name.size();
    text += name;
    text += "\":";
}

void JsonObjectText::appendQuoted(std::string_view value) {
    constexpr std::string_view hex = "0123456789abcdef";
    text += '"';
    bool isPlain = true;
    for (const char c : value)
        isPlain &= static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\';
    if (isPlain) {
        text += value;
        text += '"';
        return;
    }
    std::size_t plain = 0;  // from here on nothing had to be escaped
    for (std::size_t i = 0; i < value.size(); ++i) {
        const auto byte = static_cast<unsigned char>(value[i]);
        if (byte >= 0x20 && byte != '"' && byte != '\\') continue;
        text.append(value, plain, i - plain) += '\\';
        plain = i + 1;
        constexpr std::string_view shortNames = "btn.fr";  // from 8 on; 11 has none
        if (byte >= 0x20)
            text += value[i];
        else if (byte >= 8 && byte <= 13 && byte != 11)
            text += shortNames[byte - 8U];
        else
            (text += "u00").append({hex[byte >> 4U], hex[byte & 15U]});
    }
    text.append(value, plain);
    text += '"';
}

}  // namespace zepho
