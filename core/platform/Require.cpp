#include "core/platform/Require.h"

#include <cstdio>
#include <cstdlib>

namespace zepho {

void requirementFailed(const char* what) noexcept {
    std::fprintf(stderr, "zephon: programming error: %s\n", what);
    std::abort();
}

}  // namespace zepho
