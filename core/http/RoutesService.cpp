// Pre-bake, health, statistics, self test and log.
#include <algorithm>

#include <nlohmann/json.hpp>

#include "core/base/JsonObjectText.h"
#include "core/base/Text.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/http/RequestReading.h"
#include "core/http/TtsHttpService.h"

namespace zepho {
namespace {

// A line of a pre-bake order: what the element does not hold is taken from `shared`, the order itself.
TtsRequest prewarmLine(const Json& element, const TtsRequest& shared) {
    TtsRequest line = reqFromJson(&element);
    if (!element.contains("airline")) line.airline = shared.airline;
    if (!element.contains("language")) line.language = shared.language;
    if (!element.contains("gender")) line.gender = shared.gender;
    if (!element.contains("speed")) line.speed = shared.speed;
    return line;
}

std::vector<TtsRequest> prewarmLines(const Json& order) {
    const Json* items = jArr(&order, "items");
    if (items == nullptr) return {reqFromJson(&order)};
    const TtsRequest shared = reqFromJson(&order);
    std::vector<TtsRequest> lines;
    for (const Json& element : *items)
        if (element.is_object()) lines.push_back(prewarmLine(element, shared));
    return lines;
}

}  // namespace

HttpResponse TtsHttpService::routePrewarm(const HttpRequest& request) {
    std::vector<TtsRequest> lines;
    if (request.method == "POST") {
        const std::optional<Json> order = parseJsonObject(request.body);
        if (!order) return badJson();
        lines = prewarmLines(*order);
    } else {
        lines.push_back(reqFromQuery(request));
    }
    std::int64_t queued = 0;
    std::int64_t cached = 0;
    std::int64_t skippedEmpty = 0;
    for (const TtsRequest& line : lines) {
        if (trimmedView(line.text).empty()) {
            ++skippedEmpty;
        } else if (service->isCached(line)) {
            ++cached;
        } else {
            service->prewarmRequests({line});
            ++queued;
        }
    }
    AppLog::info("http", "pre-bake request from " + request.peer + ": queued " +
                             std::to_string(queued) + ", " + std::to_string(cached) +
                             " already cached");
    return HttpResponse::json(202, {{"queued", queued},
                                    {"cached", cached},
                                    {"skipped_empty", skippedEmpty},
                                    {"pending", service->prewarmPending()}});
}

HttpResponse TtsHttpService::routeHealth() {
    const EngineHealth health = service->engineHealth();
    const bool placeholder = service->speaksPlaceholder();
    const AppConfig& config = *service->config;
    JsonObjectText answer;
    answer.add("compute", computeBackendCode(config.engine.get().compute))
        .add("engine", health.backend)
        .add("engine_detail", health.detail)
        .add("engine_exe", health.exePath)
        .add("engine_ready", health.ready)
        .add("output_sample_rate", config.outputSampleRate.get())
        .add("placeholder", placeholder)
        .add("status", health.ready && !placeholder ? "ready" : "degraded")
        .add("version", ZEPHO::version)
        .add("voices", service->voices.count());
    return HttpResponse::jsonText(200, answer.finish());
}

HttpResponse TtsHttpService::routeStats() {
    const ServiceStats stats = service->stats();
    const double realTimeFactor =
        stats.totalAudioMs < 1
            ? 0.0
            : static_cast<double>(stats.totalSynthMs) / static_cast<double>(stats.totalAudioMs);
    JsonObjectText answer;
    answer.add("busy", stats.busy)
        .add("cache_bytes", stats.cacheBytes)
        .add("cache_count", stats.cacheCount)
        .add("cache_hit_rate", stats.cacheHitRate)
        .add("cache_hits", stats.cacheHits)
        .add("engine", stats.engineName)
        .add("failed", stats.failed)
        .add("p50_ms", stats.p50Ms)
        .add("p95_ms", stats.p95Ms)
        .add("placeholder", stats.placeholder)
        .add("prewarm_pending", stats.prewarmPending)
        .add("queue_depth", stats.queueDepth)
        .add("rtf", realTimeFactor)
        .add("total", stats.total);
    return HttpResponse::jsonText(200, answer.finish());
}

HttpResponse TtsHttpService::routeSelfTest(const HttpRequest& request) {
    const std::vector<CheckResult> checks = service->selfTest(
        request.queryValue("text"), normLang(request.queryValue("language", "auto")),
        ttsGenderFromCode(request.queryValue("gender", "default")), request.queryValue("airline"));
    const bool allPassed = std::all_of(checks.begin(), checks.end(),
                                       [](const CheckResult& check) { return check.ok; });
    std::string report;
    Json list = Json::array();
    for (const CheckResult& check : checks) {
        report += (check.ok ? "[OK]   " : "[FAIL] ") + check.name + "  " + check.detail + "\n";
        list.push_back({{"name", check.name}, {"ok", check.ok}, {"detail", check.detail}});
    }
    const std::string address = endpoint();
    report += "\n";
    report += T(allPassed ? "全部通过 —— 客户端可以接了。" : "有没过的项,照上面那条改。");
    report += "\n" + T("服务地址:") + address + "\n";
    const int status = allPassed ? 200 : 503;
    if (lowercased(request.queryValue("format")) == "text")
        return HttpResponse::text(status, report);
    return HttpResponse::json(status, {{"ok", allPassed},
                                       {"endpoint", address},
                                       {"checks", std::move(list)},
                                       {"report", report}});
}

HttpResponse TtsHttpService::routeLog(const HttpRequest& request) {
    const std::int64_t wanted = std::clamp<std::int64_t>(
        parseDecimalInteger(request.queryValue("lines", "200")).value_or(200), 1, 2000);
    const std::vector<LogEntry> lines = AppLog::snapshot();
    const std::size_t count = std::min(lines.size(), static_cast<std::size_t>(wanted));
    std::string text;
    for (std::size_t i = lines.size() - count; i < lines.size(); ++i) {
        if (!text.empty()) text += '\n';
        text += lines[i].formatted();
    }
    return HttpResponse::text(200, text);
}

}  // namespace zepho
