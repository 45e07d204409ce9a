#include <cstdio>

#include <unistd.h>

#include "core/platform/Terminal.h"

namespace zepho {

bool isTerminal(std::FILE* stream) {
    return ::isatty(::fileno(stream)) == 1;
}

}  // namespace zepho
