// The first header of the C library tells whether it is glibc.
#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "core/platform/Memory.h"

namespace zepho {

#ifdef __GLIBC__

void limitMemoryPools() {
    constexpr int pools = 4;  // threads that allocate at the same moment are as many as cores
    ::mallopt(M_ARENA_MAX, pools);
}

void giveBackMemory() {
    ::malloc_trim(0);
}

#else

void limitMemoryPools() {}
void giveBackMemory() {}

#endif

}  // namespace zepho
