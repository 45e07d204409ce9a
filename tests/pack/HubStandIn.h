// Plays the hub, on a port of its own on this machine only and on threads of its own.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

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
    struct Machine;
    const std::unique_ptr<Machine> machine;
};

}  // namespace zepho::test
