// POST or GET /v1/tts: a line in, a WAV out.
#include <utility>

#include <nlohmann/json.hpp>

#include "core/base/TtsError.h"
#include "core/diag/AppLog.h"
#include "core/http/RequestReading.h"
#include "core/http/TtsHttpService.h"
#include "core/platform/Errors.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

// The tag that a client already holds, without blanks and quotes around it.
std::string heldTag(const HttpRequest& request) {
    std::string tag = trimmed(request.header("if-none-match"));
    while (!tag.empty() && tag.front() == '"') tag.erase(0, 1);
    while (!tag.empty() && tag.back() == '"') tag.pop_back();
    return tag;
}

std::string inQuotes(const std::string& tag) {
    return "\"" + tag + "\"";
}

}  // namespace

HttpResponse TtsHttpService::routeTts(const HttpRequest& request) {
    const Stopwatch watch;
    TtsRequest line;
    if (request.method == "POST") {
        const std::optional<Json> body = parseJsonObject(request.body);
        if (!body) return badJson();
        line = reqFromJson(&*body);
    } else {
        line = reqFromQuery(request);
    }

    RequestLog record;
    record.id = Uuid::make();
    record.time = std::chrono::system_clock::now();
    record.peer = request.peer;
    record.route = "/v1/tts";
    record.language = line.language;
    record.speed = line.speed;
    const auto finish = [&record, &watch](HttpResponse response) {
        record.status = response.status;
        record.elapsedMs = watch.elapsedMs();
        AppLog::request(std::move(record));
        return response;
    };

    TtsResult result;
    try {
        result = service->synthesize(line);
    } catch (const TtsError& failure) {
        record.note = failure.message;
        return finish(
            HttpResponse::error(failure.httpStatus(), ttsErrorName(failure.code), failure.message));
    } catch (const std::exception& failure) {
        record.note = describeError(failure);
        return finish(HttpResponse::error(500, "internal", record.note));
    }

    record.voice = result.voiceId;
    record.cacheHit = result.fromCache;
    HttpResponse response;
    response.headers["ETag"] = inQuotes(result.etag);
    response.headers["X-ZEPHO-Result"] = "ok";
    if (const std::string held = heldTag(request); !held.empty() && held == result.etag) {
        response.status = 304;
        return finish(std::move(response));
    }
    record.audioMs = result.durationMs;
    response.headers["Content-Type"] = "audio/wav";
    response.headers["X-ZEPHO-Engine"] = result.engine;
    response.headers["X-ZEPHO-Voice"] = result.voiceId;
    response.headers["X-ZEPHO-Sample-Rate"] = std::to_string(result.sampleRate);
    response.headers["X-ZEPHO-Duration-Ms"] = std::to_string(result.durationMs);
    response.headers["X-ZEPHO-Synth-Ms"] = std::to_string(result.synthMs);
    response.headers["X-ZEPHO-Cache"] = result.fromCache ? "hit" : "miss";
    response.body = std::move(result.wav);
    return finish(std::move(response));
}

}  // namespace zepho
