// Finished clips on disk, one WAV file for each distinct synthesis, so that a line is spoken once.
//
// The key is a hash of everything that changes the sound. An index beside the files tells what each
// of them is; the disk is the truth: a file without an index line is adopted at the start, a line
// without its file is dropped. A disk budget is kept by evicting the clips used longest ago.
//
// Owned by the service. Any thread may call everything. Failures are logged, never thrown.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/base/TtsTypes.h"
#include "core/store/CacheRecord.h"
#include "core/store/FileNames.h"
#include "core/store/HotClips.h"

namespace zepho {

struct CacheStats {
    std::int64_t count = 0;
    std::int64_t bytes = 0;
    std::int64_t budgetBytes = 0;  // 0 means no limit
    std::int64_t hits = 0;         // these three since the start
    std::int64_t misses = 0;
    std::int64_t evictions = 0;

    [[nodiscard]] double hitRate() const;
};

class WavCache {
public:
    // A budget below 1 means no limit. Nothing is evicted before the next put() or setBudget().
    WavCache(std::string dir, std::int64_t budgetBytes);
    WavCache(const WavCache&) = delete;
    WavCache& operator=(const WavCache&) = delete;

    // The clip, as the use that protects it from eviction. Counts a hit or a miss.
    [[nodiscard]] std::optional<TtsResult> tryGet(std::string_view key);
    // The file's bytes; no use, and counted nowhere.
    [[nodiscard]] std::optional<SharedBytes> readAudio(std::string_view key) const;
    // Looks at no file.
    [[nodiscard]] bool contains(std::string_view key) const;

    // Keeps the clip, unless it is empty or alone exceeds the budget.
    void put(const std::string& key, const std::string& text, const TtsResult& result);
    // Whether the clip was there.
    bool remove(std::string_view key);
    // The same for many, with one write of the index; how many were there.
    std::size_t remove(std::span<const std::string> keys);
    // Deletes every clip in the directory, known or not.
    void clear();
    void setBudget(std::int64_t budgetBytes);

    [[nodiscard]] CacheStats stats() const;
    [[nodiscard]] std::map<std::string, CacheEntry> snapshot() const;
    // Brings the index on disk up to date.
    void flush();

    [[nodiscard]] const std::string& directory() const { return dir; }

    // While it is false, tryGet() and put() do nothing.
    std::atomic<bool> enabled{true};

private:
    struct Item {
        CacheRecordPointer record;
        std::int64_t stamp = 0;
    };
    using Items = std::unordered_map<std::string_view, Item>;  // keys live in the records

    [[nodiscard]] std::vector<CacheRecordPointer> readIndex() const;
    void store(std::vector<CacheRecordPointer> records, FileNames& names);
    void adoptOrphans(const FileNames& names);
    [[nodiscard]] std::string pathOf(const CacheRecord& record) const;
    [[nodiscard]] std::optional<SharedBytes> readClip(const CacheRecord& record);
    [[nodiscard]] CacheRecordPointer find(std::string_view key) const;
    bool removeClip(std::string_view key);
    // Of an entry that came while the file of an earlier one was being deleted, and lost its own.
    void dropIfFileGone(std::string_view key);
    void saveIndex(bool force);

    // With `lock` held.
    void storeLocked(CacheRecordPointer record);
    void storeClaimedLocked(CacheRecordPointer record);
    void eraseLocked(Items::iterator place);
    std::vector<CacheRecordPointer> evictLocked();
    [[nodiscard]] bool saveIsDueLocked(bool force) const;

    void dropCopies(const std::vector<CacheRecordPointer>& records);

    // Constant after construction; ends in "/".
    const std::string dir;

    // Guarding themselves.
    std::atomic<std::int64_t> hits{0};
    std::atomic<std::int64_t> misses{0};
    HotClips hot;
    std::mutex ioLock;  // one writer of the index files; taken before `lock`, never after it

    // Guarded by lock.
    mutable std::mutex lock;
    Items items;
    std::int64_t budget;
    std::int64_t bytes = 0;  // sum over `items`, after every locked section
    std::int64_t clock = 0;  // one step for each use
    std::int64_t evictions = 0;
    bool dirty = false;              // the index on disk is behind `items`
    std::uint64_t lastSaveTick = 0;  // of the last index write, 0 for never
};

}  // namespace zepho
