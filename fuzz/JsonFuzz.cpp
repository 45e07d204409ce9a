// Any bytes as a JSON object: what is read is written and read again the same, and every getter keeps
// its promise on every member.
#include <cmath>
#include <string>

#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/platform/Require.h"
#include "core/platform/Unicode.h"
#include "fuzz/Slices.h"

namespace {

using namespace zepho;

void checkMember(const Json& object, const std::string& key, const Json& value) {
    const std::string text = jStr(&object, key, "fallback");
    require(isValidUtf8(text), "a text that is none");
    const std::int64_t number = jInt(&object, key, -7);
    const double fraction = jFloat(&object, key, 0.5);
    const bool truth = jBool(&object, key, true);
    require(std::isfinite(fraction), "a number without end");
    if (value.is_null()) {
        require(text == "fallback" && number == -7 && fraction == 0.5 && truth, "null counts");
    } else if (value.is_string()) {
        require(text == value.get<std::string>(), "another text");
    } else if (value.is_boolean()) {
        require(truth == value.get<bool>() && number == (truth ? 1 : 0) && text.size() == 1,
                "another truth");
    } else if (value.is_number_integer()) {
        require(parseDecimalInteger(text).value_or(-7) == number, "text and number differ");
        require(truth == (fraction != 0), "number and truth differ");
    } else if (value.is_number_float()) {
        require(parseDecimalFloat(text) == fraction, "a fraction changed in its text");
        require(number == -7 || std::fabs(fraction - static_cast<double>(number)) < 1 ||
                    std::fabs(fraction) > 1e15,
                "cut off by more than the fraction");
    } else {
        require(text == "fallback" && number == -7 && fraction == 0.5 && truth,
                "a structure counts as a value");
    }
    require((jObj(&object, key) != nullptr) == value.is_object(), "an object or not");
    require((jArr(&object, key) != nullptr) == value.is_array(), "an array or not");
    require(isValidUtf8(jsonText(value)), "an identity that is no text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = asText({data, size});
    if (const auto number = parseDecimalInteger(text))
        require(parseDecimalInteger(std::to_string(*number)) == number, "another number");
    if (const auto number = parseDecimalFloat(text)) {
        require(std::isfinite(*number), "a number without end");
        require(text.find_first_of("0123456789") != std::string_view::npos, "no digit");
    }
    const std::optional<Json> object = parseJsonObject(text);
    if (!object) return 0;
    for (const bool pretty : {false, true}) {
        const std::optional<Json> again = parseJsonObject(jsonString(*object, pretty));
        require(again.has_value(), "our own text does not read");
        require(*again == *object, "a value changed on the way");
    }
    for (const auto& [key, value] : object->items()) checkMember(*object, key, value);
    require(jStr(&*object, "no such key", "x") == "x" || object->contains("no such key"),
            "a key made up");
    return 0;
}
