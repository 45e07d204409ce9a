#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "core/audio/WavPlayer.h"
#include "core/diag/AppLog.h"
#include "core/platform/MainThread.h"

namespace zepho {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

Bytes toneOf(int ms, int rate = 16000) {
    PcmBuffer pcm = PcmBuffer::silence(rate, ms);
    for (std::size_t i = 0; i < pcm.data.size(); ++i) pcm.data[i] = i % 40 < 20 ? 0.1F : -0.1F;
    return buildWav(pcm, 1);
}

std::optional<LogEntry> lastLine() {
    const auto lines = AppLog::snapshot();
    return lines.empty() ? std::nullopt : std::optional(lines.back());
}

// The test's own thread is the main thread, which looks at its post when the test says so.
class WavPlayerTest : public testing::Test {
protected:
    void SetUp() override {
        AppLog::clear();
        setMainThreadDispatcher([this](std::function<void()> run) {
            {
                const std::lock_guard guard(lock);
                post.push_back(std::move(run));
            }
            arrived.notify_one();
        });
        player.setOnFinished([this] { ++finished; });
    }
    void TearDown() override { setMainThreadDispatcher({}); }

    // What came for the main thread, not run yet. Gives nothing only when the sound hangs.
    std::function<void()> next() {
        std::unique_lock guard(lock);
        if (!arrived.wait_for(guard, 60s, [this] { return !post.empty(); })) {
            ADD_FAILURE() << "nothing came";
            return [] {};
        }
        auto run = std::move(post.front());
        post.pop_front();
        return run;
    }
    // A clip that ended just before it was cut off may have posted, to no effect.
    void runPostUntil(const std::function<bool()>& done) {
        while (!done() && !HasFailure()) next()();
    }
    bool isQuiet() {
        const std::lock_guard guard(lock);
        return post.empty();
    }

