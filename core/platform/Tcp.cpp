#include "core/platform/Tcp.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <mutex>
#include <utility>
#include <vector>

#include "core/platform/TaskQueueState.h"

namespace zepho {
namespace {

using Tcp = asio::ip::tcp;

constexpr int sendBufferSize = 256 * 1024;
// A body up to this size is handed to the system in one go. A larger one goes in steps: the reader
// then works on one step while the next is copied.
constexpr std::size_t wholeSendLimit = std::size_t{256} * 1024;
constexpr std::size_t sendStep = std::size_t{64} * 1024;
constexpr auto acceptBackoff = std::chrono::milliseconds(100);

// Where a thread reads to. A connection keeps only what is left of it.
std::uint8_t* threadBuffer() {
    thread_local const std::unique_ptr<std::uint8_t[]> buffer(
        new std::uint8_t[TcpConnection::maxReceive]);
    return buffer.get();
}

bool isWouldBlock(const std::error_code& error) {
    return error == asio::error::would_block || error == asio::error::try_again;
}

TcpHost hostOf(const Tcp::endpoint& endpoint) {
    const asio::ip::address address = endpoint.address();
    return {address.is_v4() ? TcpHost::Kind::ipv4 : TcpHost::Kind::ipv6, address.to_string()};
}

}  // namespace

// ---- connection

struct TcpConnection::Impl : std::enable_shared_from_this<TcpConnection::Impl> {
    using Receiver = std::function<void(const TcpReceived&)>;

    struct Message {
        std::string head;
        SharedBytes body;
    };

    Impl(TaskQueue::State& owner, Tcp::socket accepted, TcpHost remote)
        : queue(owner), host(std::move(remote)), socket(std::move(accepted)) {}
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() { close(); }

    // Makes the queue know the connection; false when the queue is ending.
    bool enrol();
    void close();
    void awaitBytes(Receiver done);
    void readNow(Receiver done);
    // Sends what the system takes at once.
    void sendSome();
    // Waits for room and sends the rest. The event under way ends with it: the wait may be over, on
    // another thread, before this returns.
    void sendRest();
    void sent();

    // Constant after construction.
    TaskQueue::State& queue;
    const TcpHost host;

