#include "core/store/CacheRecord.h"

#include <algorithm>
#include <utility>

namespace zepho {
namespace {

constexpr std::size_t blockRecords = 256;
constexpr std::size_t blockText = std::size_t{64} * 1024;

std::size_t textSize(const CacheRecord& record) {
    return record.key.size() + record.fileName.size() + record.voiceId.size() + record.text.size() +
           record.language.size();
}

}  // namespace

// Neither the records nor the text ever move: both have their whole room from the start.
struct CacheRecordList::Block {
    Block(std::size_t count, std::size_t size) : text(new char[size]), room(size) {
        records.reserve(count);
    }

    std::string_view keep(std::string_view from) {
        char* const to = text.get() + used;
        std::copy(from.begin(), from.end(), to);
        used += from.size();
        return {to, from.size()};
    }

    const CacheRecord* keep(const CacheRecord& from) {
        CacheRecord record = from;
        record.fileName = keep(from.fileName);
        // Nearly every file is named after its key, and neighbours often share the rest.
        record.key = from.fileName.starts_with(from.key)
                         ? record.fileName.substr(0, from.key.size())
                         : keep(from.key);
        record.text = keep(from.text);
        const CacheRecord none;
        const CacheRecord& last = records.empty() ? none : records.back();
        record.voiceId = from.voiceId == last.voiceId ? last.voiceId : keep(from.voiceId);
        record.language = from.language == last.language ? last.language : keep(from.language);
        records.push_back(record);
        return &records.back();
    }

    [[nodiscard]] bool hasRoom(std::size_t size) const {
        return records.size() < records.capacity() && size <= room - used;
    }

    std::vector<CacheRecord> records;
    std::unique_ptr<char[]> text;
    std::size_t room;
    std::size_t used = 0;
};

CacheEntry CacheRecord::entry() const {
    CacheEntry copy;
    copy.fileName = fileName;
    copy.voiceId = voiceId;
    copy.text = text;
    copy.language = language;
    copy.speed = speed;
    copy.sampleRate = sampleRate;
    copy.durationMs = durationMs;
    copy.bytes = bytes;
    return copy;
}

CacheRecordPointer makeCacheRecord(const CacheRecord& record) {
    struct Single {
        CacheRecord record;
        std::string text;
    };
    const auto made = std::make_shared<Single>();
    made->record = record;
    made->text.reserve(textSize(record));
    for (std::string_view* part : {&made->record.key, &made->record.fileName, &made->record.voiceId,
                                   &made->record.text, &made->record.language}) {
        const std::size_t from = made->text.size();
        made->text += *part;
        *part = std::string_view(made->text).substr(from);
    }
    return {made, &made->record};
}

CacheRecordPointer makeCacheRecord(std::string_view key, const CacheEntry& entry) {
    return makeCacheRecord(CacheRecord{key, entry.fileName, entry.voiceId, entry.text,
                                       entry.language, entry.speed, entry.sampleRate,
                                       entry.durationMs, entry.bytes});
}

void CacheRecordList::add(const CacheRecord& record) {
    const std::size_t size = textSize(record);
    if (size > blockText) {
        records.push_back(makeCacheRecord(record));
        return;
    }
    if (!block || !block->hasRoom(size)) block = std::make_shared<Block>(blockRecords, blockText);
    records.emplace_back(block, block->keep(record));
}

std::vector<CacheRecordPointer> CacheRecordList::take() {
    block.reset();
    return std::exchange(records, {});
}

}  // namespace zepho
