#include <atomic>
#include <future>
#include <latch>
#include <mutex>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "core/diag/AppLog.h"
#include "core/service/SynthQueue.h"

namespace zepho {
namespace {

constexpr std::int64_t plenty = 60000;

class TestEngine : public TtsEngine {
public:
    using Speak = std::function<PcmBuffer(const S2Params&)>;
    explicit TestEngine(Speak answer) : speak(std::move(answer)) {}

    std::string name() const override { return "test"; }
    bool ready() const override { return true; }
    void configure(const EngineOptions&) override {}
    EngineOptions options() const override { return {}; }
    EngineHealth checkHealth() override { return {}; }
    PcmBuffer synthesize(const S2Params& params, const VoiceHint&) override {
        return speak(params);
    }

private:
    Speak speak;
};

// Audio that tells which line it belongs to.
PcmBuffer audioOf(const std::string& text) {
    return {{static_cast<float>(text.size())}, 8000};
}

S2Params line(const std::string& text) {
    S2Params params;
    params.text = text;
    return params;
}

std::shared_ptr<SynthQueue> makeQueue(std::int64_t limit, TestEngine::Speak speak) {
    auto engine = std::make_shared<TestEngine>(std::move(speak));
    return std::make_shared<SynthQueue>(limit, [engine] { return engine; });
}

// An engine whose every line stops until it is let go, and which notes the order of the lines.
class Gate {
public:
    TestEngine::Speak speak() {
        return [this](const S2Params& params) {
            {
                const std::lock_guard guard(lock);
                spoken.push_back(params.text);
            }
            entered.raise();
            EXPECT_TRUE(open.tryAcquireFor(std::chrono::milliseconds(plenty)));
            return audioOf(params.text);
        };
    }
    void awaitEntry() { ASSERT_TRUE(entered.tryAcquireFor(std::chrono::milliseconds(plenty))); }
    void letGo(int lines) {
        for (int i = 0; i < lines; ++i) open.raise();
    }
    std::vector<std::string> order() {
        const std::lock_guard guard(lock);
        return spoken;
    }

private:
    Semaphore entered;
    Semaphore open;
    std::mutex lock;
    std::vector<std::string> spoken;
};

// What a submit() ended in: the error's code, or none.
struct Ending {
    TtsErrorCode code = TtsErrorCode::none;
    std::string message;
    PcmBuffer pcm;
};

Ending submitNow(SynthQueue& queue, const std::string& text,
                 TtsPriority priority = TtsPriority::normal, std::int64_t timeoutMs = plenty,
                 LateCallback onLate = {}) {
    try {
        SynthOutcome outcome =
            queue.submit(line(text), VoiceHint(), priority, timeoutMs, std::move(onLate));
        return {TtsErrorCode::none, "", std::move(outcome.pcm)};
    } catch (const TtsError& error) {
        return {error.code, error.message, {}};
    }
}

// Submits on a thread of its own and returns when the line stands in the queue.
std::future<Ending> submitBehind(const std::shared_ptr<SynthQueue>& queue, const std::string& text,
                                 TtsPriority priority = TtsPriority::normal) {
    const std::int64_t before = queue->depth();
    auto ending = std::async(std::launch::async,
                             [queue, text, priority] { return submitNow(*queue, text, priority); });
    while (queue->depth() == before) std::this_thread::yield();
    return ending;
}

// Occupies the worker with a line that stops at the gate.
std::future<Ending> occupy(const std::shared_ptr<SynthQueue>& queue, Gate& gate) {
    auto ending =
        std::async(std::launch::async, [queue] { return submitNow(*queue, "occupying"); });
    gate.awaitEntry();
    return ending;
}

TEST(SynthQueue, LimitCountsWaitingLinesOfBothPriorities) {
    Gate gate;
    const auto queue = makeQueue(2, gate.speak());
    auto running = occupy(queue, gate);
    EXPECT_TRUE(queue->busy());
    EXPECT_EQ(queue->depth(), 0);
    auto first = submitBehind(queue, "a");
    auto second = submitBehind(queue, "bb", TtsPriority::high);

    std::atomic<int> lateCalls{0};
    const Ending refused = submitNow(*queue, "ccc", TtsPriority::high, plenty,
                                     [&](PcmBuffer, std::int64_t) { ++lateCalls; });
    EXPECT_EQ(refused.code, TtsErrorCode::queueFull);
    EXPECT_EQ(refused.message, "the synthesis queue is full (2 waiting), try again shortly");

    // A lower limit refuses the next line and leaves those that wait.
    queue->limit = 1;
    EXPECT_EQ(submitNow(*queue, "d").message,
              "the synthesis queue is full (1 waiting), try again shortly");
    EXPECT_EQ(queue->depth(), 2);
    queue->limit = 3;
    auto third = submitBehind(queue, "eeee");
    gate.letGo(4);
    EXPECT_EQ(running.get().pcm.data, audioOf("occupying").data);
    EXPECT_EQ(first.get().pcm.data, audioOf("a").data);
    EXPECT_EQ(second.get().pcm.data, audioOf("bb").data);
    EXPECT_EQ(third.get().pcm.data, audioOf("eeee").data);
    EXPECT_EQ(lateCalls, 0);
}

TEST(SynthQueue, HighPriorityOvertakesWaitingLinesInOrder) {
    Gate gate;
    const auto queue = makeQueue(100, gate.speak());
    std::vector<std::future<Ending>> endings;
    endings.push_back(occupy(queue, gate));
    std::vector<std::string> expected = {"occupying", "high 1", "high 2"};
    for (int i = 0; i < 10; ++i) {
        expected.push_back("normal " + std::to_string(i));
        endings.push_back(submitBehind(queue, expected.back()));
    }
    endings.push_back(submitBehind(queue, "high 1", TtsPriority::high));
    endings.push_back(submitBehind(queue, "high 2", TtsPriority::high));
    gate.letGo(13);
    for (auto& ending : endings) EXPECT_EQ(ending.get().code, TtsErrorCode::none);
    EXPECT_EQ(gate.order(), expected);
}

TEST(SynthQueue, AbandonedLineRunsLaterAndCallsBackOnce) {
    Gate gate;
    const auto queue = makeQueue(2, gate.speak());
    auto running = occupy(queue, gate);

    struct Late {
        std::vector<float> data;
        std::thread::id thread;
        bool busy = false;
    };
    std::promise<Late> late;
    const Ending left = submitNow(
        *queue, "given up", TtsPriority::normal, 1, [&](PcmBuffer pcm, std::int64_t elapsedMs) {
            EXPECT_GE(elapsedMs, 0);
            // A second call would throw, and show in the log.
            late.set_value({std::move(pcm.data), std::this_thread::get_id(), queue->busy()});
        });
    EXPECT_EQ(left.code, TtsErrorCode::timeout);
    EXPECT_EQ(left.message, "the backend produced no audio after 1 ms");
    EXPECT_EQ(queue->depth(), 1);
    // It still takes up its place.
    auto other = submitBehind(queue, "other");
    EXPECT_EQ(submitNow(*queue, "one too many").code, TtsErrorCode::queueFull);

    gate.letGo(3);
    EXPECT_EQ(running.get().code, TtsErrorCode::none);
    const Late got = late.get_future().get();
    EXPECT_EQ(got.data, audioOf("given up").data);
    EXPECT_NE(got.thread, std::this_thread::get_id());
    EXPECT_TRUE(got.busy);
    EXPECT_EQ(other.get().code, TtsErrorCode::none);
    EXPECT_EQ(gate.order(), (std::vector<std::string>{"occupying", "given up", "other"}));
}

TEST(SynthQueue, AbandonedLineThatFailsCallsNobody) {
    std::latch entered(1);
    std::latch callerLeft(1);
    const auto queue = makeQueue(9, [&](const S2Params& params) -> PcmBuffer {
        if (params.text == "after") return audioOf("after");
        entered.count_down();
        callerLeft.wait();
        throw TtsError(TtsErrorCode::engineFailed, "broken");
    });
    std::atomic<int> lateCalls{0};
    const Ending left = submitNow(*queue, "failing", TtsPriority::normal, 1,
                                  [&](PcmBuffer, std::int64_t) { ++lateCalls; });
    EXPECT_EQ(left.code, TtsErrorCode::timeout);
    entered.wait();
    callerLeft.count_down();
    EXPECT_EQ(submitNow(*queue, "after").code, TtsErrorCode::none);
    EXPECT_EQ(lateCalls, 0);
}

TEST(SynthQueue, FailuresReachTheCallerAndTheWorkerGoesOn) {
    AppLog::clear();
    std::atomic<bool> withEngine{true};
    auto engine = std::make_shared<TestEngine>([](const S2Params& params) -> PcmBuffer {
        if (params.text == "known") throw TtsError(TtsErrorCode::badAudio, "not audio");
        if (params.text == "standard") throw std::runtime_error("out of paper");
        if (params.text == "odd") throw 42;
        return {};
    });
    SynthQueue queue(9, [&]() -> std::shared_ptr<TtsEngine> {
        if (!withEngine) return nullptr;
        return engine;
    });
    const Ending known = submitNow(queue, "known");
    EXPECT_EQ(known.code, TtsErrorCode::badAudio);
    EXPECT_EQ(known.message, "not audio");
    const Ending standard = submitNow(queue, "standard");
    EXPECT_EQ(standard.code, TtsErrorCode::engineFailed);
    EXPECT_EQ(standard.message, "std::runtime_error: out of paper");
    EXPECT_EQ(submitNow(queue, "odd").code, TtsErrorCode::engineFailed);

    withEngine = false;
    const Ending missing = submitNow(queue, "nobody");
    EXPECT_EQ(missing.code, TtsErrorCode::engineNotConnected);
    EXPECT_EQ(missing.message, "no engine available");
    withEngine = true;
    // Empty audio is the caller's matter.
    const Ending empty = submitNow(queue, "empty");
    EXPECT_EQ(empty.code, TtsErrorCode::none);
    EXPECT_TRUE(empty.pcm.isEmpty());

    const auto lines = AppLog::snapshot();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].level, LogLevel::error);
    EXPECT_EQ(lines[0].source, "queue");
    EXPECT_EQ(lines[0].text,
              "unexpected exception on the synthesis thread: std::runtime_error: out of paper");
}

