// The routes that manage voices and their bindings.
#include <utility>

#include <nlohmann/json.hpp>

#include "core/base/Base64.h"
#include "core/base/Text.h"
#include "core/base/TtsError.h"
#include "core/http/RequestReading.h"
#include "core/http/TtsHttpService.h"
#include "core/platform/Errors.h"

namespace zepho {
namespace {

constexpr std::string_view voicesPrefix = "/v1/voices/";

Json voiceToJson(const VoiceInfo& voice) {
    Json clips = Json::array();
    for (const VoiceClip& clip : voice.clips)
        clips.push_back(
            {{"file", clip.fileName}, {"text", clip.text}, {"duration_ms", clip.durationMs}});
    return {{"id", voice.id},
            {"display", voice.display},
            {"kind", voice.kind == VoiceKind::profile ? "profile" : "cloned"},
            {"voice_profile", voice.profileFile},
            {"language", voice.language},
            {"gender", ttsGenderCode(voice.gender)},
            {"style", voice.style},
            {"note", voice.note},
            {"clip_count", voice.clips.size()},
            {"clips", std::move(clips)}};
}

HttpResponse methodNotAllowed(const HttpRequest& request) {
    return HttpResponse::error(405, "method_not_allowed",
                               request.method + " is not allowed on this path");
}

HttpResponse noSuchVoice(const std::string& id) {
    return HttpResponse::error(404, "not_found", "no such voice: " + id);
}

HttpResponse badAudio(std::string_view message) {
    return HttpResponse::error(400, "bad_audio", message);
}

HttpResponse bindingsAnswer(const std::vector<Binding>& bindings) {
    Json table = Json::object();
    for (const auto& [key, voiceId] : bindings) table[key] = voiceId;
    return HttpResponse::json(200, table);
}

// The clips of a clone order, or the answer that refuses them.
struct ClipsReading {
    std::vector<VoiceClipInput> clips;
    std::optional<HttpResponse> refusal;
};

ClipsReading readClips(const Json* body) {
    ClipsReading reading;
    const Json* list = jArr(body, "clips");
    if (list == nullptr) {
        const std::string audio = jStr(body, "audio");
        if (audio.empty()) {
            reading.refusal = badAudio(
                "missing the audio field (base64 reference audio), or use the clips array for "
                "several");
            return reading;
        }
        std::optional<Bytes> bytes = decodeBase64(audio);
        if (!bytes)
            reading.refusal = badAudio("audio is not valid base64");
        else
            reading.clips.push_back({*std::move(bytes), jStr(body, "reference_text")});
        return reading;
    }
    for (const Json& item : *list) {
        if (!item.is_object()) continue;
        const std::string audio = jStr(&item, "audio");
        if (audio.empty()) continue;
        std::optional<Bytes> bytes = decodeBase64(audio);
        if (!bytes) {
            reading.refusal = badAudio("one entry in clips is not valid base64");
            return reading;
        }
        std::string text = jStr(&item, "text");
        if (text.empty()) text = jStr(&item, "reference_text");
        reading.clips.push_back({*std::move(bytes), std::move(text)});
    }
    if (reading.clips.empty()) reading.refusal = badAudio("clips contains no usable audio");
    return reading;
}

}  // namespace

HttpResponse TtsHttpService::routeVoices(const HttpRequest& request) {
    if (request.method == "GET") {
        Json list = Json::array();
        for (const VoiceInfo& voice : service->voices.all()) list.push_back(voiceToJson(voice));
        const std::size_t count = list.size();
        return HttpResponse::json(200, {{"voices", std::move(list)}, {"count", count}});
    }
    if (request.method == "DELETE") {
        const std::string id = request.path.size() > voicesPrefix.size()
                                   ? request.path.substr(voicesPrefix.size())
                                   : std::string();
        if (!service->voices.remove(id)) return noSuchVoice(id);
        return HttpResponse::json(200, {{"removed", id}});
    }
    if (request.method == "POST") return cloneVoice(request);
    return methodNotAllowed(request);
}

HttpResponse TtsHttpService::cloneVoice(const HttpRequest& request) {
    std::optional<Json> body = parseJsonObject(request.body);
    if (!body) return badJson();
    if (!lowercased(request.path).ends_with("/clone"))
        return HttpResponse::error(404, "not_found",
                                   "to create a voice POST /v1/voices/clone with reference audio");
    VoiceCloneSpec spec;
    spec.display = jStr(&*body, "display");
    spec.language = normLang(jStr(&*body, "language", "auto"));
    spec.gender = ttsGenderFromCode(jStr(&*body, "gender", "default"));
    spec.style = jStr(&*body, "style");
    spec.note = jStr(&*body, "note");
    ClipsReading reading = readClips(&*body);
    if (reading.refusal) return *std::move(reading.refusal);
    spec.clips = std::move(reading.clips);
    body.reset();  // the Base64 text is as large as the clips, and no longer needed
    try {
        return HttpResponse::json(200, voiceToJson(service->cloneVoice(spec)));
    } catch (const TtsError& failure) {
        return HttpResponse::error(failure.httpStatus(), ttsErrorName(failure.code),
                                   failure.message);
    } catch (const std::exception& failure) {
        return HttpResponse::error(500, "internal", describeError(failure));
    }
}

HttpResponse TtsHttpService::routeAirlines(const HttpRequest& request) {
    AppConfig& config = *service->config;
    if (request.method == "PUT") {
        const std::optional<Json> body = parseJsonObject(request.body);
        if (!body) return badJson();
        const std::string airline = normAirline(jStr(&*body, "airline"));
        if (airline.empty())
            return HttpResponse::error(400, "bad_json", "missing airline (ICAO three-letter code)");
        const std::string language = normLang(jStr(&*body, "language", "auto"));
        const TtsGender gender = ttsGenderFromCode(jStr(&*body, "gender", "default"));
        const std::string voice = trimmed(jStr(&*body, "voice"));
        if (!voice.empty() && !service->voices.find(voice)) return noSuchVoice(voice);
        config.setAirlineVoice(airline, language, gender, voice);
        config.save();
    } else if (request.method != "GET") {
        return methodNotAllowed(request);
    }
    return bindingsAnswer(config.airlinesSnapshot());
}

HttpResponse TtsHttpService::routeDefaults(const HttpRequest& request) {
    AppConfig& config = *service->config;
    if (request.method == "PUT") {
        const std::optional<Json> body = parseJsonObject(request.body);
        if (!body) return badJson();
        const std::string language = normLang(jStr(&*body, "language", "auto"));
        const std::string female = jStr(&*body, "female");
        const std::string male = jStr(&*body, "male");
        for (const std::string& id : {female, male})
            if (!id.empty() && !service->voices.find(id)) return noSuchVoice(id);
        if (!female.empty()) config.setDefaultVoice(language, TtsGender::female, female);
        if (!male.empty()) config.setDefaultVoice(language, TtsGender::male, male);
        config.save();
    } else if (request.method != "GET") {
        return methodNotAllowed(request);
    }
    return bindingsAnswer(config.defaultsSnapshot());
}

}  // namespace zepho
