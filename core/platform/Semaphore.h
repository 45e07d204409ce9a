// A counting semaphore with a timed wait on the steady clock.
//
// A wait looks around for a few microseconds, since putting a thread to sleep and waking it costs
// more than most answers take, and then sleeps until it is raised. The library's own
// std::counting_semaphore (libstdc++ 12) turns a timed wait into naps of growing length, up to 64 ms,
// and so answers late. Any thread. Whoever raises or waits keeps the semaphore alive until the call
// returns.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace zepho {

class Semaphore {
public:
    explicit Semaphore(std::int64_t initial = 0) : count(initial) {}

    void raise() {
        count.fetch_add(1);
        // A sleeper announces itself before it looks at the count for the last time: either it sees
        // the new count, or it is seen here.
        if (sleepers.load() == 0) return;
        // Holding the lock once keeps the call from falling between its look and its sleep.
        lock.lock();
        lock.unlock();
        raised.notify_one();
    }

    // Takes one count, or gives false when there was none until the deadline. One that is there
    // already is taken even after the deadline.
    [[nodiscard]] bool tryAcquireUntil(std::chrono::steady_clock::time_point deadline) {
        const auto patience = std::chrono::steady_clock::now() + lookAround;
        do {
            if (tryTake()) return true;
            std::this_thread::yield();
        } while (std::chrono::steady_clock::now() < patience);
        std::unique_lock guard(lock);
        sleepers.fetch_add(1);
        const bool taken = raised.wait_until(guard, deadline, [this] { return tryTake(); });
        sleepers.fetch_sub(1);
        return taken;
    }

    [[nodiscard]] bool tryAcquireFor(std::chrono::milliseconds time) {
        return tryAcquireUntil(std::chrono::steady_clock::now() + time);
    }

private:
    // About what it costs to be woken.
    static constexpr std::chrono::microseconds lookAround{15};

    bool tryTake() {
        std::int64_t seen = count.load();
        while (seen > 0)
            if (count.compare_exchange_weak(seen, seen - 1)) return true;
        return false;
    }

    // Guarding themselves.
    std::atomic<std::int64_t> count;
    std::atomic<int> sleepers{0};
    std::condition_variable raised;

    // Guards nothing but the moment between a sleeper's last look and its sleep.
    std::mutex lock;
};

}  // namespace zepho
