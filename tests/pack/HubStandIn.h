// Two servers that play the hub. Both listen on a port of their own on this machine only, and run on
// threads of their own until they go.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
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

// A server with bad manners: each connection gets the same bytes, whatever it asks.
class RudeServer {
public:
    enum class Ending {
        close,  // after the bytes, everything the client sent having been read
        reset,
        hold,   // goes on reading, and never says another word
        stall,  // neither reads nor says another word
        drip,   // one more byte now and then, until the client goes
    };
    struct Manners {
        std::string bytes;
        Ending ending = Ending::close;
        // Otherwise the bytes go out as soon as the request's head is there.
        bool readsBody = true;
    };

    explicit RudeServer(Manners how);
    RudeServer(const RudeServer&) = delete;
    RudeServer& operator=(const RudeServer&) = delete;
    ~RudeServer();

    [[nodiscard]] std::string address() const;

private:
    void serve();
    void serveOne(int connection);
    // Reads what is there, waiting a little; false at the end of the stream.
    bool receive(int connection, std::string& into) const;

    const Manners manners;
    int listener = -1;
    int port = 0;
    std::atomic<bool> stopping{false};
    std::thread thread;
};

}  // namespace zepho::test
