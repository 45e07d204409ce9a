// The text of a small JSON object, written member by member without building the object first.
//
// For answers that are asked for many times a second. The result is byte for byte that of
// jsonString(): members stand in the order of their names, which the caller keeps; names have
// nothing in them that would have to be escaped.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zepho {

class JsonObjectText {
public:
    JsonObjectText& add(std::string_view name, std::string_view value);
    JsonObjectText& add(std::string_view name, const char* value) {
        return add(name, std::string_view(value));
    }
    JsonObjectText& add(std::string_view name, double value);
    template <std::integral Number>
    JsonObjectText& add(std::string_view name, Number value) {
        if constexpr (std::same_as<Number, bool>)
            return addRaw(name, value ? "true" : "false");
        else
            return addRaw(name, std::to_string(value));
    }

    // "{}" if a member cannot be encoded.
    [[nodiscard]] std::string finish();

private:
    JsonObjectText& addRaw(std::string_view name, std::string_view value);
    void begin(std::string_view name);
    void appendQuoted(std::string_view value);

    std::string text = "{";
    std::size_t nameStart = 0;  // of the last member's name in `text`
    std::size_t nameSize = 0;
    bool encodable = true;
};

}  // namespace zepho
