// HTTP downloads of any size, told by events: the head, each piece of the body, the end.
//
// A session has one thread ("zepho-transfer") on which the events of all its transfers arrive, one at
// a time; it starts with the first transfer and ends with the session. Redirects are followed with
// the same headers, and only the last response is told. All operations may be called from any
// thread, from within events too. No lock is held during an event.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/platform/Bytes.h"
#include "core/platform/HttpClient.h"

namespace zepho {

struct HttpHead {
    int status = 0;
    std::int64_t length = 0;  // of the body, as announced; 0 if it is not
};

struct HttpOutcome {
    HttpFailure failure = HttpFailure::none;
    std::string error;  // in the library's words
};

// `headers` and `data` abort the transfer by giving false. `completed` comes exactly once for each
// transfer that was started, last, whatever happened. A server that ends the connection in order
// before the announced length is no failure: who counts the bytes sees it.
struct HttpEvents {
    std::function<bool(const HttpHead&)> headers;
    std::function<bool(ByteView)> data;  // borrowed for the call
    std::function<void(const HttpOutcome&)> completed;
};

// True if this machine has an address by which others can be reached.
[[nodiscard]] bool networkIsUp();

struct HttpLimits {
    std::chrono::milliseconds silence{20'000};    // without a byte from the server
    std::chrono::milliseconds head{60'000};       // until the last response has begun
    std::chrono::milliseconds whole{86'400'000};  // for everything
    // A transfer that finds no way to its host while the network is down waits for it, and looks
    // again after this time.
    std::chrono::milliseconds reconnect{1000};
    std::function<bool()> networkUp = networkIsUp;
};

// One GET, made by a session.
struct HttpTransfer;

class HttpSession {
public:
    explicit HttpSession(HttpLimits limits = {});
    HttpSession(const HttpSession&) = delete;
    HttpSession& operator=(const HttpSession&) = delete;
    // Cancels what runs and waits for its last events. Called from within an event it does not wait:
    // the others follow on the session's thread.
    ~HttpSession();

    // Nothing happens before start(). `headers` are those of the request, "Name: value" each.
    [[nodiscard]] static std::shared_ptr<HttpTransfer> transfer(
        const std::string& url, const std::vector<std::string>& headers, HttpEvents events);
    // At most once for each transfer. Throws std::system_error, and the transfer ends without an
    // event, if the session needs its thread and there is none to be had.
    void start(const std::shared_ptr<HttpTransfer>& transfer);
    // Without effect on one that has ended.
    void cancel(const std::shared_ptr<HttpTransfer>& transfer);

private:
    struct Queue;
    const std::shared_ptr<Queue> queue;
};

}  // namespace zepho
