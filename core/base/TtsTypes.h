// The plain values that everything on the synthesis path passes around. Copied freely; any thread.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/base/Constants.h"
#include "core/platform/Bytes.h"

namespace zepho {

enum class TtsGender { auto_ = 0, female = 1, male = 2 };
inline constexpr std::array allTtsGenders{TtsGender::auto_, TtsGender::female, TtsGender::male};

std::string_view ttsGenderCode(TtsGender gender);    // "default", "female", "male"
std::string ttsGenderDisplay(TtsGender gender);      // in the interface language
TtsGender ttsGenderFromCode(std::string_view code);  // never fails; anything unknown is auto_

enum class TtsPriority { normal = 0, high = 1 };

// Where a speed change is made: asked of the engine, or here with or without keeping the pitch.
enum class TtsSpeedMode { engine, localStretch, localResample };
inline constexpr std::array allTtsSpeedModes{TtsSpeedMode::engine, TtsSpeedMode::localStretch,
                                             TtsSpeedMode::localResample};

std::string_view ttsSpeedModeCode(TtsSpeedMode mode);  // "engine", "stretch", "resample"
std::string ttsSpeedModeDisplay(TtsSpeedMode mode);
TtsSpeedMode ttsSpeedModeFromCode(std::string_view code);  // anything unknown is engine

enum class ComputeBackend { auto_, cpu, metal };
inline constexpr std::array allComputeBackends{ComputeBackend::auto_, ComputeBackend::cpu,
                                               ComputeBackend::metal};

std::string_view computeBackendCode(ComputeBackend backend);  // "auto", "cpu", "metal"
std::string computeBackendDisplay(ComputeBackend backend);
ComputeBackend computeBackendFromCode(std::string_view code);  // "gpu" is metal; unknown is auto_

// One line to be spoken.
struct TtsRequest {
    std::string text;
    std::string airline;   // ICAO-style; empty means no airline routing
    std::string language;  // lower-case code; empty means automatic
    TtsGender gender = TtsGender::auto_;
    float speed = 1.0F;
    std::string voiceId;  // a voice named directly
    std::string style;    // spoken-style hint, carried in front of the text
    TtsPriority priority = TtsPriority::normal;
    std::int64_t sampleRate = 0;  // wanted output rate in hertz; below 1 means the configured one
    std::int64_t seed = 0;        // 0 means the voice's own

    // A default request with these four fields, normalised.
    static TtsRequest make(std::string text, std::string language, TtsGender gender, float speed);

    // Brings equal requests to one form. The language is normalised where a request enters.
    void normalize();
    // What is sent to the engine and enters cache keys: the style in brackets, then the text.
    [[nodiscard]] std::string effectiveText() const;
    // One line for logs.
    [[nodiscard]] std::string describe() const;
};

// One finished line.
struct TtsResult {
    SharedBytes wav;  // the whole WAV file
    int sampleRate = 0;
    int channels = 0;
    std::int64_t durationMs = 0;
    std::int64_t synthMs = 0;  // time the engine took; 0 where nothing was synthesised now
    std::string voiceId;
    std::string language;
    TtsGender gender = TtsGender::auto_;
    float speed = 1.0F;  // speed at which `wav` was stored
    std::string engine;  // name of the engine that spoke
    std::string etag;    // entity tag of exactly this result
    bool fromCache = false;

    [[nodiscard]] bool isEmpty() const { return wav.empty(); }
};

// Everything that an engine gets for one line.
struct S2Params {
    std::string text;            // style prefix included
    SharedBytes referenceAudio;  // the voice's reference clip
    std::string referenceText;   // transcript of that clip
    std::string voiceProfile;    // path of a prepared voice profile
    std::int64_t maxNewTokens = ZEPHO::s2DefMaxTokens;
    float temperature = ZEPHO::s2DefTemperature;
    float topP = ZEPHO::s2DefTopP;
    std::int64_t topK = ZEPHO::s2DefTopK;
    float repetitionPenalty = ZEPHO::s2DefRepPenalty;
    std::int64_t seed = 0;
};

}  // namespace zepho
