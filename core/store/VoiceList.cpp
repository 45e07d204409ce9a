#include "core/store/VoiceList.h"

#include <algorithm>
#include <utility>

#include "core/platform/Unicode.h"

namespace zepho {

VoiceList::VoiceList(const std::vector<SharedVoice>& voices) {
    entries.reserve(voices.size());
    for (const SharedVoice& voice : voices) append(voice);
}

std::vector<SharedVoice> VoiceList::all() const {
    std::vector<SharedVoice> voices;
    voices.reserve(entries.size());
    for (const Entry& entry : entries) voices.push_back(entry.voice);
    return voices;
}

SharedVoice VoiceList::findById(std::string_view id) const {
    const auto found = firstById.find(lowercased(id));
    return found == firstById.end() ? nullptr : entries[found->second].voice;
}

SharedVoice VoiceList::findByDisplay(std::string_view name) const {
    const std::string folded = lowercased(name);
    const auto found = std::find_if(entries.begin(), entries.end(), [&folded](const Entry& entry) {
        return entry.foldedDisplay == folded;
    });
    return found == entries.end() ? nullptr : found->voice;
}

SharedVoice VoiceList::findAlike(std::string_view name, std::string_view language,
                                 TtsGender gender) const {
    const std::string folded = lowercased(name);
    const auto found = std::find_if(entries.begin(), entries.end(), [&](const Entry& entry) {
        return entry.voice->gender == gender && entry.voice->language == language &&
               entry.foldedDisplay == folded;
    });
    return found == entries.end() ? nullptr : found->voice;
}

std::string VoiceList::freeId(const std::string& id) const {
    if (!findById(id)) return id;
    for (std::size_t& taken = takenSuffixes[id];; ++taken) {
        std::string suffixed = id + "-" + std::to_string(taken + 1);
        if (!findById(suffixed)) return suffixed;
    }
}

void VoiceList::append(SharedVoice voice) {
    std::string foldedId = lowercased(voice->id);
    std::string foldedDisplay = lowercased(voice->display);
    entries.push_back({std::move(voice), std::move(foldedDisplay)});
    // An id that is there already keeps leading to its first voice.
    firstById.try_emplace(std::move(foldedId), entries.size() - 1);
}

bool VoiceList::replace(SharedVoice voice) {
    const auto found = firstById.find(lowercased(voice->id));
    if (found == firstById.end()) return false;
    Entry& entry = entries[found->second];
    entry.foldedDisplay = lowercased(voice->display);
    entry.voice = std::move(voice);
    return true;
}

SharedVoice VoiceList::remove(std::string_view id) {
    const auto found = firstById.find(lowercased(id));
    if (found == firstById.end()) return nullptr;
    SharedVoice removed = entries[found->second].voice;
    takenSuffixes.clear();
    entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(found->second));
    // Every later voice has moved, and a second one of the same id may now be the first.
    firstById.clear();
    for (std::size_t place = 0; place < entries.size(); ++place)
        firstById.try_emplace(lowercased(entries[place].voice->id), place);
    return removed;
}

}  // namespace zepho
