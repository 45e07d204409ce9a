// Plays the hub, on a port of its own on this machine only and on threads of its own.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
struct Response;
}  // namespace httplib

namespace zepho::test {

struct HubAnswer {
    int status = 200;
    std::string body;
};

struct HubFormPart {
    std::string name;
    std::string fileName;
    std::string contentType;
    std::string content;

    bool operator==(const HubFormPart&) const = default;
};

struct HubRequestSeen {
    std::string method;
    std::string path;
    std::map<std::string, std::string> query;
    std::string agent;
    std::string contentType;
    std::string body;                // unless it is a form
    std::vector<HubFormPart> parts;  // of a form, in their order
};

// A well-behaved server (cpp-httplib) that gives everybody the same answer, or each operation its own,
// and writes down what it was asked. Any thread.
class StandInHub {
public:
    StandInHub();
    StandInHub(const StandInHub&) = delete;
    StandInHub& operator=(const StandInHub&) = delete;
    ~StandInHub();

    [[nodiscard]] std::string address() const;
    void answer(HubAnswer answer);
    // To this operation ("list", "upload", "delete", or the path of a download) from now on.
    void answerTo(const std::string& operation, HubAnswer answer);
    // What came in since the last call.
    std::vector<HubRequestSeen> takeSeen();

private:
    void handle(HubRequestSeen request, httplib::Response& response);

    const std::unique_ptr<httplib::Server> server;
    int port = 0;
    std::thread thread;
    // Guarded by lock.
    std::mutex lock;
    HubAnswer common;
    std::map<std::string, HubAnswer> answers;  // of single operations
    std::vector<HubRequestSeen> seen;
};

}  // namespace zepho::test
