// printf-style formatting of texts that people read.
//
// Placeholders are those of printf, and "%@" stands for a text as "%s" does. A format that does not
// fit its arguments is a fault of the caller; the format then comes back unfilled, never a crash.
#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

namespace zepho {

// One argument: an integer, a floating number or a text (borrowed for the call).
class FormatArg {
public:
    template <std::integral Number>
    FormatArg(Number number) : value(static_cast<std::int64_t>(number)) {}  // NOLINT
    FormatArg(double number) : value(number) {}                             // NOLINT
    FormatArg(std::string_view text) : value(text) {}                       // NOLINT
    FormatArg(const std::string& text) : value(std::string_view(text)) {}   // NOLINT
    FormatArg(const char* text) : value(std::string_view(text)) {}          // NOLINT

    std::variant<std::int64_t, double, std::string_view> value;
};

std::string formatTextWith(std::string_view format, std::initializer_list<FormatArg> arguments);

template <class... Args>
std::string formatText(std::string_view format, const Args&... arguments) {
    return formatTextWith(format, {FormatArg(arguments)...});
}

}  // namespace zepho
