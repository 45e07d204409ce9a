// A listener while the system refuses to watch its descriptors.
//
// The definition here stands in front of the C library's for the whole program.
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <vector>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>

#include "core/platform/TaskQueue.h"
#include "core/platform/Tcp.h"

namespace {

std::atomic<int> callsUntilFault{0};  // the call that makes it 0 fails

}  // namespace

extern "C" int epoll_ctl(int events, int operation, int fd, epoll_event* event) noexcept {
    if (callsUntilFault > 0 && --callsUntilFault == 0) {
        errno = ENOSPC;
        return -1;
    }
    using Call = int(int, int, int, epoll_event*);
    static auto* const real = reinterpret_cast<Call*>(::dlsym(RTLD_NEXT, "epoll_ctl"));
    return real(events, operation, fd, event);
}

namespace zepho::test {
namespace {

// All that a listener tells of its state until its queue has ended.
std::vector<std::error_code> statesOfListener(int callThatFails) {
    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::error_code> states;
    {
        TaskQueue queue("zepho.test");
        TcpListener listener(queue, "127.0.0.1", 0);
        callsUntilFault = callThatFails;
        listener.start({.onState =
                            [&](const std::error_code& error) {
                                const std::lock_guard guard(lock);
                                states.push_back(error);
                                changed.notify_all();
                            },
                        .onConnection = [](const TcpConnection&) {},
                        .onTrouble = [](const std::error_code&) {}});
        std::unique_lock guard(lock);
        changed.wait_for(guard, std::chrono::seconds(30), [&] { return !states.empty(); });
    }
    return states;
}

TEST(TcpFaults, AListenerIsReadyOnlyOnceItIsWatched) {
    EXPECT_EQ(statesOfListener(0), std::vector(1, std::error_code()));
    const auto refused = std::make_error_code(std::errc::not_enough_memory);
    for (const int callThatFails : {1, 2})
        EXPECT_EQ(statesOfListener(callThatFails), std::vector(1, refused)) << callThatFails;
    EXPECT_EQ(callsUntilFault, 0);
}

}  // namespace
}  // namespace zepho::test
