// How much memory the machine has. Stateless; any thread.
#pragma once

#include <cstddef>

namespace zepho {

// In bytes; 1 GiB where the system does not tell.
[[nodiscard]] std::size_t physicalMemory();

}  // namespace zepho
