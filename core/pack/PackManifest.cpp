#include "core/pack/PackManifest.h"

#include <unordered_map>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/base/Text.h"

namespace zepho {
namespace {

VoiceInfo readVoice(const Json& object) {
    VoiceInfo voice;
    voice.id = jStr(&object, "id");
    voice.display = jStr(&object, "display");
    voice.language = normLang(jStr(&object, "language"));
    voice.gender = ttsGenderFromCode(jStr(&object, "gender", "default"));
    voice.style = jStr(&object, "style");
    voice.note = jStr(&object, "note");
    if (const Json* clips = jArr(&object, "clips"))
        for (const Json& clip : *clips)
            if (clip.is_object())
                voice.clips.push_back(
                    {jStr(&clip, "file"), jStr(&clip, "text"), jInt(&clip, "durationMs", 0)});
    return voice;
}

}  // namespace

Json voiceToPackJson(const VoiceInfo& voice) {
    Json clips = Json::array();
    for (const VoiceClip& clip : voice.clips)
        clips.push_back(
            {{"file", clip.fileName}, {"text", clip.text}, {"durationMs", clip.durationMs}});
    return {{"id", voice.id},
            {"display", voice.display},
            {"language", voice.language},
            {"gender", ttsGenderCode(voice.gender)},
            {"style", voice.style},
            {"note", voice.note},
            {"clips", std::move(clips)}};
}

Json packManifestJson(const PackManifest& manifest, WallTime exportedAt) {
    Json voices = Json::array();
    for (const VoiceInfo& voice : manifest.voices) voices.push_back(voiceToPackJson(voice));
    Json airlines = Json::object();
    for (const auto& [key, voiceId] : manifest.airlines) airlines[key] = voiceId;
    return {{"format", packFormat},
            {"version", 1},
            {"exportedAt", formatIso8601(exportedAt)},
            {"voices", std::move(voices)},
            {"airlines", std::move(airlines)}};
}

bool isWithinPackLimits(const PackManifest& manifest) {
    std::size_t items = manifest.voices.size();
    std::unordered_map<std::string_view, std::size_t> uses;
    for (const VoiceInfo& voice : manifest.voices) {
        items += voice.clips.size();
        for (const VoiceClip& clip : voice.clips)
            if (++uses[clip.fileName] > maxEntryUses) return false;
    }
    return items <= maxPackItems && manifest.voices.size() <= maxPackVoices &&
           manifest.airlines.size() <= maxPackItems;
}

std::optional<PackManifest> readPackManifest(const Json& root) {
    PackManifest manifest;
    std::size_t items = 0;
    if (const Json* voices = jArr(&root, "voices")) {
        for (const Json& object : *voices) {
            if (!object.is_object()) continue;
            const Json* clips = jArr(&object, "clips");
            items += 1 + (clips != nullptr ? clips->size() : 0);
            // Before the values take many times the memory of their text.
            if (items > maxPackItems) return std::nullopt;
            manifest.voices.push_back(readVoice(object));
        }
    }
    if (const Json* airlines = jObj(&root, "airlines"))
        for (const auto& [key, voiceId] : airlines->items())
            if (voiceId.is_string()) manifest.airlines[key] = voiceId.get<std::string>();
    if (!isWithinPackLimits(manifest)) return std::nullopt;
    return manifest;
}

std::optional<AirlineKeyParts> splitAirlineKey(std::string_view key) {
    const std::size_t first = key.find(':');
    if (first == std::string_view::npos) return std::nullopt;
    const std::size_t second = key.find(':', first + 1);
    if (second == std::string_view::npos) return std::nullopt;
    const std::size_t third = key.find(':', second + 1);
    return AirlineKeyParts{key.substr(0, first), key.substr(first + 1, second - first - 1),
                           ttsGenderFromCode(key.substr(second + 1, third - second - 1))};
}

}  // namespace zepho
