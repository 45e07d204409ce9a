#include "core/http/RequestReading.h"

#include <nlohmann/json.hpp>

#include "core/base/Text.h"

namespace zepho {

TtsPriority ttsPriorityFromText(std::string_view text) {
    return lowercased(text) == "high" ? TtsPriority::high : TtsPriority::normal;
}

TtsRequest reqFromJson(const Json* object) {
    TtsRequest line;
    line.text = jStr(object, "text");
    line.voiceId = jStr(object, "voice");
    if (line.voiceId.empty()) line.voiceId = jStr(object, "reference_id");
    line.airline = jStr(object, "airline");
    line.language = normLang(jStr(object, "language", "auto"));
    line.gender = ttsGenderFromCode(jStr(object, "gender", "default"));
    line.style = jStr(object, "style");
    line.speed = static_cast<float>(jFloat(object, "speed", 1.0));
    line.sampleRate = jInt(object, "sample_rate", 0);
    line.seed = jInt(object, "seed", 0);
    line.priority = ttsPriorityFromText(jStr(object, "priority", "normal"));
    return line;
}

TtsRequest reqFromQuery(const HttpRequest& request) {
    TtsRequest line;
    line.text = request.queryValue("text");
    line.voiceId = request.queryValue("voice");
    line.airline = request.queryValue("airline");
    line.language = normLang(request.queryValue("language", "auto"));
    line.gender = ttsGenderFromCode(request.queryValue("gender", "default"));
    line.style = request.queryValue("style");
    line.speed = static_cast<float>(parseDecimalFloat(request.queryValue("speed")).value_or(1.0));
    line.sampleRate = parseDecimalInteger(request.queryValue("sample_rate")).value_or(0);
    line.seed = parseDecimalInteger(request.queryValue("seed")).value_or(0);
    line.priority = ttsPriorityFromText(request.queryValue("priority", "normal"));
    return line;
}

HttpResponse badJson() {
    return HttpResponse::error(400, "bad_json", "request body is not valid JSON");
}

}  // namespace zepho
