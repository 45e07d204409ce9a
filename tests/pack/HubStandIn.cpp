#include "tests/pack/HubStandIn.h"

#include <chrono>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include <httplib.h>

namespace zepho::test {

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
    return "http://127.0.0.1:" + std::to_string(machine->port) + "/API/hub.php";
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

}  // namespace zepho::test
