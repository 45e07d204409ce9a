// The exchange with a scripted process and a clock that moves only when the exchange waits.
#include <deque>

#include <gtest/gtest.h>

#include "core/base/TtsError.h"
#include "core/engine/S2Exchange.h"
#include "tests/support/Watching.h"

namespace zepho {
namespace {

using std::chrono::milliseconds;
using Times = std::vector<milliseconds>;

HttpReply answered(int status, const Bytes& body = {}) {
    return {HttpFailure::none, {}, status, body};
}

// One line and what the process and the clock do meanwhile.
struct Script {
    explicit Script(std::deque<HttpReply> given) : answers(std::move(given)) {}

    // What the line ends with: no error, or the code and the message.
    std::pair<TtsErrorCode, std::string> run() {
        S2ExchangeWorld world;
        world.send = [this](const HttpCall& request) { return answer(request); };
        world.now = [this] { return clock; };
        world.sleep = [this](milliseconds time) { clock += time; };
        world.childRuns = [this] { return lives; };
        world.childEnds = [this](milliseconds within) { return !lives || diesWithin <= within; };
        world.childGone = [this] { ++gone; };
        AppLog::clear();
        S2Params params;
        params.text = "hello";
        try {
            result = exchangeLine(params, plan, world);
        } catch (const TtsError& error) {
            return {error.code, error.message};
        }
        return {TtsErrorCode::none, {}};
    }
    HttpReply answer(const HttpCall& request) {
        EXPECT_EQ(request.url, "http://127.0.0.1:4711/generate");
        EXPECT_EQ(request.method, "POST");
        EXPECT_TRUE(request.direct);
        const std::string sent(asText(request.body));
        if (body.empty()) body = sent;
        EXPECT_EQ(sent, body) << "the body changed between attempts";
        EXPECT_EQ(request.headers.at(0),
                  "Content-Type: multipart/form-data; boundary=" + sent.substr(2, 41));
        timeouts.push_back(request.timeout);
        HttpReply response = answers.front();
        if (answers.size() > 1) answers.pop_front();
        return response;
    }

    std::deque<HttpReply> answers;  // in order; the last one stays
    S2ExchangePlan plan{4711, 900'000, 900'000, "/l/s2.log", {}};
    bool lives = true;
    milliseconds diesWithin{1'000'000};
    S2ExchangeWorld::Clock::time_point clock{std::chrono::hours(1)};
    PcmBuffer result;
    Times timeouts;  // of the attempts
    std::string body;
    int gone = 0;
};

TEST(S2Exchange, waitsWhileTheProcessIsBusyAndTakesTheWavAsItComes) {
    Script script(
        {answered(503), answered(503), answered(200, buildWav({{0.5F, -0.5F, 0.25F}, 24000}, 1))});
    EXPECT_EQ(script.run().first, TtsErrorCode::none);
    EXPECT_EQ(script.result.sampleRate, 24000);
    EXPECT_EQ(script.result.data.size(), 3U);
    EXPECT_EQ(test::countLogLines("engine busy with an earlier request"), 1);
    EXPECT_EQ(script.timeouts,
              (Times{milliseconds(900'000), milliseconds(899'000), milliseconds(898'000)}));
}

TEST(S2Exchange, limitsTheLineAndEachAttempt) {
    const std::pair<TtsErrorCode, std::string> stillBusy{
        TtsErrorCode::timeout,
        "The engine is still busy — it synthesizes one line at a time, and the previous one has "
        "not finished.\nWait for it to finish and try again, or raise the synthesis timeout in "
        "Settings."};
    const struct {
        std::int64_t timeoutMs, attemptLimitMs;
        bool lives;
        Times timeouts;
    } rows[] = {
        {1000, 900'000, true, {milliseconds(5000), milliseconds(5000)}},
        {900'000, 60'000, false, {milliseconds(60'000)}},
        {900'000, 10, false, {milliseconds(5000)}},
        {INT64_MAX, INT64_MAX, false, {std::chrono::hours(366 * 24)}},
    };
    for (const auto& row : rows) {
        Script script({answered(503)});
        script.plan.timeoutMs = row.timeoutMs;
        script.plan.attemptLimitMs = row.attemptLimitMs;
        script.lives = row.lives;
        EXPECT_EQ(script.run(), stillBusy);
        EXPECT_EQ(script.timeouts, row.timeouts);
    }
}

TEST(S2Exchange, tellsADeadProcessFromABrokenConnection) {
    const std::string alive = "跟推理进程通信失败:it \uFFFD broke(日志 /l/s2.log)";
    const std::string dead =
        "the inference process is gone (crashed or killed); it is restarting automatically, try "
        "again in a few seconds.\n原因看 /l/s2.log";
    const struct {
        HttpFailure failure;
        bool lives;
        int diesWithinMs;
        bool gone;
    } rows[] = {
        {HttpFailure::transport, true, 1'000'000, false}, {HttpFailure::transport, true, 300, true},
        {HttpFailure::transport, false, 0, true},         {HttpFailure::timedOut, true, 300, false},
        {HttpFailure::timedOut, false, 0, true},
    };
    for (const auto& row : rows) {
        Script script({{row.failure, "it \xFF broke", 0, {}}});
        script.lives = row.lives;
        script.diesWithin = milliseconds(row.diesWithinMs);
        EXPECT_EQ(script.run(), row.gone ? std::pair(TtsErrorCode::engineNotConnected, dead)
                                         : std::pair(TtsErrorCode::engineFailed, alive));
        EXPECT_EQ(script.gone, row.gone ? 1 : 0);
        EXPECT_EQ(script.timeouts.size(), 1U) << "a failed line is not sent again";
    }
}

TEST(S2Exchange, quotesAnUnexpectedAnswer) {
    const std::pair<HttpReply, std::string> rows[] = {
        {answered(500, toBytes("model error \xFF!")), "推理进程返回 500:model error \uFFFD!"},
        {answered(0), "推理进程返回 0:"},
        {answered(200, toBytes("no sound")),
         "the 8 bytes returned by the inference process are not a recognisable WAV"},
    };
    for (const auto& [answer, message] : rows)
        EXPECT_EQ(Script({answer}).run(), std::pair(TtsErrorCode::engineFailed, message));
}

}  // namespace
}  // namespace zepho
