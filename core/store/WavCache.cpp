#include "core/store/WavCache.h"

#include <algorithm>
#include <future>
#include <limits>
#include <system_error>
#include <thread>
#include <utility>

#include "core/audio/WavReader.h"
#include "core/diag/AppLog.h"
#include "core/diag/FormatText.h"
#include "core/platform/Clock.h"
#include "core/platform/Directory.h"
#include "core/platform/Errors.h"
#include "core/platform/Files.h"
#include "core/platform/SealedBytes.h"
#include "core/platform/Thread.h"
#include "core/platform/Unicode.h"
#include "core/store/CacheIndex.h"
#include "core/store/ClipFiles.h"

namespace zepho {
namespace {

constexpr std::string_view suffix = ".wav";
constexpr const char* indexName = "index.json";
constexpr const char* backupName = "index.json.bak";
constexpr std::size_t textLimit = 200;  // characters of a line that the index keeps
constexpr std::uint64_t saveIntervalMs = 2000;
constexpr std::size_t hotCapacity = std::size_t{64} << 20;
// Far above any disk, and far below what the sum of all sizes can hold.
constexpr std::int64_t claimLimit = std::int64_t{1} << 61;

}  // namespace

double CacheStats::hitRate() const {
    const std::int64_t lookups = hits + misses;
    return lookups == 0 ? 0.0 : static_cast<double>(hits) / static_cast<double>(lookups);
}

WavCache::WavCache(std::string directory, std::int64_t budgetBytes)
    : dir(withTrailingSlash(std::move(directory))),
      hot(hotCapacity),
      budget(std::max<std::int64_t>(budgetBytes, 0)) {
    try {
        createDirectories(dir);
    } catch (const std::system_error&) {
        // Shows as a failure of the first write.
    }
    // A large directory is listed while the index is read; by this very thread if there is no other.
    const auto list = [this, starter = std::this_thread::get_id()] {
        if (std::this_thread::get_id() != starter) nameThisThread("cache-list");
        return listClips(dir);
    };
    std::future<FileNames> listing = std::async(std::launch::async | std::launch::deferred, list);
    std::vector<CacheRecordPointer> records = readIndex();
    FileNames names = listing.get();
    store(std::move(records), names);
    adoptOrphans(names);
    AppLog::info("cache", formatText("cache loaded: %d entries / %.1f MB from %@", items.size(),
                                     static_cast<double>(bytes) / 1048576, dir));
}

std::vector<CacheRecordPointer> WavCache::readIndex() const {
    if (auto records = loadCacheIndex(dir + indexName)) return *std::move(records);
    auto records = loadCacheIndex(dir + backupName);
    if (!records) return {};
    AppLog::warn("cache", "main cache index was unusable, recovered from the backup");
    return *std::move(records);
}

void WavCache::store(std::vector<CacheRecordPointer> records, FileNames& names) {
    const std::lock_guard guard(lock);
    items.reserve(records.size());
    for (CacheRecordPointer& record : records) {
        FileNames::Name* const name = names.find(record->fileName);
        if (name == nullptr) {
            // Where there is an index, only a listing that failed is empty; then each file is asked.
            if (!names.all().empty() || fileIsMissing(pathOf(*record))) continue;
        } else if (record->fileName.ends_with(suffix) &&
                   record->key ==
                       record->fileName.substr(0, record->fileName.size() - suffix.size()))
            name->known = true;
        storeClaimedLocked(std::move(record));
    }
}

void WavCache::adoptOrphans(const FileNames& names) {
    std::int64_t adopted = 0;
    for (const FileNames::Name& listed : names.all()) {
        const std::string_view name = names.text(listed);
        // What is no text cannot be a key anywhere else either.
        if (listed.known || !name.ends_with(suffix) || !isValidUtf8(name)) continue;
        const std::string_view key = name.substr(0, name.size() - suffix.size());
        if (key.empty() || contains(key)) continue;
        CacheRecord record;
        record.key = key;
        record.fileName = name;
        const std::optional<WavHeader> header = readWavHeader(pathOf(record));
        if (!header) continue;
        record.sampleRate = static_cast<int>(
            std::clamp<std::int64_t>(header->sampleRate, 0, std::numeric_limits<int>::max()));
        record.durationMs = header->durationMs;
        record.bytes = header->totalBytes;
        const std::lock_guard guard(lock);
        storeClaimedLocked(makeCacheRecord(record));
        dirty = true;
        ++adopted;
    }
    if (adopted > 0)
        AppLog::info("cache", "adopted " + std::to_string(adopted) +
                                  " cached clip(s) that the index did not know about");
}

std::optional<TtsResult> WavCache::tryGet(std::string_view key) {
    if (!enabled) return std::nullopt;
    CacheRecordPointer record;
    {
        const std::lock_guard guard(lock);
        if (const auto found = items.find(key); found != items.end()) {
            found->second.stamp = ++clock;
            record = found->second.record;
        }
    }
    if (!record) {
        ++misses;
        return std::nullopt;
    }
    std::optional<SharedBytes> wav = readClip(*record);
    if (!wav) {
        AppLog::warn("cache", "cannot read cache file (" + std::string(record->fileName) +
                                  "), dropping the entry");
        {
            const std::lock_guard guard(lock);
            // A clip that was put there meanwhile is another one, and stays.
            const auto found = items.find(key);
            if (found != items.end() && found->second.record == record) eraseLocked(found);
        }
        hot.drop(key);
        ++misses;
        return std::nullopt;
    }
    ++hits;
    TtsResult result;
    result.wav = std::move(*wav);
    result.sampleRate = record->sampleRate;
    result.channels = 1;
    result.durationMs = record->durationMs;
    result.voiceId = record->voiceId;
    result.language = record->language;
    result.speed = record->speed;
    result.etag = record->key;
    result.fromCache = true;
    return result;
}

std::optional<SharedBytes> WavCache::readClip(const CacheRecord& record) {
    const std::string path = pathOf(record);
    const std::optional<FileIdentity> identity = fileIdentity(path);
    if (!identity) return std::nullopt;
    if (auto kept = hot.find(record.key, *identity)) return kept;
    const bool rested = hasRested(*identity);
    std::optional<Bytes> read = loadFileBytes(path);
    if (!read) return std::nullopt;
    SharedBytes clip(std::move(*read));
    // Kept only if the bytes are surely those of the identity.
    if (!rested || fileIdentity(path) != identity) return clip;
    if (clip.size() >= worthSealing)
        if (std::optional<SharedBytes> sealed = sealedCopy(clip)) clip = *std::move(sealed);
    hot.add(record.key, *identity, clip);
    return clip;
}

std::optional<SharedBytes> WavCache::readAudio(std::string_view key) const {
    const CacheRecordPointer record = find(key);
    if (!record) return std::nullopt;
    std::optional<Bytes> read = loadFileBytes(pathOf(*record));
    if (!read) return std::nullopt;
    return SharedBytes(std::move(*read));
}

bool WavCache::contains(std::string_view key) const {
    const std::lock_guard guard(lock);
    return items.contains(key);
}

CacheRecordPointer WavCache::find(std::string_view key) const {
    const std::lock_guard guard(lock);
    const auto found = items.find(key);
    return found == items.end() ? nullptr : found->second.record;
}

void WavCache::put(const std::string& key, const std::string& text, const TtsResult& result) {
    if (!enabled || result.wav.empty()) return;
    const auto size = static_cast<std::int64_t>(result.wav.size());
    {
        const std::lock_guard guard(lock);
        if (budget >= 1 && size > budget) return;
    }
    CacheEntry entry;
    entry.fileName = key + std::string(suffix);
    entry.voiceId = result.voiceId;
    // The index holds valid text only, whatever a client sent.
    entry.text = graphemePrefix(replaceInvalidUtf8(text), textLimit);
    entry.language = result.language;
    entry.speed = result.speed;
    entry.sampleRate = result.sampleRate;
    entry.durationMs = result.durationMs;
    entry.bytes = size;
    try {
        saveFileBytes(dir + entry.fileName, result.wav);
    } catch (const std::exception& error) {
        AppLog::warn("cache", "cannot write cache to " + dir + ": " + describeError(error));
        return;
    }
    std::vector<CacheRecordPointer> evicted;
    {
        const std::lock_guard guard(lock);
        // An eviction of the clip that was there before may just have taken the new file.
        if (fileIsMissing(dir + entry.fileName)) return;
        storeLocked(makeCacheRecord(key, entry));
        dirty = true;
        evicted = evictLocked();
    }
    dropCopies(evicted);
    saveIndex(false);
}

bool WavCache::remove(std::string_view key) {
    if (!removeClip(key)) return false;
    saveIndex(true);
    return true;
}

std::size_t WavCache::remove(std::span<const std::string> keys) {
    std::size_t removed = 0;
    for (const std::string& key : keys) removed += removeClip(key) ? 1 : 0;
    if (removed > 0) saveIndex(true);
    return removed;
}

bool WavCache::removeClip(std::string_view key) {
    CacheRecordPointer record;
    {
        const std::lock_guard guard(lock);
        const auto found = items.find(key);
        if (found == items.end()) return false;
        record = found->second.record;
        eraseLocked(found);
    }
    deleteFile(pathOf(*record));
    hot.drop(key);
    dropIfFileGone(key);
    return true;
}

void WavCache::dropIfFileGone(std::string_view key) {
    const std::lock_guard guard(lock);
    const auto found = items.find(key);
    if (found != items.end() && fileIsMissing(pathOf(*found->second.record))) eraseLocked(found);
}

void WavCache::clear() {
    Items emptied;
    {
        const std::lock_guard guard(lock);
        emptied.swap(items);
        bytes = 0;
        dirty = true;
    }
    hot.clear();
    std::vector<std::string> names;
    if (auto listed = listDirectory(dir)) {
        names = std::move(*listed);
        std::erase_if(names, [](const std::string& name) { return !name.ends_with(suffix); });
    } else {
        for (const auto& [key, item] : emptied) names.emplace_back(item.record->fileName);
    }
    const auto left = std::count_if(names.begin(), names.end(), [this](const std::string& name) {
        return !deleteFilePatiently(dir + name);
    });
    for (const std::string& name : names)
        dropIfFileGone(std::string_view(name).substr(0, name.size() - suffix.size()));
    saveIndex(true);
    if (left == 0)
        AppLog::info("cache", "cache cleared");
    else
        AppLog::warn("cache", "cache cleared, but " + std::to_string(left) +
                                  " file(s) could not be deleted; they will reappear on the next "
                                  "start");
}

void WavCache::setBudget(std::int64_t budgetBytes) {
    std::vector<CacheRecordPointer> evicted;
    {
        const std::lock_guard guard(lock);
        budget = std::max<std::int64_t>(budgetBytes, 0);
        evicted = evictLocked();
    }
    dropCopies(evicted);
    saveIndex(true);
}

CacheStats WavCache::stats() const {
    const std::lock_guard guard(lock);
    return {static_cast<std::int64_t>(items.size()), bytes, budget, hits, misses, evictions};
}

std::map<std::string, CacheEntry> WavCache::snapshot() const {
    std::vector<Item> copies;
    {
        const std::lock_guard guard(lock);
        copies.reserve(items.size());
        for (const auto& [key, item] : items) copies.push_back(item);
    }
    std::map<std::string, CacheEntry> entries;
    for (const Item& item : copies) {
        CacheEntry entry = item.record->entry();
        entry.stamp = item.stamp;
        entries.insert_or_assign(std::string(item.record->key), std::move(entry));
    }
    return entries;
}

void WavCache::flush() {
    saveIndex(true);
}

std::string WavCache::pathOf(const CacheRecord& record) const {
    return dir + std::string(record.fileName);
}

void WavCache::storeLocked(CacheRecordPointer record) {
    const std::string_view key = record->key;
    ++clock;
    bytes += record->bytes;
    const auto [place, added] = items.try_emplace(key, Item{record, clock});
    if (added) return;
    bytes -= place->second.record->bytes;
    // The key in the map lives in the record that goes.
    items.erase(place);
    items.emplace(key, Item{std::move(record), clock});
}

// Whatever sizes a file claims, their sum stays far from the end of its type.
void WavCache::storeClaimedLocked(CacheRecordPointer record) {
    if (record->bytes > claimLimit - bytes) {
        CacheRecord limited = *record;
        limited.bytes = claimLimit - bytes;
        record = makeCacheRecord(limited);
    }
    storeLocked(std::move(record));
}

void WavCache::eraseLocked(Items::iterator place) {
    bytes -= place->second.record->bytes;
    items.erase(place);
    dirty = true;
}

// The files are deleted here, under the lock, so that put(), which looks for its file under the lock
// too, never stores an entry whose file goes with the one before it.
std::vector<CacheRecordPointer> WavCache::evictLocked() {
    std::vector<CacheRecordPointer> evicted;
    if (budget < 1 || budget >= bytes) return evicted;
    std::vector<Items::iterator> oldest;
    oldest.reserve(items.size());
    for (auto place = items.begin(); place != items.end(); ++place) oldest.push_back(place);
    std::sort(oldest.begin(), oldest.end(), [](const auto& left, const auto& right) {
        return left->second.stamp < right->second.stamp;
    });
    for (const Items::iterator place : oldest) {
        if (budget >= bytes) break;
        evicted.push_back(place->second.record);
        eraseLocked(place);
        ++evictions;
        deleteFile(pathOf(*evicted.back()));
    }
    return evicted;
}

void WavCache::dropCopies(const std::vector<CacheRecordPointer>& records) {
    for (const CacheRecordPointer& record : records) hot.drop(record->key);
}

bool WavCache::saveIsDueLocked(bool force) const {
    if (!dirty) return false;
    return force || lastSaveTick == 0 || monotonicMs() - lastSaveTick >= saveIntervalMs;
}

// The whole of a write is one turn of ioLock: were the copy taken before it, an older copy could
// overtake a newer one on its way to the disk.
void WavCache::saveIndex(bool force) {
    if (!force) {
        const std::lock_guard guard(lock);
        if (!saveIsDueLocked(false)) return;
    }
    std::unique_lock io(ioLock, std::defer_lock);
    // A put() does not wait for the write of somebody else; the index stays behind until the next.
    if (force)
        io.lock();
    else if (!io.try_lock())
        return;
    try {
        std::vector<CacheRecordPointer> records;
        {
            const std::lock_guard guard(lock);
            if (!saveIsDueLocked(force)) return;
            records.reserve(items.size());
            for (const auto& [key, item] : items) records.push_back(item.record);
            dirty = false;
            lastSaveTick = monotonicMs();
        }
        keepIndexBackup(dir + indexName, dir + backupName);
        saveCacheIndex(dir + indexName, records);
    } catch (const std::exception& error) {
        AppLog::warn("cache", "cannot write cache index: " + describeError(error));
        const std::lock_guard guard(lock);
        dirty = true;
    }
}

}  // namespace zepho
