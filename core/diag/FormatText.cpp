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

}  // namespace

std::string formatTextWith(std::string_view format, std::initializer_list<FormatArg> arguments) {
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
