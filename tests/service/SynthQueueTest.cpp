#include <atomic>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "core/diag/AppLog.h"
#include "core/service/SynthQueue.h"
#include "tests/support/ScriptedEngine.h"

namespace zepho {
namespace {

constexpr std::int64_t plenty = 60000;

// Speaks as a function tells.
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

std::shared_ptr<SynthQueue> makeQueue(std::int64_t limit, TestEngine::Speak speak) {
    auto engine = std::make_shared<TestEngine>(std::move(speak));
    return std::make_shared<SynthQueue>(limit, [engine] { return engine; });
}

// What a submit() ended in: the error, or one without a code.
TtsError submitNow(SynthQueue& queue, const std::string& text,
                   TtsPriority priority = TtsPriority::normal, std::int64_t timeoutMs = plenty,
                   LateCallback onLate = {}) {
    S2Params params;
    params.text = text;
    try {
        (void)queue.submit(params, VoiceHint(), priority, timeoutMs, std::move(onLate));
        return {TtsErrorCode::none, ""};
    } catch (const TtsError& error) {
        return error;
    }
}

// A queue whose engine holds each line until it is let out; the first one is inside already.
class GatedSynthQueue : public testing::Test {
protected:
    GatedSynthQueue() {
        AppLog::clear();
        engine->closeGate();
        submitBehind("occupying");
        engine->waitForCalls(1);
    }
    ~GatedSynthQueue() override { engine->openGate(); }

    // Submits on a thread of its own and returns when the line stands in the queue or runs.
    void submitBehind(const std::string& text, TtsPriority priority = TtsPriority::normal) {
        endings.push_back(std::async(std::launch::async, [this, text, priority] {
            return submitNow(*queue, text, priority);
        }));
        const auto held = static_cast<std::int64_t>(endings.size());
        while (queue->depth() + (queue->busy() ? 1 : 0) < held) std::this_thread::yield();
    }
    std::vector<std::string> spoken() const {
        std::vector<std::string> texts;
        for (const S2Params& line : engine->calls()) texts.push_back(line.text);
        return texts;
    }

    std::shared_ptr<test::ScriptedEngine> engine = std::make_shared<test::ScriptedEngine>();
    std::shared_ptr<SynthQueue> queue =
        std::make_shared<SynthQueue>(3, [engine = engine] { return engine; });
    std::vector<std::future<TtsError>> endings;
};

TEST_F(GatedSynthQueue, LimitCountsWaitingLinesAndHighPriorityOvertakesThem) {
    EXPECT_EQ(queue->depth(), 0) << "the line that runs does not count";
    submitBehind("1");
    submitBehind("2");
    submitBehind("high", TtsPriority::high);
    const TtsError refused = submitNow(*queue, "refused", TtsPriority::high);
    EXPECT_EQ(refused.code, TtsErrorCode::queueFull);
    EXPECT_EQ(refused.message, "the synthesis queue is full (3 waiting), try again shortly");
    // A lower limit refuses the next line and leaves those that wait.
    queue->limit = 1;
    EXPECT_EQ(submitNow(*queue, "refused").message,
              "the synthesis queue is full (1 waiting), try again shortly");
    EXPECT_EQ(queue->depth(), 3);
    queue->limit = 5;
    submitBehind("3");
    submitBehind("high 2", TtsPriority::high);
    engine->openGate();
    for (auto& ending : endings) EXPECT_EQ(ending.get().code, TtsErrorCode::none);
    EXPECT_EQ(spoken(), (std::vector<std::string>{"occupying", "high", "high 2", "1", "2", "3"}));
}

TEST_F(GatedSynthQueue, AbandonedLinesRunLaterAndCallBackOnceUnlessTheyFail) {
    std::promise<std::size_t> late;
    const TtsError left =
        submitNow(*queue, "given up", TtsPriority::normal, 1, [&](const PcmBuffer& pcm, auto) {
            EXPECT_TRUE(queue->busy());
            // A second call would throw, and show in the log.
            late.set_value(pcm.data.size());
        });
    EXPECT_EQ(left.code, TtsErrorCode::timeout);
    EXPECT_EQ(left.message, "the backend produced no audio after 1 ms");
    submitNow(*queue, "failing", TtsPriority::normal, 0, [](auto&&, auto) { ADD_FAILURE(); });
    submitNow(*queue, "unlucky", TtsPriority::normal, 0,
              [](auto&&, auto) { throw std::runtime_error("disk on fire"); });
    // They still take up their places.
    EXPECT_EQ(submitNow(*queue, "one too many").code, TtsErrorCode::queueFull);

    engine->letOut(2);
    EXPECT_EQ(late.get_future().get(), test::toneOf(engine->toneMs, 1).data.size());
    engine->waitForCalls(3);
    engine->failing = true;
    engine->letOut(1);
    engine->waitForCalls(4);
    engine->failing = false;
    engine->openGate();
    EXPECT_EQ(submitNow(*queue, "next").code, TtsErrorCode::none);
    EXPECT_EQ(spoken(),
              (std::vector<std::string>{"occupying", "given up", "failing", "unlucky", "next"}));
    const auto lines = AppLog::snapshot();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].text.find("std::runtime_error: disk on fire"), std::string::npos);
}

