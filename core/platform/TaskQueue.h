// A concurrent task queue: one event loop run by an elastic set of threads.
//
// A task runs on the thread that completed its event, without a hand-over, and may block for minutes
// inside a TaskQueue::Blocking: when no idle thread is left for a millisecond, another one joins the
// loop, further ones at once while that lasts, and what is too much when they return leaves it
// again. The loop itself has one thread fewer than there are cores, which leaves one to those who
// ask, and one more where each event takes long, as large answers do. Beyond `maxThreads` blocked
// tasks, or where the system gives no more threads, events wait until a task returns.
//
// Owned by whoever opens sockets on it (core/platform/Tcp.h). Any thread may call it.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace zepho {

class TaskQueue {
public:
    struct Limits {
        // Threads that may wait in the loop; 0: as many as the events are best shared by.
        std::size_t idleThreads = 0;
        std::size_t maxThreads = 1024;
    };

    explicit TaskQueue(const std::string& name);
    TaskQueue(const std::string& name, Limits limits);
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;
    // Ends the receiving side of all connections, lets what is queued for sending go out, and waits
    // (a second at most) until the threads have ended. It never waits for tasks that block: those
    // threads, and the loop they still need, end by themselves once the last of them has returned.
    ~TaskQueue();

    // Runs the task later on one of the threads.
    void post(std::function<void()> task);

    // All threads of the queue, blocked and idle ones.
    [[nodiscard]] std::size_t threadCount() const;

    // While one lives, the calling thread counts as blocked. Without effect on other threads.
    class Blocking {
    public:
        Blocking();
        Blocking(const Blocking&) = delete;
        Blocking& operator=(const Blocking&) = delete;
        ~Blocking();
    };

    // What the sockets share with the queue; defined in a header of this folder only.
    struct State;
    [[nodiscard]] const std::shared_ptr<State>& shared() const { return state; }

private:
    const std::shared_ptr<State> state;
};

}  // namespace zepho
