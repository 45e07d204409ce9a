#include "core/platform/MainThread.h"

#include <utility>

namespace zepho {
namespace {

std::mutex dispatcherLock;

MainThreadDispatcher& dispatcherSlot() {
    // Never destroyed: threads may still log while the process ends.
    static auto* const slot = new MainThreadDispatcher;
    return *slot;
}

}  // namespace

void onMainThread(std::function<void()> run) {
    MainThreadDispatcher dispatcher;
    {
        const std::lock_guard guard(dispatcherLock);
        dispatcher = dispatcherSlot();
    }
    if (dispatcher) dispatcher(std::move(run));
}

void setMainThreadDispatcher(MainThreadDispatcher dispatcher) {
    // The old one goes away after the lock: what it holds may post once more while it ends.
    const std::lock_guard guard(dispatcherLock);
    dispatcherSlot().swap(dispatcher);
}

void RunLoop::post(std::function<void()> run) {
    {
        const std::lock_guard guard(lock);
        waiting.push_back(std::move(run));
    }
    changed.notify_one();
}

void RunLoop::run() {
    std::unique_lock guard(lock);
    for (;;) {
        changed.wait(guard, [this] { return stopped || !waiting.empty(); });
        if (stopped) return;
        std::function<void()> next = std::move(waiting.front());
        waiting.pop_front();
        guard.unlock();
        next();
        // What the function held ends here, outside the lock: it may post once more.
        next = nullptr;
        guard.lock();
    }
}

void RunLoop::stop() {
    {
        const std::lock_guard guard(lock);
        stopped = true;
    }
    changed.notify_all();
}

}  // namespace zepho
