// The inside of a task queue, for the source files of the queue and of its sockets only.
//
// Every thread of the queue keeps the state alive. What waits for events keeps itself alive, or is
// kept by its owner, and refers to the state plainly.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/platform/Poller.h"
#include "core/platform/TaskQueue.h"

namespace zepho {

// Something whose descriptor the queue watches.
class Watched {
public:
    virtual ~Watched() = default;
    // An event, on the thread that got it. Several may come at the same time.
    virtual void ready(const Poller::Event& event) = 0;
    // The queue ends: no more is to be received, what is queued may go out.
    virtual void endReceiving() = 0;
    // No thread is left to bring events.
    virtual void abandon() = 0;
};

struct TaskQueue::State : std::enable_shared_from_this<TaskQueue::State> {
    State(std::string threadName, Limits wanted);
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State();

    // A thread has begun to block and left events behind it, or nobody in the loop.
    void leftBehind();
    [[nodiscard]] bool manyBlock() const;
    // Adds a thread if fewer than `count` are in the loop.
    void keepIdle(int count);
    // The life of the thread that notices when the loop stays without an idle thread, or events
    // without anybody who takes them.
    void watch();
    void startWatching();
    // Starts a thread; without effect at the limit, or where the system gives none.
    void addThread();
    // The life of one thread.
    void run();
    // Keeps the calling thread outside the loop while it is too much there. False: it shall end.
    bool staysInLoop();
    // Waits for events if none is left, and lets the oldest happen. False: the queue has ended.
    bool runOne();

    // Under which the poller may tell of it. Absent when the queue is ending.
    [[nodiscard]] std::optional<Poller::Id> enrol(const std::shared_ptr<Watched>& watched);
    void leave(Poller::Id id);
    // Nothing is left to do there but to wait for the peer's end. Of a few, that is: whoever was the
    // first to wait does so no longer when one too many comes.
    void awaitEnd(Poller::Id id);
    void post(std::function<void()> task);
    // Sends the threads home if nothing is left that could happen.
    void endIfDoneLocked();

    // Constant after construction.
    const std::string name;
    const int fewestInLoop;
    const int mostInLoop;
    const std::size_t maxThreads;

    // Guarding themselves.
    Poller poller;
    std::atomic<int> idle{0};     // threads in the loop that no task blocks, or about to enter it
    std::atomic<int> blocked{0};  // threads inside a Blocking
    std::atomic<int> inLoop;      // how many threads the events are best shared by
    std::atomic<bool> ending{false};
    std::atomic<bool> watching{false};    // the watcher looks every now and then
    std::atomic<bool> starved{false};     // it saw nobody idle, nothing taken: help comes at once
    std::atomic<std::size_t> waiting{0};  // the size of `happened`

    // Guarded by `lock`.
    std::mutex lock;
    std::condition_variable wakeParked;
    std::condition_variable wakeWatcher;
    std::condition_variable changed;  // while ending: a thread, a connection or a task came or went
    bool watcherLives = false;
    bool over = false;  // the last thread has gone and nothing is left
    std::size_t threads = 0;
    std::size_t parked = 0;   // threads that wait outside the loop for being needed again
    std::size_t recalls = 0;  // parked threads already asked back
    std::deque<std::function<void()>> tasks;
    // Brought by the poller and not yet looked at. Who has put them here goes on with them, unless
    // it blocks; then the watcher wakes another thread. There is room for a batch of every thread:
    // an event that was lost for want of memory would never be told again.
    std::vector<Poller::Event> happened;
    std::uint64_t taken = 0;  // how many have been taken out
    Poller::Id nextId = Poller::firstFree;
    std::unordered_map<Poller::Id, std::weak_ptr<Watched>> watched;
    std::deque<Poller::Id> awaitingEnd;  // perhaps gone meanwhile
};

}  // namespace zepho
