// The files of the clip cache, as it lists and deletes them. Stateless; any thread; failures of the
// disk are not thrown.
#pragma once

#include <string>

#include "core/store/FileNames.h"

namespace zepho {

// All names in the directory, less what a killed process left half-written, which is deleted. Empty
// where the directory cannot be listed. One listing instead of a look at each clip.
[[nodiscard]] FileNames listClips(const std::string& dir);

// Both are false when the file is still there afterwards.
bool deleteFile(const std::string& path);
// Tries again after a moment, for a file that somebody holds just now.
[[nodiscard]] bool deleteFilePatiently(const std::string& path);

}  // namespace zepho
