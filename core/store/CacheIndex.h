// The index file of the clip cache: one JSON object from key to what is known of the clip.
//
// Only reads and writes files; which of the lines count is the cache's business. Stateless; any
// thread, but one writer at a time. See docs/data.md for the format.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zepho {

struct CacheEntry {
    std::string fileName;  // without a directory
    std::string voiceId;   // the voice that spoke it
    std::string text;      // the beginning of what was spoken
    std::string language;
    float speed = 1.0F;
    int sampleRate = 0;  // hertz
    std::int64_t durationMs = 0;
    std::int64_t bytes = 0;  // size of the file
    std::int64_t stamp = 0;  // value of the use counter at the last use; not in the file
};

// An entry under its key, immutable: a replaced entry is a new record. `stamp` is not kept here.
struct CacheRecord {
    std::string key;
    CacheEntry entry;
};
using CacheRecordPointer = std::shared_ptr<const CacheRecord>;

// The lines of the file that name a plain file, in the order of the file; a key may come twice.
// Numbers are within their types and not negative. Absent when the file cannot be read, or with a
// warning in the log when it holds no JSON object.
[[nodiscard]] std::optional<std::vector<CacheRecordPointer>> loadCacheIndex(
    const std::string& path);

// Replaces the file so that a crash leaves the old one or the new one. The content is made on the
// way, so that a large index is never in memory a second time. Throws std::system_error.
void saveCacheIndex(const std::string& path, std::vector<CacheRecordPointer> records);

// Keeps the file that is at `path` now as `backupPath`. Failures are ignored.
void keepIndexBackup(const std::string& path, const std::string& backupPath);

}  // namespace zepho
