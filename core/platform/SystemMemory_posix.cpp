#include <unistd.h>

#include "core/platform/SystemMemory.h"

namespace zepho {

std::size_t physicalMemory() {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0) return std::size_t{1} << 30;
    return static_cast<std::size_t>(pages) * static_cast<std::size_t>(pageSize);
}

}  // namespace zepho
