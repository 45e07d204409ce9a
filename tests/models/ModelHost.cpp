#include "tests/models/ModelHost.h"

#include <algorithm>
#include <stdexcept>

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zepho::test {

ModelHost::ModelHost(Handler handler, const std::string& certificate, const std::string& key) {
    const bool secure = !certificate.empty();
    if (secure)
        server = std::make_unique<httplib::SSLServer>(certificate.c_str(), key.c_str());
    else
        server = std::make_unique<httplib::Server>();
    // One request a connection: a body without a length ends with the connection.
    server->set_keep_alive_max_count(1);
    server->Get(".*", [this, handler = std::move(handler)](const httplib::Request& request,
                                                           httplib::Response& response) {
        {
            const std::lock_guard guard(lock);
            requests.push_back({request.target, request.get_header_value("Range"),
                                request.get_header_value("User-Agent")});
        }
        handler(request, response);
    });
    const int port = server->bind_to_any_port("127.0.0.1");
    if (port <= 0) throw std::runtime_error("the model host has no port");
    place = (secure ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(port);
    thread = std::thread([this] { server->listen_after_bind(); });
    while (!server->is_running()) std::this_thread::yield();
}

ModelHost::~ModelHost() {
    server->stop();
    thread.join();
}

std::vector<SeenRequest> ModelHost::seen() const {
    const std::lock_guard guard(lock);
    return requests;
}

ModelHost::Handler ModelHost::serving(std::string body) {
    return [body = std::move(body)](const httplib::Request&, httplib::Response& response) {
        response.set_content(body, "application/octet-stream");
    };
}

void RawPeer::readBody() {
    const std::size_t length = requestHead.find("Content-Length: ");
    if (length == std::string::npos) return;
    std::string piece(65536, '\0');
    std::size_t left = std::stoul(requestHead.substr(length + 16));
    while (left > 0) {
        const ssize_t got = ::recv(fd, piece.data(), std::min(left, piece.size()), 0);
        if (got <= 0) return;
        left -= static_cast<std::size_t>(got);
    }
}

bool RawPeer::send(const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

void RawPeer::endSending() {
    ::shutdown(fd, SHUT_WR);
}

void RawPeer::waitUntilGone() {
    std::string unread(65536, '\0');
    while (::recv(fd, unread.data(), unread.size(), 0) > 0) continue;
}

RawHost::RawHost(std::function<void(RawPeer&)> told) : script(std::move(told)) {
    listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener, generic, size) != 0 || ::listen(listener, 8) != 0 ||
        ::getsockname(listener, generic, &size) != 0)
        throw std::runtime_error("the raw host has no port");
    place = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    thread = std::thread([this] { serve(); });
}

RawHost::~RawHost() {
    {
        const std::lock_guard guard(lock);
        ending = true;
        if (peer >= 0) ::shutdown(peer, SHUT_RDWR);
        ::shutdown(listener, SHUT_RDWR);
    }
    thread.join();
    ::close(listener);
}

void RawHost::serve() {
    for (;;) {
        const int fd = ::accept(listener, nullptr, nullptr);
        {
            const std::lock_guard guard(lock);
            if (ending || fd < 0) {
                if (fd >= 0) ::close(fd);
                return;
            }
            peer = fd;
        }
        std::string head;
        char byte = 0;
        while (!head.ends_with("\r\n\r\n") && ::recv(fd, &byte, 1, 0) == 1) head += byte;
        RawPeer told(fd, head);
        script(told);
        const std::lock_guard guard(lock);
        peer = -1;
        ::close(fd);
    }
}

}  // namespace zepho::test
