// What the clip cache knows of one clip, under its key.
//
// A record is immutable: a replaced entry is a new record. Records that are read together lie in
// blocks, texts and all, a few hundred to an allocation; a pointer to one keeps its block alive.
// Records may be read from any thread; a CacheRecordList belongs to one.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
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

struct CacheRecord {
    std::string_view key;
    std::string_view fileName;
    std::string_view voiceId;
    std::string_view text;
    std::string_view language;
    float speed = 1.0F;
    int sampleRate = 0;
    std::int64_t durationMs = 0;
    std::int64_t bytes = 0;

    // A copy that lives on its own, without a stamp.
    [[nodiscard]] CacheEntry entry() const;
};
using CacheRecordPointer = std::shared_ptr<const CacheRecord>;

// A record of its own. `stamp` is not kept.
[[nodiscard]] CacheRecordPointer makeCacheRecord(std::string_view key, const CacheEntry& entry);
// The same with the texts of `record`, which are copied.
[[nodiscard]] CacheRecordPointer makeCacheRecord(const CacheRecord& record);

// Copies records, with their texts, into blocks.
class CacheRecordList {
public:
    void add(const CacheRecord& record);
    // All of them, in the order in which they were added. Leaves the list empty.
    [[nodiscard]] std::vector<CacheRecordPointer> take();

private:
    struct Block;

    std::shared_ptr<Block> block;  // the one that is being filled
    std::vector<CacheRecordPointer> records;
};

}  // namespace zepho
