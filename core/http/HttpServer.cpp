#include "core/http/HttpServer.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <utility>

#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/http/HttpParser.h"
#include "core/platform/Errors.h"
#include "core/platform/Require.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

constexpr auto readyPatience = std::chrono::seconds(5);
constexpr std::size_t largeRequest = std::size_t{4} * 1024 * 1024;
// What a request may cost while its handler runs, as a multiple of its body: the body itself, the
// tree that a JSON reader makes of it, the texts taken from there, and decoded audio.
constexpr std::size_t costOfHandling = 7;

bool meansAllInterfaces(const std::string& bindAddress) {
    return bindAddress.empty() || bindAddress == "0.0.0.0";
}

std::string urlOf(const std::string& address, int port) {
    return "http://" + address + ":" + std::to_string(port);
}

// What the listener reports first, handed from its thread to start().
struct Readiness {
    std::mutex lock;
    std::condition_variable changed;
    std::optional<std::error_code> outcome;
    std::atomic<bool> failed{false};  // at any time

    void report(const std::error_code& error) {
        if (error) failed = true;
        const std::lock_guard guard(lock);
        if (!outcome) outcome = error;
        changed.notify_all();
    }

    // Absent when nothing was reported in time.
    std::optional<std::error_code> wait() {
        std::unique_lock guard(lock);
        changed.wait_for(guard, readyPatience, [this] { return outcome.has_value(); });
        return outcome;
    }
};

// Copying a body of a gigabyte takes as long as many a handler: others go on meanwhile.
template <class Work>
auto workOn(std::size_t bytes, const Work& work) {
    std::optional<TaskQueue::Blocking> blocking;
    if (bytes > largeRequest) blocking.emplace();
    return work();
}

// A handler is expected not to throw. One that does costs its client an answer, not the service.
HttpResponse answer(const HttpHandler& handler, const HttpRequest& request) {
    const TaskQueue::Blocking blocking;
    try {
        return handler(request);
    } catch (const std::exception& error) {
        AppLog::error("http", "request failed: " + describeError(error));
        return HttpResponse::error(500, "internal", "internal error");
    }
}

}  // namespace

// ---- one connection

// What a connection keeps between two receives. Alive through its pending callback.
struct HttpServer::Session : std::enable_shared_from_this<Session> {
    Session(TcpConnection made, const std::shared_ptr<const HttpServer>& owner)
        : connection(std::move(made)),
          peer(peerAddress(connection.remoteHost())),
          server(owner),
          memory(owner->budget) {}

    void receiveLoop();
    void received(const TcpReceived& event);
    // Serves what is complete in `unread`, and goes on with the loop. `unread` is the connection's
    // own buffer, or still the thread's.
    void serve(const HttpHandler& toCall, ByteView unread, bool complete);
    // Goes on once a response has gone out that its reader took in slowly.
    void serveRest(bool complete);
    // False when the response was the connection's last.
    bool respond(const HttpRequest& request, HttpResponse response);
    // These two are false when the budget of all connections does not allow it.
    [[nodiscard]] bool append(ByteView bytes);
    // Keeps the part of `unread` behind `used`.
    [[nodiscard]] bool keep(ByteView unread, std::size_t used);

    TcpConnection connection;
    const std::string peer;
    const std::weak_ptr<const HttpServer> server;
    BufferBudget::Share memory;
    Bytes buffer;
    ParseProgress progress;
};

void HttpServer::Session::receiveLoop() {
    connection.receive(
        [self = shared_from_this()](const TcpReceived& event) { self->received(event); });
}

void HttpServer::Session::received(const TcpReceived& event) {
    // Only the handler is held while it runs: the server may go meanwhile.
    std::shared_ptr<const HttpHandler> toCall;
    if (const auto owner = server.lock()) toCall = owner->handler;
    if (!toCall) return connection.cancel();
    if (event.error) return connection.cancel();
    // After a request line that is none, nothing that comes can matter.
    if (progress.outlook == ParseProgress::Outlook::never)
        return event.complete ? connection.cancel() : receiveLoop();
    if (buffer.empty()) return serve(*toCall, event.bytes, event.complete);
    if (!workOn(buffer.size(), [&] { return append(event.bytes); })) return connection.cancel();
    serve(*toCall, buffer, event.complete);
}

