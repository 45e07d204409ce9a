// The pipeline: from a request to a finished clip.
#include "core/service/TtsService.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "core/audio/PcmBuffer.h"
#include "core/audio/SpeedChange.h"
#include "core/audio/WavReader.h"
#include "core/base/Hash.h"
#include "core/base/Text.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"

namespace zepho {
namespace {

constexpr float speedTolerance = 0.01F;  // a speed this near to 1 needs no change
constexpr float silencePeak = 0.00001F;  // below it there is nothing to normalise
constexpr float normalisedPeak = 0.95F;
constexpr std::size_t logPrefix = 40;           // characters of a line that stand in the log
constexpr std::int64_t maxOutputRate = 384000;  // hertz; beyond what any player takes
constexpr double maxLineSamples = 1 << 28;      // over an hour at the usual rates

bool changesSpeed(float speed) {
    return std::fabs(speed - 1.0F) > speedTolerance;
}

PcmBuffer atSpeed(PcmBuffer pcm, float speed, TtsSpeedMode mode) {
    return changeSpeed(std::move(pcm), speed, mode);
}

// Puts the audio into the result as a mono WAV.
void setAudio(TtsResult& result, const PcmBuffer& pcm) {
    result.wav = buildWav(pcm, 1);
    result.sampleRate = pcm.sampleRate;
    result.durationMs = pcm.durationMs();
}

// A cached clip is stored at speed 1. One that cannot be read is served as it is: a clip at the
// wrong speed is better than none.
void retimeFromCache(TtsResult& result, float speed, TtsSpeedMode mode) {
    if (!changesSpeed(speed)) return;
    std::optional<ParsedWav> clip = parseWavWithFormat(result.wav);
    if (!clip) {
        AppLog::warn("service", "cached clip could not be parsed for retiming, serving it as-is");
        return;
    }
    setAudio(result, atSpeed(std::move(clip->pcm), speed, mode));
}

// An engine that names an absurd rate would have the line blown up to any size.
bool isEndless(const PcmBuffer& pcm, std::int64_t rate) {
    if (rate < 1 || pcm.sampleRate < 1) return false;
    const double seconds = static_cast<double>(pcm.data.size()) / pcm.sampleRate;
    return seconds * static_cast<double>(rate) > maxLineSamples;
}

void normaliseLevel(PcmBuffer& pcm) {
    float peak = 0;
    for (const float sample : pcm.data) peak = std::max(peak, std::fabs(sample));
    if (peak >= silencePeak) applyGain(pcm, normalisedPeak / peak);
}

}  // namespace

TtsResult TtsService::synthesize(const TtsRequest& asked) {
    TtsRequest request = asked;
    request.normalize();
    if (request.text.empty()) throw TtsError(TtsErrorCode::emptyText, T("没有要合成的文本"));
    const auto characters = static_cast<std::int64_t>(graphemeCount(request.text));
    const std::int64_t limit = config->maxTextLength;
    if (characters > limit)
        throw TtsError(TtsErrorCode::textTooLong, TF("文本 %d 字,超过上限 %d", characters, limit));
    const VoiceInfo voice = voiceFor(request);
    const Line line = settleLine(std::move(request), voice);

    if (std::optional<TtsResult> hit = cache.tryGet(line.key)) {
        if (!line.nativeSpeed) retimeFromCache(*hit, line.request.speed, line.speedMode);
        hit->speed = line.request.speed;
        hit->etag = line.etag;
        countAnswered();
        return std::move(*hit);
    }
    if (modelUnloaded()) {
        countFailed();
        throw TtsError(
            TtsErrorCode::engineNotConnected,
            T("模型已卸载,这一句缓存里没有。\n要现合成的话,先在「模型」页点「载入模型」。"));
    }

    SynthOutcome spoken;
    try {
        // The reference clip is megabytes to read: not for a line that is refused.
        queue->requireRoom();
        spoken =
            queue->submit(buildParams(line.request, line.voice), VoiceHint(line.voice),
                          line.request.priority, config->requestTimeoutMs,
                          [weak = weak_from_this(), line](PcmBuffer pcm, std::int64_t elapsedMs) {
                              if (const auto self = weak.lock())
                                  self->keepLate(line, std::move(pcm), elapsedMs);
                          });
    } catch (const TtsError&) {
        countFailed();
        throw;
    }
    if (spoken.pcm.isEmpty()) {
        countFailed();
        throw TtsError(TtsErrorCode::engineFailed, T("引擎返回了空音频"));
    }
    if (isEndless(spoken.pcm, line.targetRate)) {
        countFailed();
        throw TtsError(TtsErrorCode::engineFailed,
                       TF("the engine's %d samples at %d Hz are too long for a line",
                          spoken.pcm.data.size(), spoken.pcm.sampleRate));
    }

    TtsResult result = finishAndStore(line, spoken.pcm, spoken.elapsedMs);
    if (!line.nativeSpeed && changesSpeed(line.request.speed))
        setAudio(result, atSpeed(std::move(spoken.pcm), line.request.speed, line.speedMode));
    result.speed = line.request.speed;
    result.etag = line.etag;
    recordDuration(spoken.elapsedMs);
    countAnswered();
    {
        const std::lock_guard guard(lock);
        totalAudioMs += result.durationMs;
        totalSynthMs += spoken.elapsedMs;
    }
    return result;
}

// The voice that routing chose, or the default voice made now. Throws where there is none.
VoiceInfo TtsService::voiceFor(const TtsRequest& request) {
    std::optional<VoiceInfo> voice = voices.resolve(request).voice;
    if (!voice && request.airline.empty() && config->autoCreateDefaultVoice) {
        try {
            voice = bootstrapDefaultVoice(request.language, request.gender);
        } catch (const TtsError& failure) {
            AppLog::warn("service", "could not create the default voice: " + failure.message);
        }
    }
    if (!voice) throw TtsError(TtsErrorCode::badVoice, noVoiceMessage(request));
    return *std::move(voice);
}

TtsService::Line TtsService::settleLine(TtsRequest request, VoiceInfo voice) {
    Line line;
    if (request.style.empty()) request.style = voice.style;
    line.engine = activeEngine();
    line.engineName = line.engine->name();
    line.speedMode = config->speedMode;
    if (request.sampleRate > maxOutputRate)
        throw TtsError(TtsErrorCode::badAudio, TF("the sample rate %d is over the limit of %d Hz",
                                                  request.sampleRate, maxOutputRate));
    line.targetRate = request.sampleRate >= 1
                          ? request.sampleRate
                          : std::min(config->outputSampleRate.get(), maxOutputRate);
    line.nativeSpeed = line.speedMode == TtsSpeedMode::engine && line.engine->supportsNativeSpeed();

    // All speeds of a line share one stored clip, while each has an entity tag of its own.
    const std::string tag = line.engineName + "/" + std::string(ttsSpeedModeCode(line.speedMode));
    line.etag = makeCacheKey(request, voice, tag, line.targetRate, line.nativeSpeed);
    if (line.nativeSpeed || request.speed == 1.0F) {
        line.key = line.etag;
    } else {
        TtsRequest atNormalSpeed = request;
        atNormalSpeed.speed = 1.0F;
        line.key = makeCacheKey(atNormalSpeed, voice, tag, line.targetRate, false);
    }
    line.request = std::move(request);
    line.voice = std::move(voice);
    return line;
}

bool TtsService::isCached(const TtsRequest& asked) {
    TtsRequest request = asked;
    request.normalize();
    if (request.text.empty()) return false;
    try {
        std::optional<VoiceInfo> voice = voices.resolve(request).voice;
        if (!voice) return false;
        return cache.contains(settleLine(std::move(request), *std::move(voice)).key);
    } catch (const TtsError&) {
        return false;
    }
}

// The clip at its target rate and level goes into the cache; the speed is changed afterwards.
TtsResult TtsService::finishAndStore(const Line& line, PcmBuffer& pcm, std::int64_t elapsedMs) {
    if (line.targetRate >= 1 && pcm.sampleRate >= 1 && pcm.sampleRate != line.targetRate)
        pcm = resample(std::move(pcm), static_cast<int>(line.targetRate));
    if (config->normalizeOutput) normaliseLevel(pcm);
    TtsResult clip;
    setAudio(clip, pcm);
    clip.channels = 1;
    clip.synthMs = elapsedMs;
    clip.voiceId = line.voice.id;
    clip.language = line.request.language;
    clip.gender = line.request.gender;
    clip.speed = line.nativeSpeed ? line.request.speed : 1.0F;
    clip.engine = line.engineName;
    clip.etag = line.key;
    cache.put(line.key, line.request.effectiveText(), clip);
    return clip;
}

// The caller has gone; its audio is not wasted.
void TtsService::keepLate(const Line& line, PcmBuffer pcm, std::int64_t elapsedMs) {
    if (pcm.isEmpty() || isEndless(pcm, line.targetRate)) return;
    finishAndStore(line, pcm, elapsedMs);
    AppLog::info(
        "service",
        formatText("a synthesis we had given up on finished after %.0f s and went into the "
                   "cache anyway: %@",
                   static_cast<double>(elapsedMs) / 1000,
                   graphemePrefix(line.request.effectiveText(), logPrefix)));
}

// What the settings say of sampling; the rest of the parameters is the line's.
S2Params TtsService::samplingParams() const {
    const EngineOptions options = config->engine;
    S2Params params;
    params.maxNewTokens = options.maxNewTokens;
    params.temperature = options.temperature;
    params.topP = options.topP;
    params.topK = options.topK;
    params.repetitionPenalty = options.repetitionPenalty;
    return params;
}

S2Params TtsService::buildParams(const TtsRequest& request, const VoiceInfo& voice) {
    S2Params params = samplingParams();
    params.text = request.effectiveText();
    params.seed = request.seed != 0 ? request.seed : voice.seed;
    if (voice.kind == VoiceKind::profile) {
        params.voiceProfile = voice.profileFile;
        return params;
    }
    const std::optional<SharedBytes> audio = voices.referenceAudio(voice);
    if (audio && !audio->empty()) {
        params.referenceAudio = *audio;
        params.referenceText = voices.referenceText(voice);
    } else {
        AppLog::warn("service", "reference audio for voice " + voice.display +
                                    " is missing; this request has nothing to clone from");
    }
    return params;
}

std::string TtsService::noVoiceMessage(const TtsRequest& request) const {
    const std::string language = langDisplay(request.language);
    const std::string gender = ttsGenderDisplay(request.gender);
    const std::string& airline = request.airline;
    const std::string target = airline.empty() ? language + " · " + gender
                                               : TF("航司 %@ · %@ · %@", airline, language, gender);
    std::string message = TF("没有可生成的语音:%@ 还没有绑定音色", target);
    if (!airline.empty() && config->airlineVoice(airline, "", TtsGender::auto_).empty() &&
        config->airlineVoice(airline, "", request.gender).empty())
        message += TF(",%@ 也没有「语言=自动」那条兜底", airline);
    return message + T("。去广播页绑一条 —— 想让这家航司什么语言都能出声,语言选「自动」。");
}

void TtsService::countAnswered() {
    const std::lock_guard guard(lock);
    ++totalCount;
}

void TtsService::countFailed() {
    const std::lock_guard guard(lock);
    ++totalCount;
    ++failedCount;
}

void TtsService::recordDuration(std::int64_t ms) {
    constexpr std::size_t kept = 200;
    const std::lock_guard guard(lock);
    durations.push_back(ms);
    while (durations.size() > kept) durations.pop_front();
}

}  // namespace zepho
