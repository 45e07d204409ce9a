// From a request to a voice, by the bindings in the configuration.
#include "core/base/Hash.h"
#include "core/base/Text.h"
#include "core/base/TtsError.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/store/VoiceLibrary.h"

namespace zepho {
namespace {

// The bound id, empty if there is none. The exact language comes before any language and, within
// it, the exact gender before any gender. An airline never falls back to the default table.
std::string boundVoice(const AppConfig& config, std::string_view airline, std::string_view language,
                       TtsGender gender) {
    const auto binding = [&](std::string_view spoken, TtsGender wanted) {
        return airline.empty() ? config.defaultVoice(spoken, wanted)
                               : config.airlineVoice(airline, spoken, wanted);
    };
    std::string id = binding(language, gender);
    if (id.empty()) id = binding(language, TtsGender::auto_);
    if (!id.empty() || language.empty()) return id;
    id = binding({}, gender);
    if (id.empty()) id = binding({}, TtsGender::auto_);
    return id;
}

}  // namespace

ResolvedVoice VoiceLibrary::resolve(const TtsRequest& request) const {
    if (!request.voiceId.empty()) {
        if (std::optional<VoiceInfo> named = find(request.voiceId)) return {std::move(named), true};
        throw TtsError(TtsErrorCode::badVoice, TF("没有这个音色:%@", request.voiceId));
    }
    const std::string id = boundVoice(config, request.airline, request.language, request.gender);
    if (id.empty()) return {};
    std::optional<VoiceInfo> bound = find(id);
    if (!bound) AppLog::warn("voices", "the voice a binding points at is gone: " + id);
    return {std::move(bound), false};
}

std::set<TtsGender> VoiceLibrary::availableGenders(std::string_view airline,
                                                   std::string_view language) const {
    const std::string spoken = normLang(language);
    std::set<TtsGender> genders;
    for (const TtsGender gender : allTtsGenders) {
        const std::string id = boundVoice(config, airline, spoken, gender);
        if (!id.empty() && findShared(id)) genders.insert(gender);
    }
    if (genders.empty()) genders.insert(TtsGender::auto_);
    return genders;
}

VoiceInfo VoiceLibrary::fallbackVoice(std::string_view language, TtsGender gender) {
    const std::int64_t hash = stableHash(language);
    const auto magnitude =
        hash < 0 ? 0 - static_cast<std::uint64_t>(hash) : static_cast<std::uint64_t>(hash);
    VoiceInfo voice;
    voice.id = "(auto):" + std::string(language) + ":" + std::string(ttsGenderCode(gender));
    voice.display = TF("未绑定(%@·%@)", langDisplay(language), ttsGenderDisplay(gender));
    voice.kind = VoiceKind::profile;
    voice.language = language;
    voice.gender = gender;
    voice.note = T("这个语言/性别还没有绑定音色");
    // One language and gender always get the same placeholder sound.
    voice.seed = static_cast<std::int64_t>(magnitude & 0xFFFF) * 977 +
                 31 * static_cast<std::int64_t>(gender) + 1;
    return voice;
}

}  // namespace zepho