void HttpServer::Session::serve(const HttpHandler& toCall, ByteView unread, bool complete) {
    std::size_t used = 0;
    // Asked before the body is copied; the buffer is given back where nothing is left in it.
    const std::size_t whole = progress.needed;
    if (whole > 0 && unread.size() >= whole &&
        !memory.grow(std::max(buffer.capacity(), costOfHandling * whole)))
        return connection.cancel();
    const auto parseNext = [&] { return parseRequest(unread.subspan(used), peer, progress); };
    while (auto parsed = workOn(unread.size(), parseNext)) {
        used += parsed->consumed;
        progress = {};
        if (used == unread.size() && !buffer.empty()) {
            // A large request is not held twice while its handler runs.
            Bytes().swap(buffer);
            unread = {};
            used = 0;
        }
        const std::size_t cost = costOfHandling * parsed->request.body.size();
        if (!memory.grow(buffer.capacity() + cost)) return connection.cancel();
        if (!respond(parsed->request, answer(toCall, parsed->request))) return;
        parsed.reset();
        memory.shrink(buffer.capacity());
        if (used < unread.size() && connection.isSending()) {
            // Pipelined requests wait here, or a client that does not read could pile up answers.
            if (!keep(unread, used)) return connection.cancel();
            return connection.afterSent(
                [self = shared_from_this(), complete] { self->serveRest(complete); });
        }
    }
    if (progress.outlook == ParseProgress::Outlook::refused || complete) return connection.cancel();
    if (progress.outlook == ParseProgress::Outlook::never) used = unread.size();
    if (!keep(unread, used)) return connection.cancel();
    receiveLoop();
}

void HttpServer::Session::serveRest(bool complete) {
    std::shared_ptr<const HttpHandler> toCall;
    if (const auto owner = server.lock()) toCall = owner->handler;
    if (!toCall) return connection.cancel();
    serve(*toCall, buffer, complete);
}

bool HttpServer::Session::respond(const HttpRequest& request, HttpResponse response) {
    if (lowercased(request.header("connection")) == "close")
        response.headers["Connection"] = "close";
    connection.send(response.serializeHead(), response.hasBody() ? response.body : SharedBytes());
    const auto found = response.headers.find("Connection");
    if (found == response.headers.end() || found->second != "close") return true;
    connection.cancel();
    return false;
}

bool HttpServer::Session::append(ByteView bytes) {
    const std::size_t size = buffer.size() + bytes.size();
    if (buffer.capacity() < size) {
        // A promised length is believed only as far as bytes have come.
        const std::size_t doubled = std::max(size, 2 * buffer.size());
        const std::size_t wanted =
            progress.needed >= size ? std::min(progress.needed, doubled) : doubled;
        // While it grows, both are there.
        if (!memory.grow(buffer.capacity() + wanted)) return false;
        buffer.reserve(wanted);
        memory.shrink(buffer.capacity());
    }
    appendBytes(buffer, bytes);
    return true;
}

bool HttpServer::Session::keep(ByteView unread, std::size_t used) {
    const ByteView rest = unread.subspan(used);
    if (unread.data() != buffer.data()) return append(rest);
    if (rest.empty()) {
        Bytes().swap(buffer);
        memory.shrink(0);
    } else {
        buffer.erase(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(used));
    }
    return true;
}

// ---- the server

HttpServer::HttpServer(std::string address, int port, HttpHandler toCall,
                       std::shared_ptr<BufferBudget> allConnections)
    : bindAddress(std::move(address)),
      wantedPort(port),
      handler(std::make_shared<const HttpHandler>(std::move(toCall))),
      budget(std::move(allConnections)),
      queue(std::make_unique<TaskQueue>("zepho.http")),
      boundPort(port) {}

HttpServer::~HttpServer() {
    if (listener) listener->cancel();
}

