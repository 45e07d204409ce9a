#include "core/platform/Tcp.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <utility>
#include <vector>

#include "core/platform/TaskQueueState.h"
#include "core/platform/TcpSocket.h"

namespace zepho {
namespace {

constexpr auto acceptBackoff = std::chrono::milliseconds(100);
// What one connection may send before others have their turn.
constexpr std::size_t sendTurn = std::size_t{4} * 1024 * 1024;
// So many connections are taken at a time before others have their turn.
constexpr int acceptBatch = 16;
// What a peer may still send after the last bytes for it. More is not carelessness any more.
constexpr std::size_t mostIgnored = std::size_t{1} * 1024 * 1024;

// Where a thread reads to at first, which does for nearly all requests. A connection keeps only what
// is left of it.
constexpr std::size_t threadBufferSize = std::size_t{64} * 1024;
std::uint8_t* threadBuffer() {
    thread_local const std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[threadBufferSize]);
    return buffer.get();
}

// Errors after which no accept can work.
bool isForGood(const std::error_code& error) {
    return error == std::errc::bad_file_descriptor || error == std::errc::invalid_argument ||
           error == std::errc::not_a_socket || error == std::errc::operation_not_supported;
}

}  // namespace

// ---- connection

struct TcpConnection::Impl : Watched, std::enable_shared_from_this<TcpConnection::Impl> {
    using Receiver = std::function<void(const TcpReceived&)>;

    struct Message {
        std::string head;
        SharedBytes body;
    };

    Impl(TaskQueue::State& owner, TcpSocket accepted, TcpHost remote)
        : queue(owner), host(std::move(remote)), socket(std::move(accepted)) {}
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() override { close(); }

    void ready(const Poller::Event& event) override;
    void endReceiving() override { socket.endReceiving(); }
    void abandon() override { close(); }

    // Makes the queue know the connection; false when the queue is ending.
    bool enrol();
    void close();
    // Does what the signals allow, until there are no new ones. By whoever has set `busy`.
    void work();
    void step();
    void readNow();
    // Sends what the system takes at once.
    void sendSome();
    // All that was queued has gone out, and no more will be.
    void finish();
    // Throws away what the peer sends on. A stream that is closed over unread bytes is reset, and the
    // reset can take from the peer what it has not read yet.
    void ignoreNow();

    // Constant after construction.
    TaskQueue::State& queue;
    const TcpHost host;

    // Guarding itself: what has been told since it was last looked at. `busy` while a thread works
    // here, from the start on, as the first one is who has accepted the connection.
    enum Signal : unsigned { busy = 1, readable = 2, writable = 4, closed = 8 };
    std::atomic<unsigned> signals{busy};

    // Used by the thread that works here. The queue itself only ever ends the receiving side of
    // `socket`, under its own lock, and only while the connection is enrolled.
    TcpSocket socket;
    std::optional<Poller::Id> id;
    bool mayRead = false;
    bool maySend = false;
    bool peerEnded = false;
    bool closing = false;  // after what is queued
    bool sentAny = false;
    bool finished = false;  // only the peer's end is waited for
    std::size_t ignored = 0;
    std::vector<Message> outgoing;
    std::size_t sentOfFirst = 0;
    Receiver onReceived;
    std::function<void()> onSent;
    std::shared_ptr<Impl> keptAlive;  // while nobody else waits for what is queued, or for the end
};

bool TcpConnection::Impl::enrol() {
    id = queue.enrol(shared_from_this());
    return id && queue.poller.watchChanges(socket.descriptor(), *id);
}

void TcpConnection::Impl::close() {
    if (id) queue.leave(*std::exchange(id, std::nullopt));
    if (!socket.isOpen()) return;
    socket.close();
    outgoing.clear();
    // The callbacks hold whoever holds this connection.
    const auto neverReceived = std::exchange(onReceived, nullptr);
    const auto neverSent = std::exchange(onSent, nullptr);
    const auto self = std::exchange(keptAlive, nullptr);
}

void TcpConnection::Impl::ready(const Poller::Event& event) {
    const unsigned told = busy | (event.readable ? readable : 0U) |
                          (event.writable ? writable : 0U) | (event.closing ? closed : 0U);
    // Who works here looks once more before it goes.
    if ((signals.fetch_or(told) & busy) == 0) work();
}

