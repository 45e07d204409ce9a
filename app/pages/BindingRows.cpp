#include "app/pages/BindingRows.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

#include "core/config/BindingKeys.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

BindingRow rowOf(const Binding& binding, const std::map<std::string, std::string>& names) {
    BindingRow row;
    row.id = binding.first;
    row.voiceId = trimmed(binding.second);
    // A key of another shape comes from a file; it is shown as an airline.
    const std::size_t first = row.id.find(':');
    row.airline = row.id.substr(0, first);
    if (first != std::string::npos) {
        const std::size_t second = row.id.find(':', first + 1);
        row.language = row.id.substr(first + 1, second - first - 1);
        if (second != std::string::npos)
            row.gender = ttsGenderFromCode(std::string_view(row.id).substr(second + 1));
    }
    const auto name = names.find(lowercased(row.voiceId));
    if (name != names.end()) row.voiceName = name->second;
    return row;
}

}  // namespace

std::vector<BindingRow> bindingRows(const std::vector<Binding>& bindings,
                                    const std::vector<VoiceInfo>& voices) {
    std::map<std::string, std::string> names;
    // A voice without a name is there all the same.
    for (const VoiceInfo& voice : voices)
        names.emplace(lowercased(voice.id), voice.display.empty() ? voice.id : voice.display);
    std::vector<BindingRow> rows;
    rows.reserve(bindings.size());
    for (const Binding& binding : bindings) rows.push_back(rowOf(binding, names));
    std::stable_sort(rows.begin(), rows.end(), [](const BindingRow& left, const BindingRow& right) {
        return std::tie(left.airline, left.language, left.gender) <
               std::tie(right.airline, right.language, right.gender);
    });
    return rows;
}

const BindingRow* fallbackOf(const BindingRow& row, const std::vector<BindingRow>& rows) {
    // The order in which a request looks for its voice.
    const std::array<BindingSlot, 3> steps{
        {{row.language, TtsGender::auto_}, {"", row.gender}, {"", TtsGender::auto_}}};
    for (const BindingSlot& step : steps) {
        const std::string key = airlineKey(row.airline, step.language, step.gender);
        if (key == row.id) continue;
        const auto found = std::find_if(rows.begin(), rows.end(),
                                        [&](const BindingRow& other) { return other.id == key; });
        if (found != rows.end()) return &*found;
    }
    return nullptr;
}

std::optional<BindingSlot> firstFreeSlot(std::string_view airline,
                                         const std::vector<std::string>& languages,
                                         const AppConfig& config) {
    std::vector<std::string> order{""};
    order.insert(order.end(), languages.begin(), languages.end());
    for (const std::string& language : order)
        for (const TtsGender gender : allTtsGenders)
            if (config.airlineVoice(airline, language, gender).empty())
                return BindingSlot{language, gender};
    return std::nullopt;
}

}  // namespace zepho
