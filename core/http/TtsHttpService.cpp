#include "core/http/TtsHttpService.h"

#include <chrono>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/http/RequestReading.h"
#include "core/platform/Memory.h"

namespace zepho {
namespace {

constexpr std::size_t largeBody = std::size_t{512} * 1024;

}  // namespace

std::shared_ptr<TtsHttpService> TtsHttpService::make(std::shared_ptr<TtsService> service) {
    return std::shared_ptr<TtsHttpService>(new TtsHttpService(std::move(service)));
}

TtsHttpService::~TtsHttpService() {
    stop();
}

void TtsHttpService::start() {
    stop();
    auto next = std::make_shared<HttpServer>(
        service->config->bindAddress.get(), static_cast<int>(service->config->port),
        [weak = weak_from_this()](const HttpRequest& request) {
            if (const auto self = weak.lock()) return self->dispatch(request);
            return HttpResponse::error(503, "shutting_down", "service is going away");
        });
    next->start();
    const std::lock_guard guard(lock);
    server = std::move(next);
}

void TtsHttpService::stop() {
    std::shared_ptr<HttpServer> running;
    {
        const std::lock_guard guard(lock);
        running.swap(server);
    }
    if (running) running->stop();
}

bool TtsHttpService::isRunning() const {
    std::shared_ptr<HttpServer> current;
    {
        const std::lock_guard guard(lock);
        current = server;
    }
    return current && current->isRunning();
}

std::vector<std::string> TtsHttpService::allEndpoints() const {
    return reachableUrls(service->config->bindAddress.get(), service->config->port.get());
}

std::string TtsHttpService::endpoint() const {
    const std::vector<std::string> urls = allEndpoints();
    return urls.empty() ? service->config->baseUrl() : urls.front();
}

HttpResponse TtsHttpService::dispatch(const HttpRequest& request) {
    if (request.path == "/v1/health" || request.path == "/health") return routeHealth();
    if (rateLimited(request.peer)) {
        HttpResponse refusal = HttpResponse::error(
            429, "rate_limited",
            "over the limit of " + std::to_string(service->config->rateLimitPerMinute) +
                " requests per minute");
        refusal.headers["Retry-After"] = "60";
        return refusal;
    }
    HttpResponse response = route(request);
    // Clips are copied a few times on their way, and a large JSON text becomes a larger tree.
    if (request.body.size() >= largeBody) giveBackMemory();
    return response;
}

HttpResponse TtsHttpService::route(const HttpRequest& request) {
    const std::string& path = request.path;
    if (path == "/v1/tts") return routeTts(request);
    if (path == "/v1/prewarm") return routePrewarm(request);
    if (path == "/v1/selftest" || path == "/selftest") return routeSelfTest(request);
    if (path == "/v1/airlines") return routeAirlines(request);
    if (path == "/v1/defaults") return routeDefaults(request);
    if (path == "/v1/stats") return routeStats();
    if (path == "/v1/log") return routeLog(request);
    if (path == "/v1/cache" && request.method == "DELETE") {
        service->clearCache();
        return HttpResponse::json(200, {{"cleared", true}});
    }
    if (path == "/v1/voices" || path.starts_with("/v1/voices/")) return routeVoices(request);
    return HttpResponse::error(404, "not_found", "no such path: " + path);
}

bool TtsHttpService::rateLimited(const std::string& peer) {
    const std::int64_t limit = service->config->rateLimitPerMinute;
    if (limit < 1) return false;
    const std::lock_guard guard(lock);
    return hits.refuses(peer, limit, std::chrono::steady_clock::now());
}

}  // namespace zepho
