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
#include <type_traits>

namespace zepho {

class JsonObjectText {
public:
    JsonObjectText& add(std::string_view name, std::string_view value);
    JsonObjectText& add(std::string_view name, const char* value) {
        return add(name, std::string_view(value));
    }
    JsonObjectText& add(std::string_view name, double value);
    JsonObjectText& add(std::string_view name, bool value);
    template <std::integral Number>
    JsonObjectText& add(std::string_view name, Number value) {
        using Widest =
            std::conditional_t<std::signed_integral<Number>, std::int64_t, std::uint64_t>;
        return addInteger(name, static_cast<Widest>(value));
    }

    // "{}" if a member cannot be encoded.
    [[nodiscard]] std::string finish();

private:
    JsonObjectText& addInteger(std::string_view name, std::int64_t value);
    JsonObjectText& addInteger(std::string_view name, std::uint64_t value);
    // Writes the member's name. Where its value goes, with room for so many bytes.
    char* begin(std::string_view name, std::size_t room);
    JsonObjectText& end(const char* behindValue);

    std::string text = "{";
    std::size_t used = 1;       // of `text`; what lies behind is room
    std::size_t nameStart = 0;  // of the last member's name in `text`
    std::size_t nameSize = 0;
    bool encodable = true;
};

}  // namespace zepho
