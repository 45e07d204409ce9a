#include "tests/pack/HubStandIn.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <httplib.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zepho::test {

namespace {

std::string addressAt(int port) {
    return "http://127.0.0.1:" + std::to_string(port) + "/API/hub.php";
}

}  // namespace

struct StandInHub::Machine {
    httplib::Server server;
    int port = 0;
    std::thread thread;

    // Guarded by lock.
    std::mutex lock;
    HubAnswer answer;
    std::map<std::string, HubAnswer> answers;  // of single operations
    std::vector<HubRequestSeen> seen;

    void handle(HubRequestSeen request, httplib::Response& response) {
        const std::lock_guard guard(lock);
        const auto named = request.query.find("a");
        const auto own = answers.find(named == request.query.end() ? request.path : named->second);
        const HubAnswer& chosen = own == answers.end() ? answer : own->second;
        response.status = chosen.status;
        response.set_content(chosen.body, "application/json");
        seen.push_back(std::move(request));
    }
    static HubRequestSeen headOf(const httplib::Request& request) {
        HubRequestSeen head;
        head.method = request.method;
        head.path = request.path;
        head.query.insert(request.params.begin(), request.params.end());
        head.agent = request.get_header_value("User-Agent");
        head.contentType = request.get_header_value("Content-Type");
        return head;
    }
    static void readBody(const httplib::Request& request, const httplib::ContentReader& reader,
                         HubRequestSeen& into) {
        if (!request.is_multipart_form_data()) {
            reader([&](const char* data, std::size_t size) {
                into.body.append(data, size);
                return true;
            });
            return;
        }
        reader(
            [&](const httplib::MultipartFormData& part) {
                into.parts.push_back({part.name, part.filename, part.content_type, {}});
                return true;
            },
            [&](const char* data, std::size_t size) {
                into.parts.back().content.append(data, size);
                return true;
            });
    }
};

StandInHub::StandInHub() : machine(std::make_unique<Machine>()) {
    Machine& m = *machine;
    m.server.Get(".*", [&m](const httplib::Request& request, httplib::Response& response) {
        m.handle(Machine::headOf(request), response);
    });
    m.server.Post(".*", [&m](const httplib::Request& request, httplib::Response& response,
                             const httplib::ContentReader& reader) {
        HubRequestSeen seen = Machine::headOf(request);
        Machine::readBody(request, reader, seen);
        m.handle(std::move(seen), response);
    });
    m.port = m.server.bind_to_any_port("127.0.0.1");
    if (m.port <= 0) throw std::runtime_error("the stand-in hub gets no port");
    m.thread = std::thread([&m] { m.server.listen_after_bind(); });
    // stop() does nothing to a server that does not run yet.
    while (!m.server.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

StandInHub::~StandInHub() {
    machine->server.stop();
    machine->thread.join();
}

std::string StandInHub::address() const {
    return addressAt(machine->port);
}

void StandInHub::answer(HubAnswer answer) {
    const std::lock_guard guard(machine->lock);
    machine->answer = std::move(answer);
}

void StandInHub::answerTo(const std::string& operation, HubAnswer answer) {
    const std::lock_guard guard(machine->lock);
    machine->answers[operation] = std::move(answer);
}

std::vector<HubRequestSeen> StandInHub::takeSeen() {
    const std::lock_guard guard(machine->lock);
    return std::exchange(machine->seen, {});
}

RudeServer::RudeServer(Manners how) : manners(std::move(how)) {
    listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* plain = reinterpret_cast<sockaddr*>(&address);
    if (listener < 0 || ::bind(listener, plain, size) != 0 || ::listen(listener, 8) != 0 ||
        ::getsockname(listener, plain, &size) != 0)
        throw std::runtime_error("the rude server gets no port");
    port = ntohs(address.sin_port);
    thread = std::thread([this] { serve(); });
}

RudeServer::~RudeServer() {
    stopping = true;
    thread.join();
    ::close(listener);
}

std::string RudeServer::address() const {
    return addressAt(port);
}

void RudeServer::serve() {
    while (!stopping) {
        pollfd waiting{listener, POLLIN, 0};
        if (::poll(&waiting, 1, 10) <= 0) continue;
        const int connection = ::accept(listener, nullptr, nullptr);
        if (connection < 0) continue;
        serveOne(connection);
        ::close(connection);
    }
}

bool RudeServer::receive(int connection, std::string& into) const {
    pollfd waiting{connection, POLLIN, 0};
    if (::poll(&waiting, 1, 10) <= 0) return true;
    std::array<char, 65536> piece{};
    const ssize_t got = ::recv(connection, piece.data(), piece.size(), 0);
    if (got > 0) into.append(piece.data(), static_cast<std::size_t>(got));
    return got > 0;
}

void RudeServer::serveOne(int connection) {
    std::string request;
    const auto isComplete = [&] {
        const std::size_t head = request.find("\r\n\r\n");
        if (head == std::string::npos) return false;
        const std::size_t length = request.find("Content-Length: ");
        if (!manners.readsBody || length == std::string::npos || length > head) return true;
        return request.size() >=
               head + 4 + std::strtoul(request.c_str() + length + 16, nullptr, 10);
    };
    while (!stopping && !isComplete())
        if (!receive(connection, request)) return;

    std::string_view rest = manners.bytes;
    while (!rest.empty()) {
        const ssize_t sent = ::send(connection, rest.data(), rest.size(), MSG_NOSIGNAL);
        if (sent <= 0) return;
        rest.remove_prefix(static_cast<std::size_t>(sent));
    }
    std::string unread;
    switch (manners.ending) {
        case Ending::close:
            ::shutdown(connection, SHUT_WR);
            [[fallthrough]];
        case Ending::hold:
            while (!stopping && receive(connection, unread)) unread.clear();
            break;
        case Ending::stall:
            for (pollfd gone{connection, POLLRDHUP, 0}; !stopping && ::poll(&gone, 1, 10) == 0;) {
            }
            break;
        case Ending::drip:
            while (!stopping && ::send(connection, "x", 1, MSG_NOSIGNAL) == 1)
                if (!receive(connection, unread)) break;
            break;
        case Ending::reset: {
            const linger atOnce{1, 0};
            ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
            break;
        }
    }
}

}  // namespace zepho::test
