#include "app/pages/CacheRows.h"

#include <QCollator>
#include <algorithm>
#include <map>
#include <numeric>
#include <unordered_map>
#include <utility>

#include "app/QtText.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

// The place of each element in the order of their keys; equal ones share it.
template <class Key>
std::vector<std::uint32_t> ranksOf(const std::vector<Key>& keys) {
    std::vector<std::uint32_t> order(keys.size());
    std::iota(order.begin(), order.end(), 0U);
    std::sort(order.begin(), order.end(),
              [&](std::uint32_t a, std::uint32_t b) { return keys[a] < keys[b]; });
    std::vector<std::uint32_t> ranks(keys.size());
    for (std::size_t place = 1; place < order.size(); ++place) {
        const bool higher = keys[order[place - 1]] < keys[order[place]];
        ranks[order[place]] = ranks[order[place - 1]] + (higher ? 1 : 0);
    }
    return ranks;
}

}  // namespace

CacheRows::CacheRows(std::shared_ptr<const CacheSnapshot> all,
                     const std::vector<VoiceInfo>& library)
    : entries(std::move(all)) {
    findVoices(library);
    foldedEnds.reserve(entries->size());
    for (const auto& [key, entry] : *entries) {
        folded += lowercased(entry.text);
        foldedEnds.push_back(folded.size());
    }
    rankLanguages();
    rankTexts();
}

void CacheRows::findVoices(const std::vector<VoiceInfo>& library) {
    std::unordered_map<std::string, std::string> names;  // by the id in lower case
    for (const VoiceInfo& voice : library) names.emplace(lowercased(voice.id), voice.display);
    std::map<std::string, std::vector<Row>> rowsOf;  // by the id as it is stored
    for (std::size_t row = 0; row < entries->size(); ++row)
        rowsOf[(*entries)[row].second.voiceId].push_back(static_cast<Row>(row));
    const QCollator collator;
    std::vector<std::pair<QCollatorSortKey, Voice>> byName;
    for (const auto& [id, rows] : rowsOf) {
        const auto known = names.find(lowercased(id));
        const std::string& name = known == names.end() ? id : known->second;
        byName.emplace_back(collator.sortKey(toQt(name)), Voice{id, name});
    }
    std::stable_sort(byName.begin(), byName.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    voiceOf.resize(entries->size());
    for (auto& [sortKey, voice] : byName) {
        for (const Row row : rowsOf[voice.id])
            voiceOf[row] = static_cast<std::uint32_t>(spoken.size());
        foldedVoices.push_back(lowercased(voice.name) + "\n" + lowercased(voice.id));
        spoken.push_back(std::move(voice));
    }
}

void CacheRows::rankLanguages() {
    std::map<std::string, std::uint32_t> places;
    for (const auto& [key, entry] : *entries) places.emplace(entry.language, 0);
    std::uint32_t place = 0;
    for (auto& [language, rank] : places) rank = place++;
    languageRanks.reserve(entries->size());
    for (const auto& [key, entry] : *entries) languageRanks.push_back(places[entry.language]);
}

void CacheRows::rankTexts() {
    const QCollator collator;
    std::vector<QCollatorSortKey> keys;
    keys.reserve(entries->size());
    for (const auto& [key, entry] : *entries) keys.push_back(collator.sortKey(toQt(entry.text)));
    textRanks = ranksOf(keys);
}

std::string_view CacheRows::foldedText(Row row) const {
    const std::size_t begin = row == 0 ? 0 : foldedEnds[row - 1];
    return std::string_view(folded).substr(begin, foldedEnds[row] - begin);
}

std::vector<CacheRows::Row> CacheRows::matching(std::string_view text,
                                                std::string_view voiceId) const {
    const std::string wanted = lowercased(text);
    std::vector<bool> voiceHolds;
    std::vector<bool> voicePasses;
    for (std::size_t i = 0; i < spoken.size(); ++i) {
        voiceHolds.push_back(foldedVoices[i].find(wanted) != std::string::npos);
        voicePasses.push_back(voiceId.empty() || spoken[i].id == voiceId);
    }
    std::vector<Row> rows;
    for (std::size_t i = 0; i < entries->size(); ++i) {
        const auto row = static_cast<Row>(i);
        if (!voicePasses[voiceOf[i]]) continue;
        if (voiceHolds[voiceOf[i]] || foldedText(row).find(wanted) != std::string_view::npos)
            rows.push_back(row);
    }
    return rows;
}

bool CacheRows::contains(const std::string& key) const {
    const auto place =
        std::lower_bound(entries->begin(), entries->end(), key,
                         [](const auto& entry, const std::string& id) { return entry.first < id; });
    return place != entries->end() && place->first == key;
}

}  // namespace zepho