void TcpConnection::Impl::work() {
    try {
        for (unsigned none = busy;; none = busy) {
            const unsigned told = signals.exchange(busy);
            peerEnded = peerEnded || (told & closed) != 0;
            mayRead = mayRead || (told & (readable | closed)) != 0;
            maySend = maySend || (told & (writable | closed)) != 0;
            step();
            if (socket.isOpen() && mayRead && onReceived && outgoing.empty()) {
                // There is more; the others have their turn first.
                mayRead = false;
                queue.poller.tellAgain(socket.descriptor(), *id);
            }
            if (signals.compare_exchange_strong(none, 0)) return;
        }
    } catch (...) {
        close();
        throw;
    }
}

void TcpConnection::Impl::step() {
    if (finished) return ignoreNow();
    if (!outgoing.empty()) {
        if (!maySend) return;
        sendSome();
        if (!outgoing.empty() || !socket.isOpen()) return;
        if (closing) return finish();
        if (onSent) std::exchange(onSent, nullptr)();
    }
    if (mayRead && onReceived && outgoing.empty()) readNow();
}

void TcpConnection::Impl::readNow() {
    std::uint8_t* buffer = threadBuffer();
    TcpSocket::Moved got = socket.receive(buffer, threadBufferSize);
    if (got.wouldBlock) {
        mayRead = false;
        return;
    }
    std::unique_ptr<std::uint8_t[]> more;
    if (got.count == threadBufferSize) {
        more.reset(new std::uint8_t[maxReceive]);
        std::copy_n(buffer, got.count, more.get());
        buffer = more.get();
        const TcpSocket::Moved rest = socket.receive(buffer + got.count, maxReceive - got.count);
        got.count += rest.count;
        got.complete = rest.complete;
        got.error = rest.error;
    }
    // Less than was asked for is all there was, and what comes later is told anew.
    mayRead = got.count == maxReceive || peerEnded;
    std::exchange(onReceived, nullptr)({{buffer, got.count}, got.complete, got.error});
}

void TcpConnection::Impl::sendSome() {
    for (std::size_t sent = 0; !outgoing.empty();) {
        if (sent > sendTurn) {
            // A reader that keeps up must not keep the thread from all others.
            maySend = false;
            queue.poller.tellAgain(socket.descriptor(), *id);
            return;
        }
        const Message& first = outgoing.front();
        const TcpSocket::Moved gone = socket.send(first.head, first.body, sentOfFirst);
        if (gone.error) return close();
        if (gone.wouldBlock) {
            maySend = false;
            return;
        }
        sentAny = true;
        sent += gone.count;
        sentOfFirst += gone.count;
        if (sentOfFirst < first.head.size() + first.body.size()) continue;
        outgoing.erase(outgoing.begin());
        sentOfFirst = 0;
    }
}

void TcpConnection::Impl::finish() {
    if (!sentAny) return close();
    finished = true;
    keptAlive = shared_from_this();
    socket.endSending();
    ignoreNow();
    if (socket.isOpen()) queue.awaitEnd(*id);
}

void TcpConnection::Impl::ignoreNow() {
    while (socket.isOpen()) {
        const TcpSocket::Moved got = socket.receive(threadBuffer(), threadBufferSize);
        if (got.wouldBlock) return;
        ignored += got.count;
        if (got.complete || got.error || ignored > mostIgnored) close();
    }
}

TcpConnection::TcpConnection(std::shared_ptr<Impl> made) : impl(std::move(made)) {}

const TcpHost& TcpConnection::remoteHost() const {
    return impl->host;
}

void TcpConnection::receive(std::function<void(const TcpReceived&)> done) {
    if (impl->closing || !impl->socket.isOpen()) return;
    impl->onReceived = std::move(done);
}

void TcpConnection::send(std::string head, SharedBytes body) {
    if (impl->closing || !impl->socket.isOpen()) return;
    impl->outgoing.push_back({std::move(head), std::move(body)});
    if (impl->outgoing.size() == 1) impl->sendSome();
}

bool TcpConnection::isSending() const {
    return !impl->outgoing.empty();
}

void TcpConnection::afterSent(std::function<void()> done) {
    if (impl->closing || !impl->socket.isOpen()) return;
    if (impl->outgoing.empty()) return done();
    impl->onSent = std::move(done);
}

void TcpConnection::cancel() {
    if (impl->closing || !impl->socket.isOpen()) return;
    impl->closing = true;
    if (impl->outgoing.empty()) return impl->finish();
    impl->keptAlive = impl;
}

// ---- listener

