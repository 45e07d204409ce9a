// How the clip cache gets rid of a file. Stateless; any thread; nothing throws.
#pragma once

#include <string>

namespace zepho {

// Both are false when the file is still there afterwards.
bool deleteFile(const std::string& path);
// Tries again after a moment, for a file that somebody holds just now.
[[nodiscard]] bool deleteFilePatiently(const std::string& path);

}  // namespace zepho
