// The tables of AppConfig: bindings and hub shares.
#include <algorithm>
#include <set>

#include "core/config/AppConfig.h"
#include "core/config/BindingKeys.h"
#include "core/platform/Unicode.h"

namespace zepho {

std::string AppConfig::binding(const VoiceTable& table, const std::string& key) const {
    const std::lock_guard guard(lock);
    const auto found = table.find(key);
    return found == table.end() ? std::string() : found->second;
}

void AppConfig::setBinding(VoiceTable& table, std::string key, std::string_view voiceId) {
    const std::string_view id = trimmedView(voiceId);
    const std::lock_guard guard(lock);
    if (id.empty())
        table.erase(key);
    else
        table[std::move(key)] = std::string(id);
}

std::vector<Binding> AppConfig::snapshotOf(const VoiceTable& table) const {
    const std::lock_guard guard(lock);
    return {table.begin(), table.end()};
}

std::string AppConfig::airlineVoice(std::string_view airline, std::string_view language,
                                    TtsGender gender) const {
    if (trimmedView(airline).empty()) return {};
    return binding(airlines, airlineKey(airline, language, gender));
}

void AppConfig::setAirlineVoice(std::string_view airline, std::string_view language,
                                TtsGender gender, std::string_view voiceId) {
    if (trimmedView(airline).empty()) return;
    setBinding(airlines, airlineKey(airline, language, gender), voiceId);
}

void AppConfig::removeAirlineBinding(const std::string& key) {
    setBinding(airlines, key, {});
}

std::string AppConfig::defaultVoice(std::string_view language, TtsGender gender) const {
    return binding(defaults, defaultKey(language, gender));
}

void AppConfig::setDefaultVoice(std::string_view language, TtsGender gender,
                                std::string_view voiceId) {
    setBinding(defaults, defaultKey(language, gender), voiceId);
}

std::vector<Binding> AppConfig::airlinesSnapshot() const {
    return snapshotOf(airlines);
}

std::vector<Binding> AppConfig::defaultsSnapshot() const {
    return snapshotOf(defaults);
}

std::vector<std::string> AppConfig::knownAirlines() const {
    std::set<std::string> codes;
    const std::lock_guard guard(lock);
    for (const auto& [key, voiceId] : airlines) {
        const std::size_t colon = key.find(':');
        if (colon != std::string::npos && colon > 0) codes.insert(key.substr(0, colon));
    }
    return {codes.begin(), codes.end()};
}

void AppConfig::forgetVoice(std::string_view voiceId) {
    const std::string_view id = trimmedView(voiceId);
    if (id.empty()) return;
    const auto leadsThere = [id](const auto& entry) {
        return equalsIgnoringCase(entry.second, id);
    };
    const std::lock_guard guard(lock);
    std::erase_if(airlines, leadsThere);
    std::erase_if(defaults, leadsThere);
}

void AppConfig::addHubShare(const HubShare& share) {
    if (share.id.empty() || share.deleteKey.empty()) return;
    const std::lock_guard guard(lock);
    const auto known = std::find_if(hubShares.begin(), hubShares.end(), [&](const HubShare& other) {
        return equalsIgnoringCase(other.id, share.id);
    });
    if (known == hubShares.end())
        hubShares.push_back(share);
    else
        *known = share;
}

std::string AppConfig::hubDeleteKey(std::string_view id) const {
    const std::lock_guard guard(lock);
    for (const HubShare& share : hubShares)
        if (equalsIgnoringCase(share.id, id)) return share.deleteKey;
    return {};
}

void AppConfig::removeHubShare(std::string_view id) {
    const std::lock_guard guard(lock);
    std::erase_if(hubShares,
                  [id](const HubShare& share) { return equalsIgnoringCase(share.id, id); });
}

std::vector<HubShare> AppConfig::hubSharesSnapshot() const {
    const std::lock_guard guard(lock);
    return hubShares;
}

}  // namespace zepho