struct TcpListener::Impl : Watched, std::enable_shared_from_this<TcpListener::Impl> {
    Impl(TaskQueue::State& owner, TcpSocket listening)
        : queue(owner), acceptor(std::move(listening)) {}
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() override = default;

    void begin();
    void cancel();
    // There is somebody to accept, or the time has come to try again.
    void ready(const Poller::Event& event) override;
    void endReceiving() override {}
    void abandon() override {}

    void awaitNext();
    void failed(std::error_code error);
    void adopt(TcpSocket::Accepted accepted);

    // Constant after construction, `handlers` after start().
    TaskQueue::State& queue;
    Handlers handlers;

    // Used by the one event under way.
    bool inTrouble = false;

    // Guarded by `lock`.
    std::mutex lock;
    TcpSocket acceptor;
    PollTimer retry;
    std::optional<Poller::Id> acceptorId;
    std::optional<Poller::Id> retryId;
};

void TcpListener::Impl::begin() {
    std::error_code outcome;
    {
        const std::lock_guard guard(lock);
        if (!acceptor.isOpen()) return;
        retryId = queue.enrol(shared_from_this());
        acceptorId = queue.enrol(shared_from_this());
        if (!retryId || !acceptorId) return;
        retry.set(std::chrono::milliseconds(0));
        if (!queue.poller.watchOnce(retry.descriptor(), *retryId) ||
            !queue.poller.watchOnce(acceptor.descriptor(), *acceptorId))
            outcome = std::make_error_code(std::errc::not_enough_memory);
    }
    handlers.onState(outcome);
}

void TcpListener::Impl::cancel() {
    const std::lock_guard guard(lock);
    acceptor.close();
    if (acceptorId) queue.leave(*std::exchange(acceptorId, std::nullopt));
    if (retryId) queue.leave(*std::exchange(retryId, std::nullopt));
}

void TcpListener::Impl::ready(const Poller::Event&) {
    for (int i = 0; i < acceptBatch; ++i) {
        TcpSocket::Accepted next;
        {
            const std::lock_guard guard(lock);
            if (!acceptor.isOpen()) return;
            next = acceptor.accept();
        }
        if (next.wouldBlock) break;
        if (next.error == std::errc::connection_aborted) continue;
        if (next.error) return failed(next.error);
        if (std::exchange(inTrouble, false)) handlers.onTrouble({});
        try {
            adopt(std::move(next));
        } catch (const std::exception&) {
            // Out of memory: this one is lost, the next may have more luck.
        }
    }
    awaitNext();
}

void TcpListener::Impl::awaitNext() {
    const std::lock_guard guard(lock);
    if (acceptor.isOpen() && acceptorId)
        queue.poller.watchOnceMore(acceptor.descriptor(), *acceptorId);
}

void TcpListener::Impl::failed(std::error_code error) {
    if (isForGood(error)) return handlers.onState(error);
    if (!std::exchange(inTrouble, true)) handlers.onTrouble(error);
    // Trying again at once would burn a core until somebody closes a descriptor.
    const std::lock_guard guard(lock);
    if (!acceptor.isOpen() || !retryId) return;
    retry.set(acceptBackoff);
    queue.poller.watchOnceMore(retry.descriptor(), *retryId);
}

void TcpListener::Impl::adopt(TcpSocket::Accepted accepted) {
    const auto made = std::make_shared<TcpConnection::Impl>(queue, std::move(accepted.socket),
                                                            std::move(accepted.host));
    if (!made->enrol()) return;
    try {
        handlers.onConnection(TcpConnection(made));
        // Not here: its first request may be there already, and whoever answers that may block for
        // minutes, while others wait to be accepted.
        queue.post([made] { made->work(); });
    } catch (...) {
        made->close();
        throw;
    }
}

TcpListener::TcpListener(TaskQueue& queue, const std::optional<std::string>& address,
                         std::uint16_t port)
    : queueAlive(queue.shared()),
      impl(std::make_shared<Impl>(*queue.shared(), TcpSocket::listening(address, port))) {}

TcpListener::~TcpListener() {
    cancel();
}

void TcpListener::start(Handlers handlers) {
    impl->handlers = std::move(handlers);
    impl->queue.post([impl = impl] { impl->begin(); });
}

void TcpListener::cancel() {
    impl->cancel();
}

std::uint16_t TcpListener::port() const {
    const std::lock_guard guard(impl->lock);
    return impl->acceptor.port();
}

}  // namespace zepho
