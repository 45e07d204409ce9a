// The exchange with a scripted process and a clock that moves only when the exchange waits.
#include <deque>

#include <gtest/gtest.h>

#include "core/base/TtsError.h"
#include "core/diag/AppLog.h"
#include "core/engine/S2Exchange.h"
#include "tests/engine/S2TestSupport.h"

namespace zepho {
namespace {

using std::chrono::milliseconds;

HttpReply answered(int status, Bytes body = {}) {
    HttpReply response;
    response.status = status;
    response.body = std::move(body);
    return response;
}

HttpReply broken(HttpFailure failure) {
    HttpReply response;
    response.failure = failure;
    response.error = "it broke";
    return response;
}

class Script {
public:
    Script() {
        plan.port = 4711;
        plan.timeoutMs = 900'000;
        plan.attemptLimitMs = 900'000;
        plan.logPath = "/l/s2.log";
        world.send = [this](const HttpCall& request) { return answer(request); };
        world.now = [this] { return clock; };
        world.sleep = [this](milliseconds time) {
            ++sleeps;
            clock += time;
        };
        world.childRuns = [this] { return lives; };
        world.childEnds = [this](milliseconds within) {
            waited = within;
            return !lives || diesWithin <= within;
        };
        world.childGone = [this] { ++gone; };
        AppLog::clear();
    }

    // What the line ends with: no error, or the code and the message.
    std::pair<TtsErrorCode, std::string> run() {
        S2Params params;
        params.text = "hello";
        body.clear();
        try {
            result = exchangeLine(params, plan, world);
        } catch (const TtsError& error) {
            return {error.code, error.message};
        }
        return {TtsErrorCode::none, {}};
    }

    S2ExchangePlan plan;
    S2ExchangeWorld world;
    // The answers in order; the last one stays. Each takes `eachTakes`.
    std::deque<HttpReply> answers;
    milliseconds eachTakes{0};
    bool lives = true;
    milliseconds diesWithin{1'000'000};

    PcmBuffer result;
    std::vector<milliseconds> timeouts;  // of the attempts
    std::string body;
    int sleeps = 0;
    int gone = 0;
    milliseconds waited{-1};

private:
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
        clock += eachTakes;
        HttpReply response = answers.front();
        if (answers.size() > 1) answers.pop_front();
        return response;
    }

    S2ExchangeWorld::Clock::time_point clock{std::chrono::hours(1)};
};

constexpr const char* busySentence =
    "The engine is still busy — it synthesizes one line at a time, and the previous one has not "
    "finished.\nWait for it to finish and try again, or raise the synthesis timeout in Settings.";
constexpr const char* goneSentence =
    "the inference process is gone (crashed or killed); it is restarting automatically, try again "
    "in a few seconds.\n原因看 /l/s2.log";

TEST(S2Exchange, waitsWhileTheProcessIsBusyAndTakesTheWavAsItComes) {
    Script script;
    PcmBuffer pcm;
    pcm.sampleRate = 24000;
    pcm.data = {0.5F, -0.5F, 0.25F};
    script.answers = {answered(503), answered(503), answered(200, buildWav(pcm, 1))};
    EXPECT_EQ(script.run().first, TtsErrorCode::none);
    EXPECT_EQ(script.result.sampleRate, 24000);
    EXPECT_EQ(script.result.data.size(), 3U);
    EXPECT_EQ(script.sleeps, 2);
    EXPECT_EQ(test::countLogLines("engine busy with an earlier request"), 1);
    EXPECT_EQ(script.timeouts,
              (std::vector<milliseconds>{milliseconds(900'000), milliseconds(899'000),
                                         milliseconds(898'000)}));
}

TEST(S2Exchange, givesUpOnABusyProcessAtTheFirstLookAfterTheDeadline) {
    Script script;
    script.plan.timeoutMs = 1000;
    script.answers = {answered(503)};
    EXPECT_EQ(script.run(), std::pair(TtsErrorCode::timeout, std::string(busySentence)));
    EXPECT_EQ(script.timeouts, (std::vector<milliseconds>(2, milliseconds(5000))));

    Script ended;
    ended.lives = false;
    ended.answers = {answered(503)};
    EXPECT_EQ(ended.run(), std::pair(TtsErrorCode::timeout, std::string(busySentence)));
    EXPECT_EQ(ended.sleeps, 0);
}

TEST(S2Exchange, limitsEachAttemptToTheSessionsTimeout) {
    Script script;
    script.plan.attemptLimitMs = 60'000;
    script.answers = {answered(200)};
    script.run();
    script.plan.attemptLimitMs = 10;
    script.run();
    EXPECT_EQ(script.timeouts,
              (std::vector<milliseconds>{milliseconds(60'000), milliseconds(5000)}));
}

TEST(S2Exchange, tellsADeadProcessFromABrokenConnection) {
    const std::string alive = "跟推理进程通信失败:it broke(日志 /l/s2.log)";
    struct Row {
        HttpFailure failure;
        bool lives;
        int diesWithinMs;
        TtsErrorCode code;
    };
    for (const Row& row : {
             Row{HttpFailure::transport, true, 1'000'000, TtsErrorCode::engineFailed},
             Row{HttpFailure::transport, true, 300, TtsErrorCode::engineNotConnected},
             Row{HttpFailure::transport, false, 0, TtsErrorCode::engineNotConnected},
             Row{HttpFailure::timedOut, true, 300, TtsErrorCode::engineFailed},
             Row{HttpFailure::timedOut, false, 0, TtsErrorCode::engineNotConnected},
         }) {
        Script script;
        script.lives = row.lives;
        script.diesWithin = milliseconds(row.diesWithinMs);
        script.answers = {broken(row.failure)};
        const bool dead = row.code == TtsErrorCode::engineNotConnected;
        EXPECT_EQ(script.run(), std::pair(row.code, dead ? std::string(goneSentence) : alive));
        EXPECT_EQ(script.gone, dead ? 1 : 0);
        EXPECT_EQ(script.timeouts.size(), 1U) << "a failed line is not sent again";
    }
}

TEST(S2Exchange, quotesWordsThatAreNoText) {
    Script script;
    script.answers = {broken(HttpFailure::transport)};
    script.answers.front().error = "it \xFF broke";
    EXPECT_EQ(script.run().second, "跟推理进程通信失败:it \uFFFD broke(日志 /l/s2.log)");
}

TEST(S2Exchange, quotesAnUnexpectedAnswer) {
    Script script;
    script.answers = {answered(500, toBytes("model error \xFF!"))};
    EXPECT_EQ(script.run(), std::pair(TtsErrorCode::engineFailed,
                                      std::string("推理进程返回 500:model error \uFFFD!")));
    script.answers = {answered(0)};
    EXPECT_EQ(script.run(), std::pair(TtsErrorCode::engineFailed, std::string("推理进程返回 0:")));
    script.answers = {answered(200, toBytes("no sound"))};
    EXPECT_EQ(script.run(),
              std::pair(TtsErrorCode::engineFailed,
                        std::string("the 8 bytes returned by the inference process are not a "
                                    "recognisable WAV")));
}

}  // namespace
}  // namespace zepho