TEST(SynthQueue, FailingLateCallbackIsLoggedAndTheWorkerGoesOn) {
    AppLog::clear();
    Gate gate;
    const auto queue = makeQueue(9, gate.speak());
    auto running = occupy(queue, gate);
    const Ending left =
        submitNow(*queue, "late", TtsPriority::normal, 0,
                  [](PcmBuffer, std::int64_t) { throw std::runtime_error("disk on fire"); });
    EXPECT_EQ(left.code, TtsErrorCode::timeout);
    gate.letGo(3);
    EXPECT_EQ(submitNow(*queue, "next").code, TtsErrorCode::none);
    const auto lines = AppLog::snapshot();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].text.find("std::runtime_error: disk on fire"), std::string::npos);
}

TEST(SynthQueue, ShutdownDropsWaitingLinesAndFinishesTheRunningOne) {
    Gate gate;
    const auto queue = makeQueue(9, gate.speak());
    auto running = occupy(queue, gate);
    std::vector<std::future<Ending>> waiting;
    for (int i = 0; i < 5; ++i) waiting.push_back(submitBehind(queue, "dropped"));
    queue->shutdown();
    queue->shutdown();
    // The running line is still held at the gate while all five end.
    for (auto& ending : waiting) {
        const Ending dropped = ending.get();
        EXPECT_EQ(dropped.code, TtsErrorCode::engineNotConnected);
        EXPECT_EQ(dropped.message, "the service is shutting down; this request was dropped");
    }
    EXPECT_EQ(queue->depth(), 0);
    // Nothing is refused afterwards, and nothing is spoken.
    EXPECT_EQ(submitNow(*queue, "too late", TtsPriority::normal, 20).code, TtsErrorCode::timeout);
    EXPECT_EQ(queue->depth(), 1);
    gate.letGo(1);
    EXPECT_EQ(running.get().pcm.data, audioOf("occupying").data);
    EXPECT_EQ(submitNow(*queue, "too late", TtsPriority::normal, 20).code, TtsErrorCode::timeout);
    EXPECT_EQ(gate.order(), std::vector<std::string>{"occupying"});
}

