// What went wrong, in the system's words.
#pragma once

#include <exception>
#include <string>

namespace zepho {

// The words of a failed file or socket operation, "No such file or directory (/a/b)".
std::string describeError(const std::exception& error);

// The type of an exception as its author wrote it, "std::runtime_error".
std::string typeName(const std::exception& error);

}  // namespace zepho
