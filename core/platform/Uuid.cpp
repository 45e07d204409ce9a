#include "core/platform/Uuid.h"

#include <random>

namespace zepho {

Uuid Uuid::make() {
    thread_local std::mt19937_64 random = [] {
        std::random_device device;
        std::seed_seq seed{device(), device(), device(), device(), device(), device()};
        return std::mt19937_64(seed);
    }();
    Uuid made{random(), random()};
    made.high = (made.high & ~0xF000ULL) | 0x4000ULL;
    made.low = (made.low & 0x3FFFFFFFFFFFFFFFULL) | 0x8000000000000000ULL;
    return made;
}

}  // namespace zepho
