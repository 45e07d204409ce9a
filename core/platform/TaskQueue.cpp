#include "core/platform/TaskQueue.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "core/platform/TaskQueueState.h"
#include "core/platform/Thread.h"

namespace zepho {
namespace {

constexpr std::size_t maxParked = 8;
constexpr auto parkedFor = std::chrono::milliseconds(500);
// How often the watcher looks, and after how many looks without need it sleeps again.
constexpr auto watchPeriod = std::chrono::milliseconds(1);
constexpr int watchedCalm = 100;
// Each holds a descriptor for as long as its peer pleases.
constexpr std::size_t mostAwaitingEnd = 16;
constexpr auto endingPatience = std::chrono::seconds(1);

// The queue whose thread this is, and how many Blockings lie on its stack.
thread_local TaskQueue::State* ownQueue = nullptr;
thread_local int blockingDepth = 0;

using Milliseconds = std::chrono::duration<double, std::milli>;

// Events a millisecond. Where there are fewer, each of them is worth a thread of its own; where there
// are more, threads that share them get in each other's way.
constexpr double fewEvents = 8;
constexpr double manyEvents = 12;

int cores() {
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

}  // namespace

TaskQueue::State::State(std::string threadName, Limits wanted)
    : name(std::move(threadName)),
      fewestInLoop(wanted.idleThreads > 0 ? static_cast<int>(wanted.idleThreads)
                                          : std::max(1, cores() - 1)),
      mostInLoop(wanted.idleThreads > 0 ? fewestInLoop : cores()),
      maxThreads(std::max<std::size_t>(wanted.maxThreads, 1)),
      inLoop(fewestInLoop) {}

TaskQueue::State::~State() {
    for (const auto& [id, weak] : std::exchange(watched, {}))
        if (const auto left = weak.lock()) left->abandon();
}

// More than can block without having been noticed by the watcher: these take long.
bool TaskQueue::State::manyBlock() const {
    return blocked.load() > inLoop.load() + 2;
}

void TaskQueue::State::leftBehind() {
    const int free = idle.load();
    if (free > 0 && starved.load()) return poller.post();
    // Who comes now shall not wait for a look.
    if (free == 0 && (starved.load() || manyBlock())) return keepIdle(1);
    // Most handlers are back within microseconds; waking a thread for each of them would cost more
    // than they do. The watcher is woken once and then looks by itself.
    if (watching.exchange(true)) return;
    const std::lock_guard guard(lock);
    wakeWatcher.notify_one();
}

void TaskQueue::State::watch() {
    std::unique_lock guard(lock);
    const auto ends = [this] { return ending.load(); };
    while (!ends()) {
        wakeWatcher.wait(guard, [&] { return watching.load() || ends(); });
        std::uint64_t seenTaken = taken;
        auto seenAt = std::chrono::steady_clock::now();
        for (int calm = 0; calm < watchedCalm && !wakeWatcher.wait_for(guard, watchPeriod, ends);) {
            const std::uint64_t lately = taken - std::exchange(seenTaken, taken);
            // Among short tasks, a look often meets the only thread in the middle of one.
            starved.store(idle.load() == 0 && lately == 0);
            const bool stuck = !happened.empty() && lately == 0;
            // A busy machine lets the watcher sleep for longer than it wanted to.
            const auto now = std::chrono::steady_clock::now();
            const double rate = static_cast<double>(lately) / Milliseconds(now - seenAt).count();
            seenAt = now;
            if (rate > manyEvents) inLoop.store(fewestInLoop);
            if (rate > 0 && rate < fewEvents) inLoop.store(mostInLoop);
            calm = starved.load() || stuck ? 0 : calm + 1;
            // Whoever waits in the poller has not seen what lies here.
            if (stuck && !starved.load()) poller.post();
            guard.unlock();
            keepIdle(std::max(starved.load() ? 1 : 0, inLoop.load() - blocked.load()));
            guard.lock();
        }
        watching.store(false);
        // Whoever left something behind just now has still seen it watched.
        if (idle.load() == 0 || !happened.empty()) watching.store(true);
    }
    // Nobody looks any more: from now on every thread that leaves something behind sees to it.
    starved.store(true);
    if (!happened.empty()) poller.post();
    guard.unlock();
    keepIdle(1);
    guard.lock();
    watcherLives = false;
    changed.notify_all();
}

void TaskQueue::State::startWatching() {
    watcherLives = true;
    try {
        startThread(name, [self = shared_from_this()] { self->watch(); }).detach();
    } catch (const std::exception&) {
        watcherLives = false;
        starved.store(true);
    }
}

void TaskQueue::State::keepIdle(int count) {
    {
        const std::lock_guard guard(lock);
        if (idle.load() >= count) return;
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
        if (over || threads >= maxThreads) return;
        ++threads;
        idle.fetch_add(1);
    }
    try {
        {
            const std::lock_guard guard(lock);
            happened.reserve(threads * Poller::batchSize);
        }
        startThread(name, [self = shared_from_this()] { self->run(); }).detach();
    } catch (const std::exception&) {
        // The system has no thread to give. Events wait for the next thread that comes back.
        const std::lock_guard guard(lock);
        idle.fetch_sub(1);
        --threads;
    }
}

void TaskQueue::State::run() {
    ownQueue = this;
    while (waiting.load() > 0 || staysInLoop()) {
        try {
            if (runOne()) continue;
            idle.fetch_sub(1);
            break;
        } catch (const std::exception&) {
            // Out of memory, most likely. The connection concerned ends with its last reference;
            // the others go on.
        }
    }
    const std::lock_guard guard(lock);
    --threads;
    if (threads == 0 && ending.load() && watched.empty() && tasks.empty()) {
        // Now, and not whenever the system lets this thread end: who waits may need them.
        over = true;
        poller.close();
    }
    changed.notify_all();
}

bool TaskQueue::State::staysInLoop() {
    // While many block, short tasks would send one away and call one back each.
    const int wanted = inLoop.load() + (manyBlock() ? 1 : 0);
    if (idle.load() <= wanted) return true;
    std::unique_lock guard(lock);
    // Counted out before the decision: a thread that begins to block meanwhile must not take this
    // one for an idle one that stays.
    if (idle.fetch_sub(1) <= wanted) {
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

bool TaskQueue::State::runOne() {
    std::function<void()> task;
    std::shared_ptr<Watched> concerned;
    Poller::Event event;
    {
        std::unique_lock guard(lock);
        if (happened.empty()) {
            guard.unlock();
            const Poller::Batch batch = poller.wait();
            guard.lock();
            happened.insert(happened.end(), batch.events.begin(),
                            batch.events.begin() + static_cast<std::ptrdiff_t>(batch.count));
        }
        if (happened.empty()) return true;
        event = happened.front();
        happened.erase(happened.begin());
        ++taken;
        waiting.store(happened.size());
        if (event.id == Poller::ended) return false;
        if (event.id == Poller::posted) {
            if (tasks.empty()) return true;
            task = std::move(tasks.front());
            tasks.pop_front();
            endIfDoneLocked();
        } else if (const auto found = watched.find(event.id); found != watched.end()) {
            concerned = found->second.lock();
        }
    }
    if (task) task();
    if (concerned) concerned->ready(event);
    return true;
}

std::optional<Poller::Id> TaskQueue::State::enrol(const std::shared_ptr<Watched>& added) {
    const std::lock_guard guard(lock);
    if (ending.load()) return std::nullopt;
    watched.emplace(nextId, added);
    return nextId++;
}

void TaskQueue::State::leave(Poller::Id id) {
    const std::lock_guard guard(lock);
    watched.erase(id);
    if (!ending.load()) return;
    endIfDoneLocked();
    changed.notify_all();
}

void TaskQueue::State::awaitEnd(Poller::Id id) {
    std::shared_ptr<Watched> first;  // let go after the lock
    const std::lock_guard guard(lock);
    awaitingEnd.push_back(id);
    if (awaitingEnd.size() <= mostAwaitingEnd) return;
    std::erase_if(awaitingEnd, [this](Poller::Id each) { return !watched.contains(each); });
    if (awaitingEnd.size() <= mostAwaitingEnd) return;
    const auto found = watched.find(awaitingEnd.front());
    awaitingEnd.pop_front();
    if (found == watched.end()) return;
    first = found->second.lock();
    if (first) first->endReceiving();
}

void TaskQueue::State::post(std::function<void()> task) {
    const std::lock_guard guard(lock);
    if (over) return;
    tasks.push_back(std::move(task));
    poller.post();
}

void TaskQueue::State::endIfDoneLocked() {
    if (!over && ending.load() && watched.empty() && tasks.empty()) poller.end();
}

TaskQueue::TaskQueue(const std::string& name) : TaskQueue(name, Limits{}) {}

TaskQueue::TaskQueue(const std::string& name, Limits limits)
    : state(std::make_shared<State>(name, limits)) {
    for (int i = 0; i < state->fewestInLoop; ++i) state->addThread();
    const std::lock_guard guard(state->lock);
    state->startWatching();
}

TaskQueue::~TaskQueue() {
    // Let go after the lock: one of them may be the last to hold its connection.
    std::vector<std::shared_ptr<Watched>> open;
    std::unique_lock guard(state->lock);
    state->ending.store(true);
    state->wakeParked.notify_all();
    state->wakeWatcher.notify_all();
    open.reserve(state->watched.size());
    for (const auto& [id, weak] : state->watched)
        if (auto left = weak.lock()) open.push_back(std::move(left));
    for (const auto& left : open) left->endReceiving();
    state->endIfDoneLocked();
    guard.unlock();
    open.clear();
    if (ownQueue == state.get()) return;
    guard.lock();
    state->changed.wait_for(guard, endingPatience, [this] {
        const auto blocked = static_cast<std::size_t>(state->blocked.load());
        if (state->watcherLives) return false;
        return state->threads == 0 || (blocked > 0 && state->watched.size() <= blocked);
    });
}

void TaskQueue::post(std::function<void()> task) {
    state->post(std::move(task));
}

std::size_t TaskQueue::threadCount() const {
    const std::lock_guard guard(state->lock);
    return state->threads;
}

TaskQueue::Blocking::Blocking() {
    if (ownQueue == nullptr || blockingDepth++ > 0) return;
    ownQueue->blocked.fetch_add(1);
    if (ownQueue->idle.fetch_sub(1) == 1 || ownQueue->waiting.load() > 0) ownQueue->leftBehind();
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
