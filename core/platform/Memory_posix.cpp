// The first header of the C library tells whether it is glibc.
#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <chrono>

#include "core/platform/Memory.h"
#include "core/platform/Thread.h"

namespace zepho {

#ifdef __GLIBC__

void limitMemoryPools() {
    // Only the first one ever gives back what is free at its end. Threads keep small blocks of their
    // own, so they seldom meet here.
    constexpr int pools = 1;
    constexpr int large = 8 << 20;
    ::mallopt(M_ARENA_MAX, pools);
    // By itself it moves these up to 32 and 64 MB with the first large block that is freed, and that
    // much stays at the end of each pool.
    ::mallopt(M_MMAP_THRESHOLD, large);
    ::mallopt(M_TRIM_THRESHOLD, 2 * large);
}

void giveBackMemory() {
    ::malloc_trim(0);
}

#else

void limitMemoryPools() {}
void giveBackMemory() {}

#endif

MemoryCare::MemoryCare() : thread(startThread("memory", [this] { run(); })) {}

MemoryCare::~MemoryCare() {
    {
        const std::lock_guard guard(lock);
        ending = true;
    }
    ended.notify_all();
    thread.join();
}

void MemoryCare::run() {
    constexpr auto period = std::chrono::seconds(5);
    for (;;) {
        {
            std::unique_lock guard(lock);
            if (ended.wait_for(guard, period, [this] { return ending; })) return;
        }
        giveBackMemory();
    }
}

}  // namespace zepho
