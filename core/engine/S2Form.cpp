#include "core/engine/S2Form.h"

#include <array>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/audio/AudioSniffing.h"
#include "core/audio/WavReader.h"
#include "core/base/Json.h"
#include "core/platform/Uuid.h"

namespace zepho {
namespace {

// A float written as it was typed: 0.7 and not 0.699999988079071.
double rounded(float value) {
    return std::round(static_cast<double>(value) * 10000.0) / 10000.0;
}

// The process goes by the extension; what is neither is still called wav.
std::string_view referenceFileName(ByteView audio) {
    return looksLikeMp3(audio) && !looksLikeWav(audio) ? "reference.mp3" : "reference.wav";
}

}  // namespace

void MultipartForm::addField(std::string_view name, std::string_view value) {
    appendText(body, "--" + boundary + "\r\nContent-Disposition: form-data; name=\"");
    appendText(body, name);
    appendText(body, "\"\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n");
    appendText(body, value);
    appendText(body, "\r\n");
}

void MultipartForm::addFile(std::string_view name, std::string_view fileName, ByteView bytes) {
    appendText(body, "--" + boundary + "\r\nContent-Disposition: form-data; name=\"");
    appendText(body, name);
    appendText(body, "\"; filename=\"");
    appendText(body, fileName);
    appendText(body, "\"\r\nContent-Type: application/octet-stream\r\n\r\n");
    appendBytes(body, bytes);
    appendText(body, "\r\n");
}

void MultipartForm::finish() {
    appendText(body, "--" + boundary + "--\r\n");
}

std::string makeBoundary() {
    const Uuid id = Uuid::make();
    std::array<char, 33> digits{};
    std::snprintf(digits.data(), digits.size(), "%016" PRIX64 "%016" PRIX64, id.high, id.low);
    return std::string("----ZEPHO") + digits.data();
}

std::string samplingJson(const S2Params& params) {
    Json json{
        {"max_new_tokens", params.maxNewTokens},
        {"temperature", rounded(params.temperature)},
        {"top_p", rounded(params.topP)},
        {"top_k", params.topK},
        {"repetition_penalty", rounded(params.repetitionPenalty)},
    };
    if (params.seed != 0) json["seed"] = params.seed;
    return jsonString(json);
}

MultipartForm buildGenerateForm(const S2Params& params, std::string boundary) {
    MultipartForm form{std::move(boundary), {}};
    const bool withClip = params.voiceProfile.empty() && !params.referenceAudio.empty();
    // A clip may be megabytes: one buffer of about the final size, and no growing.
    form.body.reserve(params.text.size() + params.voiceProfile.size() + 2048 +
                      (withClip ? params.referenceAudio.size() + params.referenceText.size() : 0));
    form.addField("text", params.text);
    form.addField("params", samplingJson(params));
    if (!params.voiceProfile.empty()) {
        form.addField("voice", params.voiceProfile);
    } else if (withClip) {
        form.addFile("reference", referenceFileName(params.referenceAudio), params.referenceAudio);
        form.addField("reference_text", params.referenceText);
    }
    form.finish();
    return form;
}

}  // namespace zepho
