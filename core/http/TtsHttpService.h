// The API over the HTTP server: route table, rate limit, and the forms of requests and errors.
//
// Owned by the program through a shared_ptr; the server's handlers know it only weakly. Every route
// may be called from any thread, many at once; `lock` guards the server and the rate limit's
// counters and is never held while a handler or a stop runs.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/http/HttpMessage.h"
#include "core/http/HttpServer.h"
#include "core/http/RateLimit.h"
#include "core/service/TtsService.h"

namespace zepho {

class TtsHttpService : public std::enable_shared_from_this<TtsHttpService> {
public:
    static std::shared_ptr<TtsHttpService> make(std::shared_ptr<TtsService> service);
    TtsHttpService(const TtsHttpService&) = delete;
    TtsHttpService& operator=(const TtsHttpService&) = delete;
    ~TtsHttpService();

    // Listens on the configured address. Throws TtsError; a server that ran before is stopped.
    void start();
    void stop();
    [[nodiscard]] bool isRunning() const;

    // Where clients reach the service, the likeliest first; works while stopped, too.
    [[nodiscard]] std::string endpoint() const;
    [[nodiscard]] std::vector<std::string> allEndpoints() const;

    // Answers one request.
    HttpResponse dispatch(const HttpRequest& request);

private:
    explicit TtsHttpService(std::shared_ptr<TtsService> owned) : service(std::move(owned)) {}

    HttpResponse route(const HttpRequest& request);
    HttpResponse routeTts(const HttpRequest& request);
    HttpResponse routeVoices(const HttpRequest& request);
    HttpResponse cloneVoice(const HttpRequest& request);
    HttpResponse routeAirlines(const HttpRequest& request);
    HttpResponse routeDefaults(const HttpRequest& request);
    HttpResponse routePrewarm(const HttpRequest& request);
    HttpResponse routeHealth();
    HttpResponse routeStats();
    HttpResponse routeSelfTest(const HttpRequest& request);
    HttpResponse routeLog(const HttpRequest& request);
    bool rateLimited(const std::string& peer);

    // Constant after construction.
    const std::shared_ptr<TtsService> service;
    // Guarded by lock.
    mutable std::mutex lock;
    std::shared_ptr<HttpServer> server;
    RateLimit hits;
};

}  // namespace zepho