TEST_F(GatedSynthQueue, ShutdownDropsWaitingLinesAndFinishesTheRunningOne) {
    submitBehind("dropped");
    submitBehind("dropped", TtsPriority::high);
    queue->shutdown();
    queue->shutdown();
    // The running line is still held at the gate while the others end.
    for (std::size_t waiting = 1; waiting < endings.size(); ++waiting) {
        const TtsError dropped = endings[waiting].get();
        EXPECT_EQ(dropped.code, TtsErrorCode::engineNotConnected);
        EXPECT_EQ(dropped.message, "the service is shutting down; this request was dropped");
    }
    EXPECT_EQ(queue->depth(), 0);
    // Nothing is refused afterwards, and nothing is spoken.
    EXPECT_EQ(submitNow(*queue, "too late", TtsPriority::normal, 20).code, TtsErrorCode::timeout);
    engine->openGate();
    EXPECT_EQ(endings[0].get().code, TtsErrorCode::none);
    EXPECT_EQ(submitNow(*queue, "too late", TtsPriority::normal, 20).code, TtsErrorCode::timeout);
    EXPECT_EQ(spoken(), std::vector<std::string>{"occupying"});
}

TEST(SynthQueue, FailuresReachTheCallerAndTheWorkerGoesOn) {
    AppLog::clear();
    auto engine = std::make_shared<TestEngine>([](const S2Params& params) -> PcmBuffer {
        if (params.text == "known") throw TtsError(TtsErrorCode::badAudio, "not audio");
        if (params.text == "standard") throw std::runtime_error("out of paper");
        if (params.text == "odd") throw 42;
        return {};
    });
    SynthQueue queue(9, [&]() -> std::shared_ptr<TtsEngine> { return engine; });
    const struct {
        const char* text;
        TtsErrorCode code;
        const char* message;
    } rows[] = {
        {"known", TtsErrorCode::badAudio, "not audio"},
        {"standard", TtsErrorCode::engineFailed, "std::runtime_error: out of paper"},
        {"odd", TtsErrorCode::engineFailed, "unknown type: not a standard exception"},
        {"empty audio is the caller's matter", TtsErrorCode::none, ""},
    };
    for (const auto& [text, code, message] : rows) {
        const TtsError ending = submitNow(queue, text);
        EXPECT_EQ(ending.code, code) << text;
        EXPECT_EQ(ending.message, message);
    }
    engine.reset();
    EXPECT_EQ(submitNow(queue, "nobody").message, "no engine available");
    const auto lines = AppLog::snapshot();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text,
              "unexpected exception on the synthesis thread: std::runtime_error: out of paper");
}

TEST(SynthQueue, DroppingTheLastReferenceNeverWaitsForTheEngine) {
    // Idle: the worker has ended when the destructor returns.
    makeQueue(1, [](const S2Params&) { return PcmBuffer(); }).reset();

    // Inside the engine, where a line that its caller has left goes on by itself; and on the worker
    // itself, in a late callback that holds the last reference.
    for (const bool onTheWorker : {false, true}) {
        const auto engine = std::make_shared<test::ScriptedEngine>();
        engine->closeGate();
        std::promise<void> late;
        auto last = std::make_shared<std::shared_ptr<SynthQueue>>(
            std::make_shared<SynthQueue>(1, [engine] { return engine; }));
        submitNow(**last, "slow", TtsPriority::normal, 1, [last, &late](auto&&, auto) {
            last->reset();
            late.set_value();
        });
        engine->waitForCalls(1);
        if (!onTheWorker) last->reset();
        engine->openGate();
        late.get_future().get();
        EXPECT_EQ(*last, nullptr);
    }
}

// At the very moment of its deadline a line is either left or answered, never both and never neither.
TEST(SynthJob, IsNotLeftOnceItIsSettled) {
    int late = 0;
    SynthJob job({}, {}, TtsPriority::normal, [&](auto&&, auto) { ++late; });
    job.succeed(test::toneOf(10, 1), 1);
    EXPECT_FALSE(job.abandon());
    EXPECT_FALSE(job.takeOutcome().pcm.isEmpty());
    EXPECT_EQ(late, 0);
}

// Deadlines that fall on the very moment of settling: each line is answered once, by its caller's
// return or by the late callback.
TEST(SynthQueue, EachLineIsAnsweredExactlyOnce) {
    constexpr int threads = 4;
    constexpr int linesEach = 1500;
    std::vector<std::atomic<int>> answers(std::size_t{threads} * linesEach);
    const auto queue = makeQueue(1000000, [](const S2Params& params) {
        const auto until =
            std::chrono::steady_clock::now() + std::chrono::microseconds(params.seed);
        while (std::chrono::steady_clock::now() < until) std::this_thread::yield();
        return PcmBuffer{{static_cast<float>(params.topK)}, 8000};
    });
    const auto count = [&](const PcmBuffer& pcm, int line) {
        EXPECT_EQ(pcm.data, std::vector{static_cast<float>(line)});
        ++answers[static_cast<std::size_t>(line)];
    };
    const auto submitMany = [&](int thread) {
        for (int i = 0; i < linesEach; ++i) {
            S2Params params;
            params.topK = thread * linesEach + i;
            params.seed = i % 4 == 0 ? 900 + i % 200 : 20;
            const LateCallback onLate = [&, line = params.topK](const PcmBuffer& pcm, auto) {
                count(pcm, line);
            };
            try {
                count(queue->submit(params, {}, TtsPriority::normal, i % 3, onLate).pcm,
                      params.topK);
            } catch (const TtsError& error) {
                EXPECT_EQ(error.code, TtsErrorCode::timeout);
            }
        }
    };
    std::vector<std::thread> callers;
    for (int thread = 0; thread < threads; ++thread) callers.emplace_back(submitMany, thread);
    for (std::thread& caller : callers) caller.join();
    // Everything that was left behind stands before this line.
    EXPECT_EQ(submitNow(*queue, "").code, TtsErrorCode::none);
    // Not inside a line, so that the destructor waits for the worker's end.
    while (queue->busy()) std::this_thread::yield();
    for (const auto& answer : answers) EXPECT_EQ(answer, 1);
}

}  // namespace
}  // namespace zepho
