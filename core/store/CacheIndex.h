// The index file of the clip cache: one JSON object from key to what is known of the clip.
//
// Only reads and writes files; which of the lines count is the cache's business. Stateless; any
// thread, but one writer at a time. See docs/data.md for the format.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/store/CacheRecord.h"

namespace zepho {

// The lines of the file that name a plain file, in the order of the file; a key may come twice.
// Numbers are within their types and not negative. Absent when the file cannot be read, or with a
// warning in the log when it holds no JSON object.
[[nodiscard]] std::optional<std::vector<CacheRecordPointer>> loadCacheIndex(
    const std::string& path);

// Replaces the file so that a crash leaves the old one or the new one. The content is made on the
// way, so that a large index is never in memory a second time. Throws std::system_error.
void saveCacheIndex(const std::string& path, const std::vector<CacheRecordPointer>& records);

// Keeps the file that is at `path` now as `backupPath`. Failures are ignored.
void keepIndexBackup(const std::string& path, const std::string& backupPath);

}  // namespace zepho