    // Used by the one event under way. The queue itself only ever ends the receiving side of
    // `socket`, under its own lock, and only while the connection is enrolled.
    Tcp::socket socket;
    bool enrolled = false;
    bool closing = false;  // after what is queued
    std::vector<Message> outgoing;
    std::size_t sentOfFirst = 0;
    Receiver onReceived;           // asked for while something is queued
    std::function<void()> onSent;  // likewise
};

bool TcpConnection::Impl::enrol() {
    const std::lock_guard guard(queue.lock);
    if (queue.ending.load()) return false;
    queue.sockets.insert(&socket);
    return enrolled = true;
}

void TcpConnection::Impl::close() {
    if (enrolled) {
        const std::lock_guard guard(queue.lock);
        queue.sockets.erase(&socket);
        if (queue.ending.load()) queue.changed.notify_all();
        enrolled = false;
    }
    if (!socket.is_open()) return;
    std::error_code ignored;
    socket.shutdown(Tcp::socket::shutdown_both, ignored);
    socket.close(ignored);
    outgoing.clear();
    // The callbacks hold whoever holds this connection.
    const auto neverReceived = std::exchange(onReceived, nullptr);
    const auto neverSent = std::exchange(onSent, nullptr);
}

void TcpConnection::Impl::awaitBytes(Receiver done) {
    socket.async_wait(Tcp::socket::wait_read, [self = shared_from_this(), done = std::move(done)](
                                                  std::error_code error) mutable {
        if (!error) return self->readNow(std::move(done));
        done({{}, false, error});
    });
}

void TcpConnection::Impl::readNow(Receiver done) {
    std::error_code error;
    std::uint8_t* const buffer = threadBuffer();
    const std::size_t count = socket.read_some(asio::buffer(buffer, maxReceive), error);
    if (isWouldBlock(error)) return awaitBytes(std::move(done));
    const bool complete = error == asio::error::eof;
    if (complete) error.clear();
    done({{buffer, count}, complete, error});
}

void TcpConnection::Impl::sendRest() {
    socket.async_wait(Tcp::socket::wait_write, [self = shared_from_this()](std::error_code error) {
        if (error) return self->close();
        self->sendSome();
        if (!self->outgoing.empty()) return self->sendRest();
        self->sent();
    });
}

void TcpConnection::Impl::sendSome() {
    while (!outgoing.empty()) {
        const Message& first = outgoing.front();
        const std::size_t headSize = first.head.size();
        const std::size_t total = headSize + first.body.size();
        const std::size_t step = total - headSize <= wholeSendLimit ? total : sendStep;
        const std::size_t fromHead = std::min(sentOfFirst, headSize);
        const std::size_t fromBody = sentOfFirst - fromHead;
        const std::array<asio::const_buffer, 2> parts{
            asio::buffer(first.head.data() + fromHead, headSize - fromHead),
            asio::buffer(first.body.data() + fromBody,
                         std::min(first.body.size() - fromBody, step))};
        std::error_code error;
        sentOfFirst += socket.write_some(parts, error);
        if (isWouldBlock(error)) return;
        if (error) return close();
        if (sentOfFirst < total) continue;
        outgoing.erase(outgoing.begin());
        sentOfFirst = 0;
    }
}

// Everything has gone out after a wait: goes on with what was asked for meanwhile.
void TcpConnection::Impl::sent() {
    if (closing) return close();
    if (!socket.is_open()) return;
    if (onSent) return std::exchange(onSent, nullptr)();
    if (onReceived) awaitBytes(std::exchange(onReceived, nullptr));
}

TcpConnection::TcpConnection(std::shared_ptr<Impl> made) : impl(std::move(made)) {}

const TcpHost& TcpConnection::remoteHost() const {
    return impl->host;
}

void TcpConnection::receive(std::function<void(const TcpReceived&)> done) {
    if (impl->closing || !impl->socket.is_open()) return;
    if (impl->outgoing.empty()) return impl->awaitBytes(std::move(done));
    impl->onReceived = std::move(done);
    impl->sendRest();
}

void TcpConnection::send(std::string head, SharedBytes body) {
    if (impl->closing || !impl->socket.is_open()) return;
    impl->outgoing.push_back({std::move(head), std::move(body)});
    if (impl->outgoing.size() == 1) impl->sendSome();
}

bool TcpConnection::isSending() const {
    return !impl->outgoing.empty();
}

void TcpConnection::afterSent(std::function<void()> done) {
    if (impl->closing || !impl->socket.is_open()) return;
    if (impl->outgoing.empty()) return done();
    impl->onSent = std::move(done);
    impl->sendRest();
}

void TcpConnection::cancel() {
    if (impl->closing || !impl->socket.is_open()) return;
    impl->closing = true;
    if (impl->outgoing.empty()) return impl->close();
    impl->sendRest();
}

// ---- listener

struct TcpListener::Impl : std::enable_shared_from_this<TcpListener::Impl> {
    explicit Impl(TaskQueue::State& owner) : queue(owner), acceptor(owner.io), retry(owner.io) {}

    void listenOn(const Tcp::endpoint& endpoint);
    void acceptNext();
    void accepted(std::error_code error, Tcp::socket socket);
    void failed(std::error_code error);
    std::shared_ptr<TcpConnection::Impl> adopt(Tcp::socket socket);

    // Constant after construction, `handlers` after start().
    TaskQueue::State& queue;
    Handlers handlers;

    // Used by the one accept under way.
    bool inTrouble = false;

