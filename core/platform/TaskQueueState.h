// The inside of a task queue, for the source files of the queue and of its sockets only.
//
// Every thread of the queue keeps the state alive. Sockets refer to it plainly: their pending
// operations lie inside `io` and must not keep it alive in turn.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>

#include <asio.hpp>

#include "core/platform/TaskQueue.h"

namespace zepho {

struct TaskQueue::State : std::enable_shared_from_this<TaskQueue::State> {
    State(std::string threadName, Limits wanted);

    // Adds a thread if none waits in the loop any more.
    void keepOneIdle();
    // Starts a thread; without effect at the limit, or where the system gives none.
    void addThread();
    // The life of one thread.
    void run();
    // Keeps the calling thread outside the loop while it is too much there. False: it shall end.
    bool staysInLoop();

    // Constant after construction.
    const std::string name;
    const int idleThreads;
    const std::size_t maxThreads;

    // Guarding themselves.
    std::atomic<int> idle{0};     // threads in the loop that no task blocks, or about to enter it
    std::atomic<int> blocked{0};  // threads inside a Blocking
    std::atomic<bool> ending{false};

    // Guarded by `lock`.
    std::mutex lock;
    std::condition_variable wakeParked;
    std::condition_variable changed;  // while ending: a thread, a connection or a task came or went
    std::size_t threads = 0;
    std::size_t parked = 0;   // threads that wait outside the loop for being needed again
    std::size_t recalls = 0;  // parked threads already asked back
    std::unordered_set<asio::ip::tcp::socket*> sockets;  // of all open connections

    // Guarding itself. The last member: what is still pending in it when it goes uses the others.
    asio::io_context io;
    std::optional<asio::executor_work_guard<asio::io_context::executor_type>> work;  // by `lock`
};

}  // namespace zepho
