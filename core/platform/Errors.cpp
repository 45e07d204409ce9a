#include "core/platform/Errors.h"

#include <cstdlib>
#include <memory>
#include <system_error>
#include <typeinfo>

#include <cxxabi.h>

namespace zepho {

std::string describeError(const std::exception& error) {
    const auto* failure = dynamic_cast<const std::system_error*>(&error);
    if (failure == nullptr) return error.what();
    // what() of a system_error is "<path>: <words>"; the words come first for a reader of a log.
    const std::string words = failure->code().message();
    std::string path = failure->what();
    if (const std::size_t end = path.rfind(": " + words); end != std::string::npos)
        path.resize(end);
    return path.empty() || path == words ? words : words + " (" + path + ")";
}

std::string typeName(const std::exception& error) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> readable(
        abi::__cxa_demangle(typeid(error).name(), nullptr, nullptr, &status), std::free);
    return status == 0 && readable ? readable.get() : typeid(error).name();
}

}  // namespace zepho