    // Guarded by `lock`.
    std::mutex lock;
    Tcp::acceptor acceptor;
    asio::steady_timer retry;
    Tcp::endpoint peer;
};

void TcpListener::Impl::listenOn(const Tcp::endpoint& endpoint) {
    acceptor.open(endpoint.protocol());
    try {
        acceptor.set_option(Tcp::acceptor::reuse_address(true));
        if (endpoint.protocol() == Tcp::v6() && endpoint.address().is_unspecified())
            acceptor.set_option(asio::ip::v6_only(false));
        acceptor.bind(endpoint);
        acceptor.listen(asio::socket_base::max_listen_connections);
    } catch (...) {
        std::error_code ignored;
        acceptor.close(ignored);
        throw;
    }
}

void TcpListener::Impl::acceptNext() {
    const std::lock_guard guard(lock);
    if (!acceptor.is_open()) return;
    acceptor.async_accept(peer,
                          [self = shared_from_this()](std::error_code error, Tcp::socket socket) {
                              self->accepted(error, std::move(socket));
                          });
}

void TcpListener::Impl::accepted(std::error_code error, Tcp::socket socket) {
    if (error) return failed(error);
    std::shared_ptr<TcpConnection::Impl> made;
    try {
        if (std::exchange(inTrouble, false)) handlers.onTrouble({});
        made = adopt(std::move(socket));
    } catch (const std::exception&) {
        // Out of memory: this one is lost, the next may have more luck.
    }
    acceptNext();
    if (made && made->enrol()) handlers.onConnection(TcpConnection(made));
}

void TcpListener::Impl::failed(std::error_code error) {
    if (error == asio::error::operation_aborted) return;
    if (error == asio::error::bad_descriptor || error == asio::error::invalid_argument ||
        error == asio::error::not_socket || error == asio::error::operation_not_supported)
        return handlers.onState(error);
    if (!std::exchange(inTrouble, true)) handlers.onTrouble(error);
    // Trying again at once would burn a core until somebody closes a descriptor.
    const std::lock_guard guard(lock);
    if (!acceptor.is_open()) return;
    retry.expires_after(acceptBackoff);
    retry.async_wait([self = shared_from_this()](std::error_code) { self->acceptNext(); });
}

std::shared_ptr<TcpConnection::Impl> TcpListener::Impl::adopt(Tcp::socket socket) {
    std::error_code ignored;
    socket.set_option(Tcp::no_delay(true), ignored);
    socket.set_option(asio::socket_base::keep_alive(true), ignored);
    socket.set_option(asio::socket_base::send_buffer_size(sendBufferSize), ignored);
    socket.non_blocking(true, ignored);
    return std::make_shared<TcpConnection::Impl>(queue, std::move(socket), hostOf(peer));
}

TcpListener::TcpListener(TaskQueue& queue, const std::optional<std::string>& address,
                         std::uint16_t port)
    : queueAlive(queue.shared()), impl(std::make_shared<Impl>(*queue.shared())) {
    if (address) {
        std::error_code error;
        const asio::ip::address parsed = asio::ip::make_address(*address, error);
        if (error) throw std::system_error(error, *address);
        impl->listenOn({parsed, port});
        return;
    }
    try {
        impl->listenOn({Tcp::v6(), port});
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::address_in_use) throw;
        // A machine without IPv6.
        impl->listenOn({Tcp::v4(), port});
    }
}

TcpListener::~TcpListener() {
    cancel();
}

void TcpListener::start(Handlers handlers) {
    impl->handlers = std::move(handlers);
    asio::post(impl->queue.io, [impl = impl] {
        impl->handlers.onState({});
        impl->acceptNext();
    });
}

void TcpListener::cancel() {
    const std::lock_guard guard(impl->lock);
    std::error_code ignored;
    impl->acceptor.close(ignored);
    impl->retry.cancel();
}

std::uint16_t TcpListener::port() const {
    const std::lock_guard guard(impl->lock);
    std::error_code error;
    return impl->acceptor.local_endpoint(error).port();
}

}  // namespace zepho
