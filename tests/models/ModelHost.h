// Stand-ins for a model host on loopback: one that keeps to the rules (an HTTP library that is not
// ours), and one that breaks them (bare sockets, told byte by byte what to do).
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace zepho::test {

// A door that opens once.
class Gate {
public:
    void open() {
        const std::lock_guard guard(lock);
        isOpen = true;
        // Within the lock: who waits may end the gate at once.
        changed.notify_all();
    }
    void wait() {
        std::unique_lock guard(lock);
        changed.wait(guard, [this] { return isOpen; });
    }

private:
    std::mutex lock;
    std::condition_variable changed;
    bool isOpen = false;
};

// Opens a gate at the end of its scope, so that a failed test leaves nobody behind it.
struct OpenAtEnd {
    Gate& gate;
    ~OpenAtEnd() { gate.open(); }
};

struct SeenRequest {
    std::string path;  // with its query
    std::string range;
    std::string userAgent;
};

class ModelHost {
public:
    using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

    // Over TLS if there are files with a certificate and its key.
    explicit ModelHost(Handler handler, const std::string& certificate = {},
                       const std::string& key = {});
    ModelHost(const ModelHost&) = delete;
    ModelHost& operator=(const ModelHost&) = delete;
    ~ModelHost();

    // Scheme and host, as the downloader takes it.
    [[nodiscard]] const std::string& address() const { return place; }
    [[nodiscard]] std::vector<SeenRequest> seen() const;

    // Serves a body, honouring ranges.
    static Handler serving(std::string body);

private:
    std::string place;
    std::unique_ptr<httplib::Server> server;
    std::thread thread;
    // Guarded by lock.
    mutable std::mutex lock;
    std::vector<SeenRequest> requests;
};

// The other end of one connection to a RawHost, its request read already.
class RawPeer {
public:
    RawPeer(int socket, std::string head) : fd(socket), requestHead(std::move(head)) {}

    [[nodiscard]] const std::string& request() const { return requestHead; }
    // Reads the request's body, as long as its head says.
    void readBody();
    // False when the other side has gone.
    bool send(const std::string& bytes);
    void endSending();
    void waitUntilGone();

private:
    const int fd;
    const std::string requestHead;
};

class RawHost {
public:
    // The script runs for each connection, one after the other, which is closed when it returns.
    explicit RawHost(std::function<void(RawPeer&)> script);
    RawHost(const RawHost&) = delete;
    RawHost& operator=(const RawHost&) = delete;
    ~RawHost();

    [[nodiscard]] const std::string& address() const { return place; }

private:
    void serve();

    std::function<void(RawPeer&)> script;
    int listener = -1;
    std::string place;
    std::thread thread;
    // Guarded by lock.
    std::mutex lock;
    int peer = -1;
    bool ending = false;
};

}  // namespace zepho::test
