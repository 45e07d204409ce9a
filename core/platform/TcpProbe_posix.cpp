#include <algorithm>
#include <cerrno>
#include <cstdint>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include "core/platform/Descriptor.h"
#include "core/platform/TcpProbe.h"

namespace zepho {
namespace {

using Steady = std::chrono::steady_clock;

// The result of a connect that is under way: 0 or an error number.
int connectResult(int socket, Steady::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Steady::now());
        pollfd waited{socket, POLLOUT, 0};
        const int ready = ::poll(&waited, 1, static_cast<int>(std::max<long>(0, left.count())));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return ETIMEDOUT;
        int error = 0;
        socklen_t size = sizeof error;
        return ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
    }
}

// A port of the range that outgoing connections use can be connected to itself.
bool isConnectedToItself(int socket) {
    sockaddr_in own{};
    sockaddr_in peer{};
    socklen_t ownSize = sizeof own;
    socklen_t peerSize = sizeof peer;
    return ::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &ownSize) == 0 &&
           ::getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &peerSize) == 0 &&
           own.sin_port == peer.sin_port;
}

bool connects(int socket, int port, std::chrono::milliseconds limit) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int error = 0;
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        error = errno;
        // An interrupted connect goes on by itself.
        if (error == EINPROGRESS || error == EINTR)
            error = connectResult(socket, Steady::now() + limit);
    }
    return error == 0 && !isConnectedToItself(socket);
}

}  // namespace

TcpProbe probeLoopbackPort(int port, std::chrono::milliseconds limit) {
    const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket.isOpen()) return TcpProbe::noSocket;
    return connects(socket.number(), port, limit) ? TcpProbe::answered : TcpProbe::silent;
}

}  // namespace zepho
