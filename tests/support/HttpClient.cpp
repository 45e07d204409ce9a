#include "tests/support/HttpClient.h"

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "core/platform/Unicode.h"

namespace zepho::test {
namespace {

using Clock = std::chrono::steady_clock;

int millisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace

HttpClient::HttpClient(int port, const std::string& address, int receiveBuffer) {
    sockaddr_in6 six{};
    sockaddr_in four{};
    const bool isFour = ::inet_pton(AF_INET, address.c_str(), &four.sin_addr) == 1;
    four.sin_family = AF_INET;
    four.sin_port = htons(static_cast<std::uint16_t>(port));
    six.sin6_family = AF_INET6;
    six.sin6_port = four.sin_port;
    ::inet_pton(AF_INET6, address.c_str(), &six.sin6_addr);
    descriptor = ::socket(isFour ? AF_INET : AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) throw std::runtime_error("no socket");
    if (receiveBuffer > 0)
        ::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
    const auto* target =
        isFour ? reinterpret_cast<const sockaddr*>(&four) : reinterpret_cast<const sockaddr*>(&six);
    if (::connect(descriptor, target, isFour ? sizeof(four) : sizeof(six)) != 0) {
        ::close(descriptor);
        throw std::runtime_error("cannot connect to port " + std::to_string(port));
    }
}

HttpClient::HttpClient(HttpClient&& other) noexcept
    : descriptor(std::exchange(other.descriptor, -1)), received(std::move(other.received)) {}

HttpClient::~HttpClient() {
    if (descriptor >= 0) ::close(descriptor);
}

bool HttpClient::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

bool HttpClient::receiveMore(Clock::time_point deadline) {
    pollfd wanted{descriptor, POLLIN, 0};
    if (::poll(&wanted, 1, millisecondsUntil(deadline)) != 1) return false;
    std::array<char, 65536> chunk;
    const ssize_t count = ::recv(descriptor, chunk.data(), chunk.size(), 0);
    if (count <= 0) return false;
    received.append(chunk.data(), static_cast<std::size_t>(count));
    return true;
}

std::optional<ClientResponse> HttpClient::read(std::chrono::milliseconds patience) {
    const auto deadline = Clock::now() + patience;
    std::size_t headEnd = 0;
    while ((headEnd = received.find("\r\n\r\n")) == std::string::npos)
        if (!receiveMore(deadline)) return std::nullopt;
    ClientResponse response;
    response.head = received.substr(0, headEnd + 4);
    response.status = std::atoi(response.head.c_str() + response.head.find(' '));
    for (std::size_t line = response.head.find("\r\n") + 2; line < headEnd;) {
        const std::size_t end = response.head.find("\r\n", line);
        const std::size_t colon = response.head.find(": ", line);
        response.headers[lowercased(response.head.substr(line, colon - line))] =
            response.head.substr(colon + 2, end - colon - 2);
        line = end + 2;
    }
    std::size_t length = std::strtoull(response.headers["content-length"].c_str(), nullptr, 10);
    if (response.status == 204 || response.status == 304) length = 0;
    received.erase(0, headEnd + 4);
    while (received.size() < length)
        if (!receiveMore(deadline)) return std::nullopt;
    response.body = received.substr(0, length);
    received.erase(0, length);
    return response;
}

std::optional<ClientResponse> HttpClient::request(const std::string& method,
                                                  const std::string& target,
                                                  const std::string& body,
                                                  const std::string& extraHeaders) {
    std::string text = method + " " + target + " HTTP/1.1\r\nHost: test\r\n" + extraHeaders;
    if (!body.empty()) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    if (!send(text + "\r\n" + body)) return std::nullopt;
    return read();
}

bool HttpClient::endsWithin(std::chrono::milliseconds patience) {
    pollfd wanted{descriptor, POLLIN, 0};
    if (!received.empty() || ::poll(&wanted, 1, static_cast<int>(patience.count())) != 1)
        return false;
    char byte = 0;
    return ::recv(descriptor, &byte, 1, 0) <= 0;
}

void HttpClient::finishSending() {
    ::shutdown(descriptor, SHUT_WR);
}

void HttpClient::reset() {
    const linger now{1, 0};
    ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
    ::close(std::exchange(descriptor, -1));
}

int freePort() {
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), length);
    ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(descriptor);
    return ntohs(address.sin_port);
}

}  // namespace zepho::test
