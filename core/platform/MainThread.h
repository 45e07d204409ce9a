// The hand-off to the program's main thread.
//
// onMainThread() runs a function later on the main thread, in the order of the calls, from any
// thread. How that happens is the program's business: the window installs its event loop, the
// daemon a RunLoop. Without a dispatcher the function is dropped, as nobody could ever run it.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace zepho {

using MainThreadDispatcher = std::function<void(std::function<void()>)>;

void onMainThread(std::function<void()> run);

// Replaces the dispatcher; an empty one detaches.
void setMainThreadDispatcher(MainThreadDispatcher dispatcher);

// A first-in, first-out loop for a program without a window. post() and stop() may be called from
// any thread, run() from one.
class RunLoop {
public:
    void post(std::function<void()> run);
    // Runs what was posted until stop() is called; what is left then is dropped.
    void run();
    void stop();

private:
    // Guarded by lock.
    std::mutex lock;
    std::condition_variable changed;
    std::deque<std::function<void()>> waiting;
    bool stopped = false;
};

}  // namespace zepho
