#include "core/diag/FormatText.h"

#include <exception>

#include <fmt/args.h>
#include <fmt/printf.h>

namespace zepho {
namespace {

// "%@" in the spelling of printf. A "%%" is stepped over as a pair.
std::string printfSpelling(std::string_view format) {
    std::string spelled(format);
    for (std::size_t pos = 0; pos + 1 < spelled.size(); ++pos) {
        if (spelled[pos] != '%') continue;
        if (spelled[pos + 1] == '@') spelled[pos + 1] = 's';
        ++pos;
    }
    return spelled;
}

// Whether a width or precision is beyond what any text needs, or comes from an argument: a slip in a
// translation must not cost gigabytes of blanks.
bool isTooWide(std::string_view format) {
    constexpr std::size_t mostDigits = 3;
    bool inside = false;  // of a placeholder, between its percent sign and its letter
    bool opened = false;  // by the character before
    std::size_t digits = 0;
    for (const char c : format) {
        const bool isDigit = c >= '0' && c <= '9';
        const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '@';
        digits = inside && isDigit ? digits + 1 : 0;
        if (digits > mostDigits || (inside && c == '*')) return true;
        opened = c == '%' && !opened;
        if (c == '%')
            inside = opened;
        else if (isLetter)
            inside = false;
    }
    return false;
}

}  // namespace

std::string formatTextWith(std::string_view format, std::initializer_list<FormatArg> arguments) {
    if (isTooWide(format)) return std::string(format);
    fmt::dynamic_format_arg_store<fmt::printf_context> store;
    for (const FormatArg& argument : arguments)
        std::visit([&store](const auto& value) { store.push_back(value); }, argument.value);
    try {
        return fmt::vsprintf(fmt::string_view(printfSpelling(format)),
                             fmt::basic_format_args<fmt::printf_context>(store));
    } catch (const std::exception&) {
        return std::string(format);
    }
}

}  // namespace zepho