    std::mutex lock;
    std::condition_variable arrived;
    std::deque<std::function<void()>> post;
    int finished = 0;
    WavPlayer player{SoundOutput::silent};
};

TEST_F(WavPlayerTest, PlaysToTheEndInRealTimeAndTellsTheMainThread) {
    const auto begun = Clock::now();
    ASSERT_TRUE(player.play(toneOf(300), 0));
    EXPECT_EQ(player.durationMs(), 300);
    const auto run = next();
    EXPECT_GE(Clock::now() - begun, 300ms);
    EXPECT_EQ(finished, 0) << "not before the main thread runs it";
    run();
    EXPECT_EQ(finished, 1);
    EXPECT_FALSE(player.isPlaying());
    EXPECT_EQ(player.positionMs(), 0);
    EXPECT_EQ(player.durationMs(), 300);

    // The end of a clip may start the next one.
    player.setOnFinished([this] { EXPECT_TRUE(++finished == 3 || player.play(toneOf(20), 0)); });
    ASSERT_TRUE(player.play(toneOf(20), 0));
    runPostUntil([this] { return finished == 3; });
    EXPECT_EQ(player.durationMs(), 20);
}

TEST_F(WavPlayerTest, RefusesWhatItCannotPlayAndTellsLengths) {
    // 1999 samples of 1 kHz in stereo: 1999 ms.
    ASSERT_TRUE(player.play(buildWav(PcmBuffer{std::vector<float>(1999), 1000}, 2), 0));
    EXPECT_EQ(player.durationMs(), 1999);
    ASSERT_TRUE(player.play(toneOf(60'000), 1));
    EXPECT_EQ(player.durationMs(), 1) << "the caller's";
    while (player.positionMs() == 0) std::this_thread::yield();
    EXPECT_FALSE(player.play(ByteView{}, 5)) << "and goes on playing";
    EXPECT_TRUE(player.isPlaying());
    EXPECT_FALSE(lastLine().has_value());

    EXPECT_FALSE(
        player.play(asBytes("this is no sound, however long it may be: nothing of it is"), 5));
    EXPECT_FALSE(player.isPlaying()) << "the old clip is cut off all the same";
    EXPECT_EQ(player.positionMs(), 0);
    EXPECT_EQ(player.durationMs(), 1) << "of the last clip that was started";
    ASSERT_TRUE(lastLine().has_value());
    EXPECT_EQ(lastLine()->level, LogLevel::warn);
    EXPECT_EQ(lastLine()->text, "cannot play this clip: no readable WAV data");
    // Rates that no device is made for.
    for (const int rate : {1, 2'000'000'000}) {
        EXPECT_FALSE(player.play(buildWav(PcmBuffer{{0.5F, 0.5F}, rate}, 1), 5));
        EXPECT_EQ(lastLine()->text,
                  "cannot play this clip: a sample rate of " + std::to_string(rate) + " Hz");
    }
    EXPECT_EQ(finished, 0);
    EXPECT_TRUE(isQuiet());
}

TEST_F(WavPlayerTest, AnEndThatArrivesLateIsForgotten) {
    // Both shorter than the clip that follows: their ends would come before its end.
    ASSERT_TRUE(player.play(toneOf(100), 0));
    ASSERT_TRUE(player.play(toneOf(100), 0));
    player.stop();
    ASSERT_TRUE(player.play(toneOf(400), 0));
    runPostUntil([this] { return finished > 0; });
    EXPECT_EQ(finished, 1);
    EXPECT_TRUE(isQuiet());

    // The main thread may be busy when a clip ends.
    ASSERT_TRUE(player.play(toneOf(20), 0));
    auto run = next();
    player.stop();
    run();
    EXPECT_EQ(finished, 1) << "stopped in between";
    ASSERT_TRUE(player.play(toneOf(20), 0));
    run = next();
    ASSERT_TRUE(player.play(toneOf(20), 0));
    run();
    EXPECT_EQ(finished, 1) << "another clip in between";
    next()();
    EXPECT_EQ(finished, 2);
    {
        WavPlayer brief(SoundOutput::silent);
        brief.setOnFinished([this] { ++finished; });
        ASSERT_TRUE(brief.play(toneOf(20), 0));
        run = next();
    }
    run();
    EXPECT_EQ(finished, 2) << "the player has gone";
}

TEST_F(WavPlayerTest, AnyThreadMayPlayAndStop) {
    const Bytes tone = toneOf(5);
    std::atomic<int> begun{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 30; ++i) {
                if (t < 3) begun += player.play(tone, 0);
                if (t == 3 || i % 4 == 3) player.stop();
                EXPECT_LE(player.positionMs(), 5);
                (void)player.isPlaying();
            }
        });
    }
    for (auto& thread : threads) thread.join();
    player.stop();
    EXPECT_FALSE(player.isPlaying());
    {
        const std::lock_guard guard(lock);
        EXPECT_LE(post.size(), static_cast<std::size_t>(begun));
        post.clear();
    }
    ASSERT_TRUE(player.play(tone, 0));
    runPostUntil([this] { return finished > 0; });
    EXPECT_EQ(finished, 1);
}

// With a card the clip is heard as silence; without one nobody is left to wait for an end.
TEST_F(WavPlayerTest, TheSystemsDevicePlaysOrTheLogTellsWhyNot) {
    WavPlayer real;
    real.setOnFinished([this] { ++finished; });
    if (real.play(buildWav(PcmBuffer::silence(44100, 50), 2), 0)) {
        next()();
        EXPECT_EQ(finished, 1);
        return;
    }
    EXPECT_FALSE(real.isPlaying());
    EXPECT_TRUE(isQuiet());
    ASSERT_TRUE(lastLine().has_value());
    EXPECT_EQ(lastLine()->level, LogLevel::warn);
    EXPECT_EQ(lastLine()->text.rfind("cannot play this clip: ", 0), 0U);
}

}  // namespace
}  // namespace zepho
