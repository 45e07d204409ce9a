#include <memory>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "core/platform/MainThread.h"
#include "core/platform/Uuid.h"

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

TEST(Uuid, IsRandomOfVersionFour) {
    std::set<Uuid> made;
    for (int i = 0; i < 1000; ++i) {
        const Uuid one = Uuid::make();
        EXPECT_EQ((one.high >> 12) & 15, 4U);
        EXPECT_EQ(one.low >> 62, 2U);
        made.insert(one);
    }
    EXPECT_EQ(made.size(), 1000U);
}

}  // namespace
}  // namespace zepho
