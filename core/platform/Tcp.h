// TCP for servers: a listener and its connections, on a task queue.
//
// Everything is event-driven. One connection has at most one event under way, so its callbacks never
// run at the same time; those of different connections do. An event ends with receive(), afterSent()
// or cancel(): the next one may begin on another thread before that call returns, and the connection
// must not be touched behind it. A connection lives as long as one of its callbacks is pending or
// somebody holds it; it must be used only from its callbacks. The listener may be used from any
// thread. Addresses stay numeric, nothing is looked up.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "core/platform/Bytes.h"

namespace zepho {

class TaskQueue;

// The host of a remote endpoint as the system tells it.
struct TcpHost {
    enum class Kind { ipv4, ipv6, name, other };
    Kind kind = Kind::other;
    std::string text;
};

// What one receive brought.
struct TcpReceived {
    ByteView bytes;         // valid during the callback only
    bool complete = false;  // the peer ended the stream
    std::error_code error;
};

class TcpConnection {
public:
    static constexpr std::size_t maxReceive = 1048576;

    struct Impl;
    explicit TcpConnection(std::shared_ptr<Impl> made);

    [[nodiscard]] const TcpHost& remoteHost() const;

    // One receive of 1 to `maxReceive` bytes, made only after all that is queued has gone out. No
    // thread and no buffer is held meanwhile. Dropped without a call once the connection has ended.
    void receive(std::function<void(const TcpReceived&)> done);
    // Queues head and body as one message and sends what the system takes at once; the rest follows
    // when the event has ended. The body is not copied. A failure ends the connection.
    void send(std::string head, SharedBytes body);
    // Whether something queued has not gone out yet.
    [[nodiscard]] bool isSending() const;
    // Calls once nothing is queued any more, in place of a receive; dropped if sending fails.
    void afterSent(std::function<void()> done);
    // Ends the connection after the bytes queued so far. What the peer sends meanwhile is ignored,
    // until it ends its side, too, or goes on for too long, or too many others do. The bytes of a
    // receive are no longer valid.
    void cancel();

private:
    const std::shared_ptr<Impl> impl;
};

class TcpListener {
public:
    // Called on the queue's threads.
    struct Handlers {
        // Once without error when ready, which the first connections may be ahead of; with an error
        // when it has failed for good.
        std::function<void(const std::error_code&)> onState;
        std::function<void(TcpConnection)> onConnection;
        // Accepting fails for now (no descriptors or buffers left) and is tried again; told once,
        // and once more without error when it works again.
        std::function<void(const std::error_code&)> onTrouble;
    };

    // Binds and listens with address reuse on; without an address on all interfaces, IPv6 and IPv4.
    // Port 0 takes any free one. Throws std::system_error.
    TcpListener(TaskQueue& queue, const std::optional<std::string>& address, std::uint16_t port);
    TcpListener(const TcpListener&) = delete;
    TcpListener& operator=(const TcpListener&) = delete;
    ~TcpListener();

    // Begins to accept.
    void start(Handlers handlers);
    // Stops accepting and frees the port at once. Open connections are not touched.
    void cancel();
    [[nodiscard]] std::uint16_t port() const;

private:
    struct Impl;
    const std::shared_ptr<void> queueAlive;  // outlives the listener's socket
    const std::shared_ptr<Impl> impl;
};

}  // namespace zepho
