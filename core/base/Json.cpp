#include "core/base/Json.h"

#include <charconv>
#include <cmath>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "core/platform/Unicode.h"

namespace zepho {
namespace {

// The value under the key; nullptr for an absent object, a missing key and null.
const Json* valueOf(const Json* object, std::string_view key) {
    if (object == nullptr || !object->is_object()) return nullptr;
    const auto found = object->find(key);
    return found == object->end() || found->is_null() ? nullptr : &*found;
}

bool isNumber(const Json& value) {
    return value.is_number() || value.is_boolean();
}

double numberOf(const Json& value) {
    return value.is_boolean() ? (value.get<bool>() ? 1.0 : 0.0) : value.get<double>();
}

std::string decimalText(const Json& value) {
    if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
    if (value.is_number_float()) return fmt::format("{}", value.get<double>());
    return value.dump();
}

std::optional<std::int64_t> truncated(double number) {
    // 2^63 is the first double that no 64-bit integer reaches.
    if (!(std::fabs(number) < 9223372036854775808.0)) return std::nullopt;
    return static_cast<std::int64_t>(number);
}

std::optional<std::int64_t> integerOf(const Json& value) {
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        if (number > static_cast<std::uint64_t>(INT64_MAX)) return std::nullopt;
        return static_cast<std::int64_t>(number);
    }
    if (value.is_number_integer()) return value.get<std::int64_t>();
    return truncated(numberOf(value));
}

// Spares the library a long text of something else, of which it would make several copies.
bool beginsLikeObject(std::string_view text) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    if (text.starts_with(mark)) text.remove_prefix(mark.size());
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && text[first] == '{';
}

// A tree takes some eighty bytes for each value, and a value two bytes of text: a body of a gigabyte
// could ask for forty. What is short, or consists of long texts, is not counted in vain.
bool hasTooManyValues(std::string_view text) {
    constexpr std::size_t alwaysRead = std::size_t{1} << 20;
    if (text.size() <= alwaysRead) return false;
    std::size_t values = 0;
    bool quoted = false;
    for (std::size_t pos = 0; pos < text.size(); ++pos) {
        const char c = text[pos];
        if (quoted) {
            if (c == '\\') ++pos;
            quoted = c != '"';
        } else if (c == '"') {
            quoted = true;
        } else if (c == ',' || c == '[' || c == '{') {
            if (++values > maxJsonValues) return true;
        }
    }
    return false;
}

// Values are built by us and shallow, so the recursion is.
bool isEncodable(const Json& value) {
    if (value.is_number_float()) return std::isfinite(value.get<double>());
    if (value.is_structured())
        for (const Json& item : value)
            if (!isEncodable(item)) return false;
    return true;
}

}  // namespace

std::string jStr(const Json* object, std::string_view key, std::string_view fallback) {
    const Json* value = valueOf(object, key);
    if (value == nullptr) return std::string(fallback);
    if (value->is_string()) return value->get<std::string>();
    return isNumber(*value) ? decimalText(*value) : std::string(fallback);
}

std::int64_t jInt(const Json* object, std::string_view key, std::int64_t fallback) {
    const Json* value = valueOf(object, key);
    if (value == nullptr) return fallback;
    if (value->is_string())
        return parseDecimalInteger(trimmedView(value->get_ref<const std::string&>()))
            .value_or(fallback);
    return isNumber(*value) ? integerOf(*value).value_or(fallback) : fallback;
}

double jFloat(const Json* object, std::string_view key, double fallback) {
    const Json* value = valueOf(object, key);
    if (value == nullptr) return fallback;
    if (value->is_string())
        return parseDecimalFloat(trimmedView(value->get_ref<const std::string&>()))
            .value_or(fallback);
    return isNumber(*value) ? numberOf(*value) : fallback;
}

bool jBool(const Json* object, std::string_view key, bool fallback) {
    const Json* value = valueOf(object, key);
    if (value == nullptr) return fallback;
    if (value->is_string()) {
        const std::string word = lowercased(trimmedView(value->get_ref<const std::string&>()));
        return word == "true" || word == "1" || word == "yes" || word == "on";
    }
    return isNumber(*value) ? numberOf(*value) != 0 : fallback;
}

const Json* jArr(const Json* object, std::string_view key, bool (*accepts)(const Json&)) {
    const Json* value = valueOf(object, key);
    if (value == nullptr || !value->is_array()) return nullptr;
    if (accepts != nullptr)
        for (const Json& item : *value)
            if (!accepts(item)) return nullptr;
    return value;
}

const Json* jObj(const Json* object, std::string_view key) {
    const Json* value = valueOf(object, key);
    return value != nullptr && value->is_object() ? value : nullptr;
}

std::string jsonText(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    return isNumber(value) ? decimalText(value) : std::string();
}

std::optional<std::int64_t> parseDecimalInteger(std::string_view text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == '-') return std::nullopt;
    }
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<double> parseDecimalFloat(std::string_view text) {
    // from_chars() also reads "inf" and "nan", and no leading plus.
    if (text.find_first_not_of("0123456789+-.eE") != std::string_view::npos) return std::nullopt;
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == '-') return std::nullopt;
    }
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<Json> parseJsonObject(ByteView bytes) {
    return parseJsonObject(asText(bytes));
}

std::optional<Json> parseJsonObject(std::string_view text) {
    if (!beginsLikeObject(text) || hasTooManyValues(text)) return std::nullopt;
    return parseOwnJsonObject(asBytes(text));
}

std::optional<Json> parseOwnJsonObject(ByteView bytes) {
    const std::string_view text = asText(bytes);
    // The library takes a NUL byte for the end of the text and would let pass what follows.
    if (!beginsLikeObject(text) || text.find('\0') != std::string_view::npos) return std::nullopt;
    Json value = Json::parse(text, nullptr, false);
    if (!value.is_object()) return std::nullopt;
    return value;
}

std::string jsonString(const Json& value, bool pretty) {
    if (!isEncodable(value)) return "{}";
    try {
        return value.dump(pretty ? 2 : -1);
    } catch (const Json::exception&) {
        return "{}";
    }
}

Bytes jsonData(const Json& value, bool pretty) {
    return toBytes(jsonString(value, pretty));
}

}  // namespace zepho
