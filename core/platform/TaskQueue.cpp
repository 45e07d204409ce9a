#include "core/platform/TaskQueue.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

#include "core/platform/TaskQueueState.h"
#include "core/platform/Thread.h"

namespace zepho {
namespace {

constexpr std::size_t maxParked = 8;
constexpr auto parkedFor = std::chrono::milliseconds(500);
constexpr auto endingPatience = std::chrono::seconds(1);

// The queue whose thread this is, and how many Blockings lie on its stack.
thread_local TaskQueue::State* ownQueue = nullptr;
thread_local int blockingDepth = 0;

int defaultIdleThreads() {
    return static_cast<int>(std::max(1U, std::thread::hardware_concurrency())) + 1;
}

}  // namespace

TaskQueue::State::State(std::string threadName, Limits wanted)
    : name(std::move(threadName)),
      idleThreads(wanted.idleThreads > 0 ? static_cast<int>(wanted.idleThreads)
                                         : defaultIdleThreads()),
      maxThreads(std::max<std::size_t>(wanted.maxThreads, 1)) {
    work.emplace(io.get_executor());
}

void TaskQueue::State::keepOneIdle() {
    {
        const std::lock_guard guard(lock);
        if (idle.load() > 0) return;
        if (parked > recalls) {
            ++recalls;
            idle.fetch_add(1);
            wakeParked.notify_one();
            return;
        }
    }
    addThread();
}

void TaskQueue::State::addThread() {
    {
        const std::lock_guard guard(lock);
        if (threads >= maxThreads) return;
        ++threads;
        idle.fetch_add(1);
    }
    try {
        startThread(name, [self = shared_from_this()] { self->run(); }).detach();
    } catch (const std::system_error&) {
        // The system has no thread to give. Events wait for the next thread that comes back.
        const std::lock_guard guard(lock);
        idle.fetch_sub(1);
        --threads;
    }
}

void TaskQueue::State::run() {
    ownQueue = this;
    while (staysInLoop()) {
        try {
            if (io.run_one() > 0) continue;
            idle.fetch_sub(1);
            break;
        } catch (const std::exception&) {
            // Out of memory, most likely. The connection concerned ends with its last reference;
            // the others go on.
        }
    }
    const std::lock_guard guard(lock);
    --threads;
    changed.notify_all();
}

bool TaskQueue::State::staysInLoop() {
    if (idle.load() <= idleThreads) return true;
    std::unique_lock guard(lock);
    // Counted out before the decision: a thread that begins to block meanwhile must not take this
    // one for an idle one that stays.
    if (idle.fetch_sub(1) <= idleThreads) {
        idle.fetch_add(1);
        return true;
    }
    if (parked >= maxParked) return false;
    ++parked;
    wakeParked.wait_for(guard, parkedFor, [this] { return recalls > 0 || ending.load(); });
    --parked;
    if (recalls == 0) return false;
    --recalls;
    return true;
}

TaskQueue::TaskQueue(const std::string& name) : TaskQueue(name, Limits{}) {}

TaskQueue::TaskQueue(const std::string& name, Limits limits)
    : state(std::make_shared<State>(name, limits)) {
    for (int i = 0; i < state->idleThreads; ++i) state->addThread();
}

TaskQueue::~TaskQueue() {
    std::unique_lock guard(state->lock);
    state->ending.store(true);
    state->wakeParked.notify_all();
    state->work.reset();
    std::error_code ignored;
    for (asio::ip::tcp::socket* socket : state->sockets)
        socket->shutdown(asio::socket_base::shutdown_receive, ignored);
    if (ownQueue == state.get()) return;
    state->changed.wait_for(guard, endingPatience, [this] {
        const auto blocked = static_cast<std::size_t>(state->blocked.load());
        return state->threads == 0 || (blocked > 0 && state->sockets.size() <= blocked);
    });
}

void TaskQueue::post(std::function<void()> task) {
    asio::post(state->io, std::move(task));
}

std::size_t TaskQueue::threadCount() const {
    const std::lock_guard guard(state->lock);
    return state->threads;
}

TaskQueue::Blocking::Blocking() {
    if (ownQueue == nullptr || blockingDepth++ > 0) return;
    ownQueue->blocked.fetch_add(1);
    if (ownQueue->idle.fetch_sub(1) == 1) ownQueue->keepOneIdle();
    if (ownQueue->ending.load()) {
        const std::lock_guard guard(ownQueue->lock);
        ownQueue->changed.notify_all();
    }
}

TaskQueue::Blocking::~Blocking() {
    if (ownQueue == nullptr || --blockingDepth > 0) return;
    ownQueue->idle.fetch_add(1);
    ownQueue->blocked.fetch_sub(1);
}

}  // namespace zepho
