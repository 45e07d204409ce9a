// The voice of a fresh installation: the model is asked to invent one, and what it speaks becomes
// the reference of a new voice.
#include <utility>

#include "core/base/Hash.h"
#include "core/base/Text.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/service/TtsService.h"

namespace zepho {
namespace {

std::string referenceSentence(const std::string& language) {
    if (language == "zh") return "各位旅客请注意,本次航班即将起飞,请系好安全带,收起小桌板。";
    if (language == "ja")
        return "ご搭乗のみなさま、まもなく出発いたします。シートベルトをお締めください。";
    return "Ladies and gentlemen, we are now ready for departure. Please fasten your seat belt and "
           "stow your tray table.";
}

std::string voiceDescription(TtsGender gender) {
    const std::string who = gender == TtsGender::auto_
                                ? "neutral adult voice"
                                : "adult " + std::string(ttsGenderCode(gender)) + " voice";
    return "a calm " + who + ", clear professional broadcast tone";
}

// The same language and gender invent the same voice again.
std::int64_t inventionSeed(const std::string& language, TtsGender gender) {
    const std::int64_t hash = stableHash(language);
    const std::uint64_t magnitude =
        hash < 0 ? 0 - static_cast<std::uint64_t>(hash) : static_cast<std::uint64_t>(hash);
    return static_cast<std::int64_t>(magnitude & 65535) * 31 + static_cast<std::int64_t>(gender) +
           1;
}

}  // namespace

VoiceInfo TtsService::ensureDefaultVoice(const std::string& language, TtsGender gender) {
    TtsRequest request;
    request.language = language;
    request.gender = gender;
    const auto found = voices.resolve(request).voice;
    if (found && !found->id.starts_with("(auto)")) return *found;
    return bootstrapDefaultVoice(language, gender);
}

VoiceInfo TtsService::bootstrapDefaultVoice(const std::string& language, TtsGender gender) {
    const std::string sentence = referenceSentence(language);
    const std::string genderName = ttsGenderDisplay(gender);

    S2Params params = samplingParams();
    params.text = "[" + voiceDescription(gender) + "] " + sentence;
    params.repetitionPenalty = ZEPHO::s2DefRepPenalty;
    params.seed = inventionSeed(language, gender);
    VoiceHint hint;
    hint.language = language;
    hint.gender = gender;
    hint.seed = params.seed;
    hint.display = langDisplay(language) + "·" + genderName;
    AppLog::info("service", "no voice for " + hint.display +
                                " yet; asking the model to speak one line as the reference...");

    const SynthOutcome spoken =
        queue->submit(std::move(params), hint, TtsPriority::high, config->requestTimeoutMs, {});
    if (spoken.pcm.isEmpty())
        throw TtsError(TtsErrorCode::engineFailed, T("生成默认音色时引擎没出声音"));

    VoiceCloneSpec spec;
    spec.display =
        T("默认") + " " + (language.empty() ? std::string("auto") : language) + " · " + genderName;
    spec.language = language;
    spec.gender = gender;
    spec.clips.push_back({buildWav(spoken.pcm, 1), sentence});
    spec.note = T("首次使用时由模型自己生成的默认音色");
    VoiceInfo voice = voices.addClone(spec);
    config->setDefaultVoice(language, gender, voice.id);
    config->save();
    AppLog::info("service", "default voice generated and bound: " + spec.display + " (" +
                                std::to_string(spoken.pcm.durationMs()) + " ms of reference)");
    return voice;
}

}  // namespace zepho
