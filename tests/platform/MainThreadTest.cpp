#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "core/platform/MainThread.h"

namespace zepho {
namespace {

TEST(MainThread, RunsInOrderOnTheLoopsThread) {
    RunLoop loop;
    setMainThreadDispatcher([&loop](std::function<void()> run) { loop.post(std::move(run)); });
    std::vector<int> seen;
    const std::thread::id here = std::this_thread::get_id();
    std::thread poster([&] {
        for (int i = 0; i < 100; ++i)
            onMainThread([&, i] {
                EXPECT_EQ(std::this_thread::get_id(), here);
                seen.push_back(i);
            });
        onMainThread([&] { loop.stop(); });
        onMainThread([&] { seen.push_back(-1); });  // behind the stop: dropped
    });
    loop.run();
    poster.join();
    setMainThreadDispatcher({});
    ASSERT_EQ(seen.size(), 100U);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(seen[static_cast<std::size_t>(i)], i);
    onMainThread([] { FAIL() << "nobody is there to run it"; });
}

// What a function holds ends after its run, and may post once more while it does.
TEST(MainThread, WhatAFunctionHoldsMayPost) {
    RunLoop loop;
    {
        const std::shared_ptr<void> held(nullptr,
                                         [&loop](void*) { loop.post([&loop] { loop.stop(); }); });
        loop.post([held] {});
    }
    loop.run();

    setMainThreadDispatcher([held = std::shared_ptr<void>(nullptr, [](void*) {
                                 onMainThread([] {});
                             })](const std::function<void()>&) {});
    setMainThreadDispatcher({});
}

}  // namespace
}  // namespace zepho
