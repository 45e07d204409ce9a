// A small HTTP/1.1 server on a TCP listener of its own. It knows nothing of the API: it cuts out
// requests, hands each to one handler and writes back what that returns.
//
// Owned through a shared pointer by whoever runs the service; connections hold it weakly and end
// with it. The handler runs on the queue's threads ("zepho.http"), in parallel for different
// connections, and may block for minutes; one connection never runs two at a time. Any thread may
// call the server; its only changing state is `running` and the listener.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "core/base/TtsError.h"
#include "core/http/BufferBudget.h"
#include "core/http/HttpMessage.h"
#include "core/platform/NetInterfaces.h"
#include "core/platform/TaskQueue.h"
#include "core/platform/Tcp.h"

namespace zepho {

using HttpHandler = std::function<HttpResponse(const HttpRequest&)>;

class HttpServer : public std::enable_shared_from_this<HttpServer> {
public:
    // An empty address or "0.0.0.0" means all interfaces. Port 0 means any free port, which
    // `port()` tells once the server has started. A connection whose request would pass the budget is
    // closed.
    HttpServer(std::string bindAddress, int port, HttpHandler handler,
               std::shared_ptr<BufferBudget> budget = BufferBudget::ofProcess());
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;
    // Does not wait for handlers that block; what they hold must live until they return.
    ~HttpServer();

    // Throws TtsError. A server that was stopped is not started again.
    void start();
    // Ends the listener. Open connections go on until they end by themselves.
    void stop();

    [[nodiscard]] bool isRunning() const;
    [[nodiscard]] int port() const;
    // The address to tell people first.
    [[nodiscard]] std::string endpoint() const;
    // Threads of the queue, for diagnostics.
    [[nodiscard]] std::size_t threadCount() const { return queue->threadCount(); }

private:
    struct Session;

    void accept(TcpConnection connection) const;
    void listenerChanged(const std::error_code& error);

    // Constant after construction.
    const std::string bindAddress;
    const int wantedPort;
    const std::shared_ptr<const HttpHandler> handler;
    const std::shared_ptr<BufferBudget> budget;

    // Guarding itself.
    const std::unique_ptr<TaskQueue> queue;

    // Guarded by `lock`.
    mutable std::mutex lock;
    bool running = false;
    int boundPort = 0;
    std::unique_ptr<TcpListener> listener;
};

// The error of a listener in words for people.
TtsError portInUseError(const std::system_error& error, int port);
// The client as logs and rate limits know it; a mapped IPv4 address appears as plain IPv4.
std::string peerAddress(const TcpHost& host);

// Under which addresses the service can be reached, the likeliest first. Never empty.
std::vector<std::string> reachableUrls(const std::string& bindAddress, int port);
std::vector<std::string> reachableUrls(const std::vector<InterfaceAddress>& interfaces, int port);
// 0 for the likeliest address of a local network, 4 for the least likely one.
int lanRank(const std::string& address);

}  // namespace zepho
