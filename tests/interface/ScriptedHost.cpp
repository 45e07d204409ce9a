#include "tests/interface/ScriptedHost.h"

#include <chrono>
#include <stdexcept>
#include <string_view>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zepho::test {
namespace {

bool sendAll(int connection, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

}  // namespace

ScriptedHost::ScriptedHost(std::vector<ConnectionScript> connections)
    : scripts(std::move(connections)) {
    listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        ::listen(listener, 16) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("no listener");
    port = ::ntohs(address.sin_port);
    thread = std::thread([this] { serve(); });
}

ScriptedHost::~ScriptedHost() {
    stopping = true;
    thread.join();
    ::close(listener);
}

std::vector<std::string> ScriptedHost::requests() const {
    const std::lock_guard guard(lock);
    return seen;
}

void ScriptedHost::waitForEnd(std::size_t index) const {
    while (ended <= index) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void ScriptedHost::serve() {
    for (const ConnectionScript& script : scripts) {
        pollfd wanted{listener, POLLIN, 0};
        while (::poll(&wanted, 1, 20) <= 0)
            if (stopping) return;
        const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) return;
        play(script, connection);
        ::close(connection);
        ++ended;
    }
}

void ScriptedHost::play(const ConnectionScript& script, int connection) {
    using End = ConnectionScript::End;
    std::string received;
    for (const std::string& answer : script.answers) {
        if (script.end == End::deaf) break;
        if (!readRequest(connection, received) || !sendAll(connection, answer)) return;
    }
    char byte = 0;
    switch (script.end) {
        case End::close:
            break;
        case End::reset: {
            const linger now{1, 0};
            ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &now, sizeof now);
            break;
        }
        case End::read:
            readRequest(connection, received);
            break;
        case End::hold:
            while (!stopping && ::recv(connection, &byte, 1, 0) > 0) {
            }
            break;
        case End::trickle:
            while (!stopping && sendAll(connection, "x"))
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            break;
        case End::deaf:
            while (!stopping) std::this_thread::sleep_for(std::chrono::milliseconds(2));
            break;
    }
}

bool ScriptedHost::readRequest(int connection, std::string& received) {
    for (;;) {
        const std::size_t end = received.find("\r\n\r\n");
        if (end != std::string::npos) {
            constexpr std::string_view name = "\r\nContent-Length: ";
            const std::size_t at = received.find(name);
            const std::size_t size =
                end + 4 + (at < end ? std::stoul(received.substr(at + name.size())) : 0);
            if (received.size() >= size) {
                const std::lock_guard guard(lock);
                seen.push_back(received.substr(0, size));
                received.erase(0, size);
                return true;
            }
        }
        pollfd wanted{connection, POLLIN, 0};
        while (::poll(&wanted, 1, 20) <= 0)
            if (stopping) return false;
        char portion[65536];
        const ssize_t got = ::recv(connection, portion, sizeof portion, 0);
        if (got <= 0) return false;
        received.append(portion, static_cast<std::size_t>(got));
    }
}

}  // namespace zepho::test
