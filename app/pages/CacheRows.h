// What the cache page lists: one snapshot of the cache, made ready for searching and sorting.
//
// Immutable; shared by pointer. Making one takes a while with many entries and belongs on a background
// thread, so that a search while typing has only prepared texts to look through.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "app/AppState.h"

namespace zepho {

class CacheRows {
public:
    // A row's place in the snapshot.
    using Row = std::uint32_t;
    struct Voice {
        std::string id;
        std::string name;  // the id itself where the library has no such voice
    };

    CacheRows(std::shared_ptr<const CacheSnapshot> entries, const std::vector<VoiceInfo>& library);

    // The rows of this voice that hold the text in their voice or sentence, whatever its case. Empty
    // means no condition.
    [[nodiscard]] std::vector<Row> matching(std::string_view text, std::string_view voiceId) const;

    [[nodiscard]] const std::shared_ptr<const CacheSnapshot>& snapshot() const { return entries; }
    // Those that occur, by name.
    [[nodiscard]] const std::vector<Voice>& voices() const { return spoken; }
    [[nodiscard]] bool contains(const std::string& key) const;

    [[nodiscard]] const std::string& key(Row row) const { return (*entries)[row].first; }
    [[nodiscard]] const CacheEntry& entry(Row row) const { return (*entries)[row].second; }
    [[nodiscard]] const std::string& voiceName(Row row) const { return spoken[voiceOf[row]].name; }
    // Where a row stands by its voice's name, by its language, and by its sentence.
    [[nodiscard]] double voiceRank(Row row) const { return voiceOf[row]; }
    [[nodiscard]] double languageRank(Row row) const { return languageRanks[row]; }
    [[nodiscard]] double textRank(Row row) const { return textRanks[row]; }

private:
    void findVoices(const std::vector<VoiceInfo>& library);
    void rankLanguages();
    void rankTexts();
    [[nodiscard]] std::string_view foldedText(Row row) const;

    // Constant after construction.
    const std::shared_ptr<const CacheSnapshot> entries;
    std::vector<Voice> spoken;
    std::vector<std::string> foldedVoices;  // name and id of each in `spoken`
    std::vector<std::uint32_t> voiceOf;     // of each row, its place in `spoken`
    std::string folded;                     // all sentences behind each other, in lower case
    std::vector<std::size_t> foldedEnds;
    std::vector<std::uint32_t> languageRanks;
    std::vector<std::uint32_t> textRanks;
};

}  // namespace zepho
