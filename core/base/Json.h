// Loosely typed reading and plain writing of JSON.
//
// A JSON object in memory is passed as `const Json*`; nullptr is an absent object and a valid
// argument everywhere. A getter gives its default when the object is absent, the key is missing or
// the value is null. Booleans count as the numbers 1 and 0. Pure; any thread; nothing throws.
// Callers that look into a Json include <nlohmann/json.hpp> in their own .cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "core/platform/Bytes.h"

namespace zepho {

using Json = nlohmann::json;

// A text as it stands, a number in decimal.
std::string jStr(const Json* object, std::string_view key, std::string_view fallback = {});
// A number truncated, or a trimmed text that is a decimal integer from end to end. What does not fit
// 64 bits gives the default.
std::int64_t jInt(const Json* object, std::string_view key, std::int64_t fallback);
// A number, or a trimmed text that is a decimal number from end to end.
double jFloat(const Json* object, std::string_view key, double fallback);
// A boolean, a number (non-zero is true), or a text: "true", "1", "yes" and "on" are true and every
// other text is false.
bool jBool(const Json* object, std::string_view key, bool fallback);
// The array under the key whose elements all satisfy `accepts`; otherwise nullptr. Borrowed.
const Json* jArr(const Json* object, std::string_view key, bool (*accepts)(const Json&) = nullptr);
// The object under the key, otherwise nullptr. Borrowed.
const Json* jObj(const Json* object, std::string_view key);

// A text as it stands, a number in decimal, and "" for everything else: the reading of identities.
std::string jsonText(const Json& value);

// The forms in which a text counts as a number, for JSON and queries alike.
std::optional<std::int64_t> parseDecimalInteger(std::string_view text);
std::optional<double> parseDecimalFloat(std::string_view text);

// More values than any honest client sends.
inline constexpr std::size_t maxJsonValues = 1'000'000;

// The top-level object of a JSON text; absent when it is malformed or not an object, or when it is
// longer than a megabyte and holds more than maxJsonValues.
std::optional<Json> parseJsonObject(ByteView bytes);
std::optional<Json> parseJsonObject(std::string_view text);
// The same for the files that we write ourselves, however many values they hold.
std::optional<Json> parseOwnJsonObject(ByteView bytes);

// JSON text with unescaped slashes; `pretty` indents. Keys are sorted. What cannot be encoded
// (invalid UTF-8, a number that is not finite) gives "{}".
std::string jsonString(const Json& value, bool pretty = false);
Bytes jsonData(const Json& value, bool pretty = false);

}  // namespace zepho
