// The few things that the clip cache does to its directory besides reading and replacing files.
// Stateless; any thread; nothing throws.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zepho {

// The names in the directory, in no order; absent where it cannot be listed.
[[nodiscard]] std::optional<std::vector<std::string>> listNames(const std::string& directory);

// Both are false when the file is still there afterwards.
bool deleteFile(const std::string& path);
// Tries again after a moment, for a file that somebody holds just now.
[[nodiscard]] bool deleteFilePatiently(const std::string& path);

}  // namespace zepho
