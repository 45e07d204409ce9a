// What the server's tests share: a running server, and a gate that holds its handlers.
#pragma once

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>

#include <gtest/gtest.h>

#include "core/http/HttpServer.h"
#include "tests/support/HttpClient.h"
#include "tests/support/Watching.h"

namespace zepho::test {

inline std::shared_ptr<HttpServer> startServer(HttpHandler handler) {
    auto server = std::make_shared<HttpServer>("127.0.0.1", 0, std::move(handler));
    server->start();
    return server;
}

// Threads of the process that the system shows under the servers' name.
inline int serverThreads() {
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name == "zepho.http") ++count;
    }
    return count;
}

// Holds everybody who waits at it until it is opened, and counts them.
class Gate {
public:
    void wait() {
        std::unique_lock guard(lock);
        ++inside;
        changed.notify_all();
        changed.wait(guard, [this] { return isOpen; });
        --inside;
    }
    // Whether `count` wait at the same time within half a minute.
    bool awaitInside(int count) {
        std::unique_lock guard(lock);
        return changed.wait_for(guard, std::chrono::seconds(30),
                                [this, count] { return inside >= count; });
    }
    void open() {
        const std::lock_guard guard(lock);
        isOpen = true;
        changed.notify_all();
    }

private:
    std::mutex lock;
    std::condition_variable changed;
    int inside = 0;
    bool isOpen = false;
};

}  // namespace zepho::test
