#include "tests/pack/HubStandIn.h"

#include <stdexcept>
#include <utility>

#include <httplib.h>

namespace zepho::test {
namespace {

HubRequestSeen headOf(const httplib::Request& request) {
    return {request.method,
            request.path,
            {request.params.begin(), request.params.end()},
            request.get_header_value("User-Agent"),
            request.get_header_value("Content-Type"),
            {},
            {}};
}

}  // namespace

StandInHub::StandInHub() : server(std::make_unique<httplib::Server>()) {
    server->Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
        handle(headOf(request), response);
    });
    server->Post(".*", [this](const httplib::Request& request, httplib::Response& response,
                              const httplib::ContentReader& read) {
        HubRequestSeen head = headOf(request);
        const auto appendTo = [](std::string& text, const char* data, std::size_t size) {
            text.append(data, size);
            return true;
        };
        if (request.is_multipart_form_data()) {
            read(
                [&](const httplib::MultipartFormData& part) {
                    head.parts.push_back({part.name, part.filename, part.content_type, {}});
                    return true;
                },
                [&](const char* data, std::size_t size) {
                    return appendTo(head.parts.back().content, data, size);
                });
        } else {
            read([&](const char* data, std::size_t size) {
                return appendTo(head.body, data, size);
            });
        }
        handle(std::move(head), response);
    });
    port = server->bind_to_any_port("127.0.0.1");
    if (port <= 0) throw std::runtime_error("the stand-in hub gets no port");
    thread = std::thread([this] { server->listen_after_bind(); });
    // stop() does nothing to a server that does not run yet.
    while (!server->is_running()) std::this_thread::yield();
}

StandInHub::~StandInHub() {
    server->stop();
    thread.join();
}

void StandInHub::handle(HubRequestSeen request, httplib::Response& response) {
    const std::lock_guard guard(lock);
    const auto named = request.query.find("a");
    const auto own = answers.find(named == request.query.end() ? request.path : named->second);
    const HubAnswer& chosen = own == answers.end() ? common : own->second;
    response.status = chosen.status;
    response.set_content(chosen.body, "application/json");
    seen.push_back(std::move(request));
}

std::string StandInHub::address() const {
    return "http://127.0.0.1:" + std::to_string(port) + "/API/hub.php";
}

void StandInHub::answer(HubAnswer answer) {
    const std::lock_guard guard(lock);
    common = std::move(answer);
}

void StandInHub::answerTo(const std::string& operation, HubAnswer answer) {
    const std::lock_guard guard(lock);
    answers[operation] = std::move(answer);
}

std::vector<HubRequestSeen> StandInHub::takeSeen() {
    const std::lock_guard guard(lock);
    return std::exchange(seen, {});
}

}  // namespace zepho::test
