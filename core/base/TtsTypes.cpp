#include "core/base/TtsTypes.h"

#include <utility>

#include "core/base/Text.h"
#include "core/diag/Language.h"

namespace zepho {
namespace {

// The word of a code as it is compared: without blanks around it and without regard to case.
std::string codeWord(std::string_view code) {
    return lowercased(trimmedView(code));
}

}  // namespace

std::string_view ttsGenderCode(TtsGender gender) {
    switch (gender) {
        case TtsGender::female:
            return "female";
        case TtsGender::male:
            return "male";
        case TtsGender::auto_:
            break;
    }
    return "default";
}

std::string ttsGenderDisplay(TtsGender gender) {
    switch (gender) {
        case TtsGender::female:
            return T("女声");
        case TtsGender::male:
            return T("男声");
        case TtsGender::auto_:
            break;
    }
    return T("默认");
}

TtsGender ttsGenderFromCode(std::string_view code) {
    const std::string word = codeWord(code);
    if (word == "female" || word == "f" || word == "女") return TtsGender::female;
    if (word == "male" || word == "m" || word == "男") return TtsGender::male;
    return TtsGender::auto_;
}

std::string_view ttsSpeedModeCode(TtsSpeedMode mode) {
    switch (mode) {
        case TtsSpeedMode::localStretch:
            return "stretch";
        case TtsSpeedMode::localResample:
            return "resample";
        case TtsSpeedMode::engine:
            break;
    }
    return "engine";
}

std::string ttsSpeedModeDisplay(TtsSpeedMode mode) {
    switch (mode) {
        case TtsSpeedMode::localStretch:
            return T("本地变速不变调(WSOLA)");
        case TtsSpeedMode::localResample:
            return T("本地重采样(变速也变调)");
        case TtsSpeedMode::engine:
            break;
    }
    return T("引擎原生 speed");
}

TtsSpeedMode ttsSpeedModeFromCode(std::string_view code) {
    const std::string word = codeWord(code);
    if (word == "stretch") return TtsSpeedMode::localStretch;
    if (word == "resample") return TtsSpeedMode::localResample;
    return TtsSpeedMode::engine;
}

std::string_view computeBackendCode(ComputeBackend backend) {
    switch (backend) {
        case ComputeBackend::cpu:
            return "cpu";
        case ComputeBackend::metal:
            return "metal";
        case ComputeBackend::auto_:
            break;
    }
    return "auto";
}

std::string computeBackendDisplay(ComputeBackend backend) {
    switch (backend) {
        case ComputeBackend::cpu:
            return T("CPU(任何机器都能跑,最慢)");
        case ComputeBackend::metal:
            return T("Metal(Apple 芯片 GPU)");
        case ComputeBackend::auto_:
            break;
    }
    return T("自动(有 Apple GPU 就用 Metal)");
}

ComputeBackend computeBackendFromCode(std::string_view code) {
    const std::string word = codeWord(code);
    if (word == "cpu") return ComputeBackend::cpu;
    if (word == "metal" || word == "gpu") return ComputeBackend::metal;
    return ComputeBackend::auto_;
}

TtsRequest TtsRequest::make(std::string text, std::string language, TtsGender gender, float speed) {
    TtsRequest request;
    request.text = std::move(text);
    request.language = std::move(language);
    request.gender = gender;
    request.speed = speed;
    request.normalize();
    return request;
}

void TtsRequest::normalize() {
    text = trimmed(text);
    airline = normAirline(airline);
    style = trimmed(style);
    voiceId = trimmed(voiceId);
    speed = clampSpeed(speed);
    if (sampleRate < 0) sampleRate = 0;
    // effectiveText() brings the brackets back, so one pair is taken off here.
    if (style.size() >= 2 && style.front() == '[' && style.back() == ']')
        style = trimmed(std::string_view(style).substr(1, style.size() - 2));
}

std::string TtsRequest::effectiveText() const {
    return style.empty() ? text : "[" + style + "] " + text;
}

std::string TtsRequest::describe() const {
    return formatText("[%@/%@/%@ x%.2f%@] %@", language, ttsGenderCode(gender),
                      voiceId.empty() ? std::string_view("-") : std::string_view(voiceId),
                      static_cast<double>(speed), style.empty() ? std::string() : " " + style,
                      text);
}

}  // namespace zepho
