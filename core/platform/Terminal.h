// What a command-line program may know about where its output goes.
#pragma once

#include <cstdio>

namespace zepho {

// Whether a person sees the stream as it is written.
[[nodiscard]] bool isTerminal(std::FILE* stream);

}  // namespace zepho
