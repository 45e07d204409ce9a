#include "core/store/VoiceFile.h"

#include <optional>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/base/Text.h"

namespace zepho {
namespace {

std::string_view voiceKindCode(VoiceKind kind) {
    return kind == VoiceKind::profile ? "reference" : "cloned";
}

VoiceKind voiceKindFromCode(std::string_view code) {
    return lowercased(code) == "reference" ? VoiceKind::profile : VoiceKind::cloned;
}

std::string identityText(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() ? std::string() : jsonText(*found);
}

std::vector<VoiceClip> readClips(const Json& voice) {
    std::vector<VoiceClip> clips;
    if (const Json* list = jArr(&voice, "clips"))
        for (const Json& item : *list)
            if (item.is_object())
                clips.push_back({identityText(item, "file"), identityText(item, "text"),
                                 jInt(&item, "durationMs", 0)});
    if (!clips.empty()) return clips;
    // Files of older versions: one clip, told by two keys of the voice itself.
    if (std::string fileName = jStr(&voice, "refAudio"); !fileName.empty())
        clips.push_back({std::move(fileName), jStr(&voice, "refText"), 0});
    return clips;
}

std::optional<VoiceInfo> readVoice(const Json& object, WallTime now) {
    if (!object.is_object()) return std::nullopt;
    VoiceInfo voice;
    voice.id = identityText(object, "id");
    if (voice.id.empty()) return std::nullopt;
    voice.display = jStr(&object, "display", voice.id);
    voice.kind = voiceKindFromCode(jStr(&object, "kind", "cloned"));
    voice.profileFile = jStr(&object, "profile");
    voice.clips = readClips(object);
    voice.language = normLang(jStr(&object, "language", "auto"));
    voice.gender = ttsGenderFromCode(jStr(&object, "gender", "default"));
    voice.style = jStr(&object, "style");
    voice.note = jStr(&object, "note");
    voice.seed = jInt(&object, "seed", 0);
    voice.createdAt = parseIso8601(jStr(&object, "createdAt")).value_or(now);
    return voice;
}

// One text with a broken character must not cost the whole file, as JSON cannot carry it.
Json textValue(const std::string& text) {
    return isValidUtf8(text) ? text : replaceInvalidUtf8(text);
}

Json writeVoice(const VoiceInfo& voice) {
    Json clips = Json::array();
    for (const VoiceClip& clip : voice.clips)
        clips.push_back({{"file", textValue(clip.fileName)},
                         {"text", textValue(clip.text)},
                         {"durationMs", clip.durationMs}});
    return {{"id", textValue(voice.id)},
            {"display", textValue(voice.display)},
            {"kind", voiceKindCode(voice.kind)},
            {"profile", textValue(voice.profileFile)},
            {"clips", std::move(clips)},
            {"language", textValue(voice.language)},
            {"gender", ttsGenderCode(voice.gender)},
            {"style", textValue(voice.style)},
            {"note", textValue(voice.note)},
            {"seed", voice.seed},
            {"createdAt", formatIso8601(voice.createdAt)}};
}

}  // namespace

VoiceFileContent readVoiceFile(ByteView bytes, WallTime now) {
    VoiceFileContent content;
    const std::optional<Json> root = parseOwnJsonObject(bytes);
    if (!root) return content;
    content.state = VoiceFileState::withoutList;
    const Json* list = jArr(&*root, "voices");
    if (list == nullptr) return content;
    content.state = VoiceFileState::read;
    for (const Json& item : *list)
        if (std::optional<VoiceInfo> voice = readVoice(item, now))
            content.voices.push_back(std::make_shared<const VoiceInfo>(std::move(*voice)));
    return content;
}

Bytes writeVoiceFile(const std::vector<SharedVoice>& voices) {
    Json list = Json::array();
    for (const SharedVoice& voice : voices) list.push_back(writeVoice(*voice));
    const Json root = {{"voices", std::move(list)}};
    return jsonData(root, true);
}

}  // namespace zepho
