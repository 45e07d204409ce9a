// The list of voices with quick look-up: insertion order kept, ids compared without regard to case,
// and the first of several voices with one id wins.
//
// A plain container without a lock of its own; the voice library guards it. Voices are shared and
// never changed in place, so a copy of the list is cheap and stays as it was.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/store/VoiceFile.h"

namespace zepho {

class VoiceList {
public:
    VoiceList() = default;
    explicit VoiceList(const std::vector<SharedVoice>& voices);

    [[nodiscard]] std::size_t size() const { return entries.size(); }
    [[nodiscard]] std::vector<SharedVoice> all() const;
    // nullptr where there is none.
    [[nodiscard]] SharedVoice findById(std::string_view id) const;
    [[nodiscard]] SharedVoice findByDisplay(std::string_view name) const;
    // With this name, and exactly this language and gender.
    [[nodiscard]] SharedVoice findAlike(std::string_view name, std::string_view language,
                                        TtsGender gender) const;
    // The id if it is free, otherwise with the lowest suffix -1, -2, … that makes it so.
    [[nodiscard]] std::string freeId(const std::string& id) const;

    void append(SharedVoice voice);
    // Puts the voice in the place of the first one with its id. False if there is none.
    bool replace(SharedVoice voice);
    // Takes the first voice with this id out of the list; nullptr if there is none.
    SharedVoice remove(std::string_view id);

private:
    struct Entry {
        SharedVoice voice;
        std::string foldedDisplay;  // as findByDisplay() compares it
    };

    std::vector<Entry> entries;
    std::unordered_map<std::string, std::size_t> firstById;  // by lower-cased id
    // The suffixes up to this number are taken, so that many voices of one content are not counted
    // through anew for each. Only a removal makes one of them free.
    mutable std::unordered_map<std::string, std::size_t> takenSuffixes;
};

}  // namespace zepho
