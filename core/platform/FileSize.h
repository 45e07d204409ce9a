// The size of what a path names, links followed. Stateless; any thread.
#pragma once

#include <cstdint>
#include <string>

namespace zepho {

// In bytes; -1 if it cannot be had. A directory has the size that its file system tells.
[[nodiscard]] std::int64_t fileSizeOf(const std::string& path);

}  // namespace zepho