TEST(SynthQueue, DroppingTheLastReferenceNeverWaitsForTheEngine) {
    // Idle: the worker has ended when the destructor returns.
    makeQueue(1, [](const S2Params&) { return PcmBuffer(); }).reset();

    // Inside the engine: a line that its caller has left goes on by itself.
    std::latch entered(1);
    std::latch open(1);
    std::promise<void> late;
    auto queue = makeQueue(1, [&](const S2Params& params) {
        entered.count_down();
        open.wait();
        return audioOf(params.text);
    });
    EXPECT_EQ(submitNow(*queue, "slow", TtsPriority::normal, 1,
                        [&](PcmBuffer, std::int64_t) { late.set_value(); })
                  .code,
              TtsErrorCode::timeout);
    entered.wait();
    queue.reset();
    open.count_down();
    late.get_future().get();

    // On the worker itself: the late callback holds the last reference.
    std::latch openAgain(1);
    std::promise<void> gone;
    auto last = std::make_shared<std::shared_ptr<SynthQueue>>();
    *last = makeQueue(1, [&](const S2Params& params) {
        openAgain.wait();
        return audioOf(params.text);
    });
    EXPECT_EQ(submitNow(**last, "holding", TtsPriority::normal, 1,
                        [last, &gone](PcmBuffer, std::int64_t) {
                            last->reset();
                            gone.set_value();
                        })
                  .code,
              TtsErrorCode::timeout);
    openAgain.count_down();
    gone.get_future().get();
    EXPECT_EQ(*last, nullptr);
}

