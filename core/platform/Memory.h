// How the allocator keeps what was freed: by itself it holds a pool for nearly every thread that ever
// ran, each as large as its worst moment.
//
// Without effect where the allocator has no such knobs. The functions are stateless; any thread.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

namespace zepho {

// One pool for all threads. At the start of a program, before the first thread.
void limitMemoryPools();

// Gives what is free back to the system: after work on something large, as it takes a while.
void giveBackMemory();

// Does that every five seconds as long as it lives: what blocks of all sizes leave free between them
// adds up over hours. Owned by main(), which makes it once signals are held.
class MemoryCare {
public:
    MemoryCare();
    MemoryCare(const MemoryCare&) = delete;
    MemoryCare& operator=(const MemoryCare&) = delete;
    ~MemoryCare();

private:
    void run();

    std::mutex lock;
    std::condition_variable ended;
    bool ending = false;  // guarded by `lock`
    std::thread thread;
};

}  // namespace zepho
