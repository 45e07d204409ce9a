#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include "core/platform/TcpSocket.h"

namespace zepho {
namespace {

// Twice what the system gives by itself at first: a megabyte then needs a few rounds, not dozens.
constexpr int sendBufferSize = 256 * 1024;
// A body of memory up to this size is handed over in one go. A larger one goes in steps: the reader
// then works on one step while the next is copied. What lies in a file is not copied at all.
constexpr std::size_t wholeSendLimit = std::size_t{256} * 1024;
constexpr std::size_t sendStep = std::size_t{64} * 1024;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

TcpSocket::Moved movedBy(ssize_t count) {
    if (count >= 0) return {static_cast<std::size_t>(count), false, false, {}};
    if (errno == EAGAIN) return {0, true, false, {}};
    return {0, false, false, std::error_code(errno, std::generic_category())};
}

template <class Call>
ssize_t uninterrupted(const Call& call) {
    for (;;) {
        const ssize_t count = call();
        if (count >= 0 || errno != EINTR) return count;
    }
}

void setOption(int socket, int level, int option, int value) {
    ::setsockopt(socket, level, option, &value, sizeof value);
}

TcpHost hostOf(const sockaddr_storage& peer) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (peer.ss_family == AF_INET) {
        const auto& v4 = reinterpret_cast<const sockaddr_in&>(peer);
        if (::inet_ntop(AF_INET, &v4.sin_addr, text.data(), text.size()) == nullptr) return {};
        return {TcpHost::Kind::ipv4, text.data()};
    }
    if (peer.ss_family != AF_INET6) return {};
    const auto& v6 = reinterpret_cast<const sockaddr_in6&>(peer);
    if (::inet_ntop(AF_INET6, &v6.sin6_addr, text.data(), text.size()) == nullptr) return {};
    TcpHost host{TcpHost::Kind::ipv6, text.data()};
    std::array<char, IF_NAMESIZE> zone{};
    if (IN6_IS_ADDR_LINKLOCAL(&v6.sin6_addr) &&
        ::if_indextoname(v6.sin6_scope_id, zone.data()) != nullptr)
        host.text.append("%").append(zone.data());
    return host;
}

}  // namespace

TcpSocket TcpSocket::listening(const std::optional<std::string>& address, std::uint16_t port) {
    // A send from a file to a peer that is gone cannot be told to raise no signal.
    [[maybe_unused]] static const auto before = std::signal(SIGPIPE, SIG_IGN);
    sockaddr_in v4{};
    v4.sin_family = AF_INET;
    v4.sin_port = htons(port);
    sockaddr_in6 v6{};
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(port);
    if (address) {
        if (::inet_pton(AF_INET, address->c_str(), &v4.sin_addr) == 1)
            return listeningOn(&v4, sizeof v4);
        const std::size_t mark = address->find('%');
        if (::inet_pton(AF_INET6, address->substr(0, mark).c_str(), &v6.sin6_addr) != 1)
            throw std::system_error(EINVAL, std::generic_category(), *address);
        if (mark != std::string::npos)
            v6.sin6_scope_id = ::if_nametoindex(address->c_str() + mark + 1);
        return listeningOn(&v6, sizeof v6);
    }
    try {
        return listeningOn(&v6, sizeof v6);
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::address_in_use) throw;
        // A machine without IPv6.
        return listeningOn(&v4, sizeof v4);
    }
}

TcpSocket TcpSocket::listeningOn(const void* address, unsigned size) {
    const auto* const wanted = static_cast<const sockaddr*>(address);
    TcpSocket made(Descriptor(
        ::socket(wanted->sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP)));
    const int number = made.descriptor();
    if (number < 0) fail("socket");
    setOption(number, SOL_SOCKET, SO_REUSEADDR, 1);
    if (wanted->sa_family == AF_INET6) {
        const auto* const v6 = static_cast<const sockaddr_in6*>(address);
        setOption(number, IPPROTO_IPV6, IPV6_V6ONLY,
                  IN6_IS_ADDR_UNSPECIFIED(&v6->sin6_addr) ? 0 : 1);
    }
    if (::bind(number, wanted, size) != 0) fail("bind");
    if (::listen(number, SOMAXCONN) != 0) fail("listen");
    return made;
}

TcpSocket::Accepted TcpSocket::accept() const {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    const auto number = static_cast<int>(uninterrupted([&] {
        return ::accept4(socket.number(), reinterpret_cast<sockaddr*>(&peer), &size,
                         SOCK_NONBLOCK | SOCK_CLOEXEC);
    }));
    if (number < 0) {
        const Moved outcome = movedBy(-1);
        return {TcpSocket(), {}, outcome.error, outcome.wouldBlock};
    }
    TcpSocket made{Descriptor(number)};
    setOption(number, IPPROTO_TCP, TCP_NODELAY, 1);
    setOption(number, SOL_SOCKET, SO_KEEPALIVE, 1);
    setOption(number, SOL_SOCKET, SO_SNDBUF, sendBufferSize);
    return {std::move(made), hostOf(peer), {}, false};
}

TcpSocket::Moved TcpSocket::receive(std::uint8_t* target, std::size_t size) const {
    Moved moved = movedBy(uninterrupted([&] { return ::recv(socket.number(), target, size, 0); }));
    moved.complete = moved.count == 0 && !moved.wouldBlock && !moved.error;
    return moved;
}

TcpSocket::Moved TcpSocket::send(const std::string& head, const SharedBytes& body,
                                 std::size_t sent) const {
    const bool fromFile = body.file() >= 0;
    if (fromFile && sent >= head.size()) {
        off_t from = static_cast<off_t>(sent - head.size());
        const std::size_t left = body.size() + head.size() - sent;
        Moved moved = movedBy(
            uninterrupted([&] { return ::sendfile(socket.number(), body.file(), &from, left); }));
        // The file is shorter than was told: there is nothing to wait for.
        if (moved.count == 0 && !moved.wouldBlock && !moved.error)
            moved.error = std::make_error_code(std::errc::io_error);
        return moved;
    }
    const std::size_t fromHead = std::min(sent, head.size());
    const std::size_t fromBody = sent - fromHead;
    const std::size_t step = body.size() <= wholeSendLimit ? body.size() : sendStep;
    std::array<iovec, 2> parts{};
    parts[0] = {const_cast<char*>(head.data()) + fromHead, head.size() - fromHead};
    if (!fromFile)
        parts[1] = {const_cast<std::uint8_t*>(body.data()) + fromBody,
                    std::min(body.size() - fromBody, step)};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = fromFile ? 1 : 2;
    // A head whose body follows at once does not make a packet of its own.
    const int flags = MSG_NOSIGNAL | (fromFile ? MSG_MORE : 0);
    return movedBy(uninterrupted([&] { return ::sendmsg(socket.number(), &message, flags); }));
}

void TcpSocket::endReceiving() const {
    ::shutdown(socket.number(), SHUT_RD);
}

void TcpSocket::endSending() const {
    ::shutdown(socket.number(), SHUT_WR);
}

void TcpSocket::close() {
    if (!socket.isOpen()) return;
    ::shutdown(socket.number(), SHUT_RDWR);
    socket.close();
}

std::uint16_t TcpSocket::port() const {
    sockaddr_storage own{};
    socklen_t size = sizeof own;
    if (::getsockname(socket.number(), reinterpret_cast<sockaddr*>(&own), &size) != 0) return 0;
    // The port lies at the same place in both forms.
    return ntohs(reinterpret_cast<const sockaddr_in&>(own).sin_port);
}

}  // namespace zepho