// Deadlines that fall on the very moment of settling: each line is answered once, by its caller's
// return or by the late callback.
TEST(SynthQueue, EachLineIsAnsweredExactlyOnce) {
    constexpr int threads = 4;
    constexpr int linesEach = 1500;
    std::atomic<int> taken{0};
    std::atomic<int> timedOut{0};
    std::atomic<int> late{0};
    std::vector<std::atomic<int>> answers(threads * linesEach);
    {
        const auto queue = makeQueue(1000000, [](const S2Params& params) {
            const auto until =
                std::chrono::steady_clock::now() + std::chrono::microseconds(params.seed);
            while (std::chrono::steady_clock::now() < until) std::this_thread::yield();
            return PcmBuffer{{static_cast<float>(params.topK)}, 8000};
        });
        const auto submitMany = [&](int thread) {
            for (int i = 0; i < linesEach; ++i) {
                const int number = thread * linesEach + i;
                S2Params params;
                params.topK = number;
                params.seed = i % 4 == 0 ? 900 + i % 200 : 20;
                try {
                    const SynthOutcome outcome =
                        queue->submit(params, VoiceHint(), TtsPriority::normal, i % 3,
                                      [&, number](const PcmBuffer& pcm, std::int64_t) {
                                          EXPECT_EQ(pcm.data, std::vector{float(number)});
                                          ++answers[static_cast<std::size_t>(number)];
                                          ++late;
                                      });
                    EXPECT_EQ(outcome.pcm.data, std::vector{float(number)});
                    ++answers[static_cast<std::size_t>(number)];
                    ++taken;
                } catch (const TtsError& error) {
                    EXPECT_EQ(error.code, TtsErrorCode::timeout);
                    ++timedOut;
                }
            }
        };
        std::vector<std::thread> callers;
        for (int thread = 0; thread < threads; ++thread) callers.emplace_back(submitMany, thread);
        for (std::thread& caller : callers) caller.join();
        // Everything that was left behind stands before this line.
        EXPECT_EQ(submitNow(*queue, "").code, TtsErrorCode::none);
        // Not inside the line before, so that the destructor waits for the worker's end.
        while (queue->busy()) std::this_thread::yield();
    }
    for (const auto& count : answers) EXPECT_EQ(count, 1);
    EXPECT_EQ(late, timedOut);
    EXPECT_EQ(taken + late, threads * linesEach);
}

}  // namespace
}  // namespace zepho