void HttpServer::start() {
    require(!weak_from_this().expired(), "a server is owned by a shared pointer");
    if (isRunning()) return;
    if (wantedPort < 0 || wantedPort > 65535)
        throw TtsError(TtsErrorCode::engineFailed, "bad port " + std::to_string(wantedPort));
    std::unique_ptr<TcpListener> made;
    try {
        const auto local = meansAllInterfaces(bindAddress)
                               ? std::nullopt
                               : std::optional<std::string>(bindAddress);
        made = std::make_unique<TcpListener>(*queue, local, static_cast<std::uint16_t>(wantedPort));
    } catch (const std::system_error& error) {
        throw portInUseError(error, wantedPort);
    }
    const auto readiness = std::make_shared<Readiness>();
    const std::weak_ptr<HttpServer> self = weak_from_this();
    made->start({
        .onState =
            [self, readiness](const std::error_code& error) {
                readiness->report(error);
                if (const auto server = self.lock(); server && error)
                    server->listenerChanged(error);
            },
        .onConnection =
            [self](TcpConnection connection) {
                if (const auto server = self.lock()) server->accept(std::move(connection));
            },
        .onTrouble =
            [](const std::error_code& error) {
                if (error)
                    AppLog::warn("http", "cannot accept connections for now: " + error.message());
                else
                    AppLog::info("http", "accepting connections again");
            },
    });
    const std::optional<std::error_code> outcome = readiness->wait();
    if (!outcome || *outcome) made->cancel();
    if (!outcome)
        throw TtsError(TtsErrorCode::engineFailed, "listener did not become ready in 5 s");
    if (*outcome) throw portInUseError(std::system_error(*outcome), wantedPort);
    {
        const std::lock_guard guard(lock);
        boundPort = made->port();
        listener = std::move(made);
        // It may have failed in the meantime, and will not tell that twice.
        running = !readiness->failed;
    }
    AppLog::info("http", "service started on " + endpoint());
}

void HttpServer::stop() {
    std::unique_ptr<TcpListener> ended;
    {
        const std::lock_guard guard(lock);
        if (!running) return;
        running = false;
        ended = std::move(listener);
    }
    ended->cancel();
    AppLog::info("http", "service stopped");
}

bool HttpServer::isRunning() const {
    const std::lock_guard guard(lock);
    return running;
}

int HttpServer::port() const {
    const std::lock_guard guard(lock);
    return boundPort;
}

std::string HttpServer::endpoint() const {
    return reachableUrls(bindAddress, port()).front();
}

void HttpServer::listenerChanged(const std::error_code& error) {
    AppLog::error("http", "listener failed: " + error.message());
    const std::lock_guard guard(lock);
    running = false;
}

void HttpServer::accept(TcpConnection connection) const {
    std::make_shared<Session>(std::move(connection), shared_from_this())->receiveLoop();
}

// ---- words and addresses

TtsError portInUseError(const std::system_error& error, int port) {
    const std::string description = describeError(error);
    if (error.code() != std::errc::address_in_use &&
        lowercased(description).find("in use") == std::string::npos)
        return {TtsErrorCode::engineFailed, description};
    return {TtsErrorCode::engineFailed,
            TF("端口 %d 已经被占用了。", port) + "\n" +
                T("要么是已经有一个 Zephon 在跑(看一下托盘),") + "\n" +
                T("要么是别的程序占了这个口 —— 可以在「设置」里换一个端口。")};
}

std::string peerAddress(const TcpHost& host) {
    constexpr std::string_view mapped = "::ffff:";
    switch (host.kind) {
        case TcpHost::Kind::ipv4:
        case TcpHost::Kind::name:
            return host.text;
        case TcpHost::Kind::ipv6: {
            const std::size_t mark = host.text.find(mapped);
            return mark == std::string::npos ? host.text : host.text.substr(mark + mapped.size());
        }
        case TcpHost::Kind::other:
            break;
    }
    return "?";
}

std::vector<std::string> reachableUrls(const std::string& bindAddress, int port) {
    if (!meansAllInterfaces(bindAddress)) return {urlOf(bindAddress, port)};
    return reachableUrls(interfaceAddresses(), port);
}

std::vector<std::string> reachableUrls(const std::vector<InterfaceAddress>& interfaces, int port) {
    std::vector<std::string> addresses;
    for (const InterfaceAddress& found : interfaces)
        if (found.family == AddressFamily::ipv4 && !found.text.empty() &&
            !found.text.starts_with("127."))
            addresses.push_back(found.text);
    std::sort(addresses.begin(), addresses.end(), [](const auto& left, const auto& right) {
        return std::pair(lanRank(left), left) < std::pair(lanRank(right), right);
    });
    if (addresses.empty()) addresses.emplace_back("127.0.0.1");
    for (std::string& address : addresses) address = urlOf(address, port);
    return addresses;
}

int lanRank(const std::string& address) {
    if (address.starts_with("192.168.")) return 0;
    if (address.starts_with("10.")) return 1;
    if (!address.starts_with("172.")) return 3;
    const std::string part = address.substr(4, address.find('.', 4) - 4);
    int second = 0;
    const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), second);
    const bool isNumber = error == std::errc() && end == part.data() + part.size();
    return isNumber && second >= 16 && second <= 31 ? 2 : 4;
}

}  // namespace zepho
