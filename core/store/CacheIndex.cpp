#include "core/store/CacheIndex.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "core/diag/AppLog.h"
#include "core/platform/Files.h"
#include "core/store/CacheIndexReader.h"
#include "core/store/IndexLine.h"
#include "core/store/LeadingBytes.h"
#include "core/store/OwnIndexReader.h"

namespace zepho {
namespace {

// The records in the order of their keys. The first bytes of a key, as a number, decide nearly all
// comparisons without a look at the record.
class SortedRecords {
public:
    explicit SortedRecords(const std::vector<CacheRecordPointer>& records) {
        places.reserve(records.size());
        for (const CacheRecordPointer& record : records)
            places.push_back({leadingBytes(record->key), record.get()});
        const auto before = [](const Place& left, const Place& right) {
            if (left.beginning != right.beginning) return left.beginning < right.beginning;
            return left.record->key < right.record->key;
        };
        if (!std::is_sorted(places.begin(), places.end(), before))
            std::sort(places.begin(), places.end(), before);
    }

    // The next one, or nothing after the last.
    const CacheRecord* next() { return given == places.size() ? nullptr : places[given++].record; }

private:
    struct Place {
        std::uint64_t beginning;
        const CacheRecord* record;
    };

    std::vector<Place> places;
    std::size_t given = 0;
};

}  // namespace

std::optional<std::vector<CacheRecordPointer>> loadCacheIndex(const std::string& path) {
    {
        OwnIndexReader own;
        if (!readFilePieces(path, [&](ByteView piece) { return own.take(asText(piece)); }))
            return std::nullopt;
        if (own.isComplete()) return own.records();
    }
    const std::optional<Bytes> bytes = loadFileBytes(path);
    if (!bytes) return std::nullopt;
    auto records = readAnyIndexText(asText(*bytes));
    if (!records)
        AppLog::warn("cache", "cache index is not valid JSON: " + lastPathComponent(path));
    return records;
}

void saveCacheIndex(const std::string& path, const std::vector<CacheRecordPointer>& records) {
    constexpr std::size_t pieceSize = std::size_t{64} * 1024;
    SortedRecords sorted(records);
    bool any = false;
    saveFilePieces(path, [&](Bytes& piece) {
        while (piece.size() < pieceSize) {
            const CacheRecord* const record = sorted.next();
            if (record == nullptr) {
                appendText(piece, any ? "\n}" : "{}");
                return false;
            }
            any |= appendIndexLine(piece, *record, any ? ',' : '{');
        }
        return true;
    });
}

void keepIndexBackup(const std::string& path, const std::string& backupPath) {
    if (!fileExists(path)) return;
    std::error_code error;
    std::filesystem::remove(backupPath, error);
    // The index is only ever replaced as a whole, so a second name for the old file is a copy of
    // it, and costs nothing.
    std::filesystem::create_hard_link(path, backupPath, error);
    if (error) std::filesystem::copy_file(path, backupPath, error);
}

}  // namespace zepho
