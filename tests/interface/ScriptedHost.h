// A listener on this machine that answers as the test tells, byte by byte, right or wrong.
//
// Owned by a test; a thread of its own serves one connection after the other. `lock` guards what it
// has seen.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zepho::test {

// What one connection goes through: for each answer a whole request is read before it is sent.
struct ConnectionScript {
    enum class End {
        close,    // after the last answer
        reset,    // the same with a reset
        read,     // reads one more request, and ends without a word
        hold,     // stays open and silent until the peer ends
        trickle,  // sends a byte of a header now and then until the peer ends
        deaf,     // reads nothing at all until the host is destroyed
    };
    std::vector<std::string> answers;
    End end = End::close;
};

class ScriptedHost {
public:
    explicit ScriptedHost(std::vector<ConnectionScript> scripts);
    ScriptedHost(const ScriptedHost&) = delete;
    ScriptedHost& operator=(const ScriptedHost&) = delete;
    ~ScriptedHost();

    [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + std::to_string(port); }
    // Whole requests, in order.
    [[nodiscard]] std::vector<std::string> requests() const;
    // Waits until the script number `index` is through.
    void waitForEnd(std::size_t index) const;

private:
    void serve();
    void play(const ConnectionScript& script, int connection);
    bool readRequest(int connection, std::string& received);

    // Constant after construction.
    const std::vector<ConnectionScript> scripts;
    int listener = -1;
    int port = 0;

    // Guarding itself.
    std::atomic<std::size_t> ended{0};
    std::atomic<bool> stopping{false};

    // Guarded by lock.
    mutable std::mutex lock;
    std::vector<std::string> seen;

    std::thread thread;
};

}  // namespace zepho::test
