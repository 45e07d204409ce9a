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

using Ending = std::pair<TtsErrorCode, std::string>;  // no error, or its code and message

HttpReply answered(int status, Bytes body = {}) {
    HttpReply response;
    response.status = status;
    response.body = std::move(body);
    return response;
}

HttpReply broken(HttpFailure failure) {
    HttpReply response;
    response.failure = failure;
    response.error = "it \xFF broke";
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
        world.childEnds = [this](milliseconds within) { return !lives || diesWithin <= within; };
        world.childGone = [this] { ++gone; };
        AppLog::clear();
    }

    Ending run(HttpReply last) {
        answers.push_back(std::move(last));
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
    std::deque<HttpReply> answers;  // in order; the last one stays
    bool lives = true;
    milliseconds diesWithin{1'000'000};

    PcmBuffer result;
    std::vector<milliseconds> timeouts;  // of the attempts
    std::string body;
    int sleeps = 0;
    int gone = 0;

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
    script.answers = {answered(503), answered(503)};
    EXPECT_EQ(script.run(answered(200, buildWav({{0.5F, -0.5F, 0.25F}, 24000}, 1))).first,
              TtsErrorCode::none);
    EXPECT_EQ(script.result.sampleRate, 24000);
    EXPECT_EQ(script.result.data.size(), 3U);
    EXPECT_EQ(script.sleeps, 2);
    EXPECT_EQ(test::countLogLines("engine busy with an earlier request"), 1);
    EXPECT_EQ(script.timeouts,
              (std::vector<milliseconds>{milliseconds(900'000), milliseconds(899'000),
                                         milliseconds(898'000)}));
}

TEST(S2Exchange, limitsEachAttemptAndGivesUpOnABusyProcess) {
    const Ending busy{TtsErrorCode::timeout, busySentence};
    Script script;
    script.plan.timeoutMs = 1000;
    EXPECT_EQ(script.run(answered(503)), busy);
    EXPECT_EQ(script.timeouts, (std::vector<milliseconds>(2, milliseconds(5000))))
        << "at the first look after the deadline";
    Script ended;
    ended.lives = false;
    EXPECT_EQ(ended.run(answered(503)), busy);
    EXPECT_EQ(ended.sleeps, 0);
    Script limited;
    limited.plan.attemptLimitMs = 60'000;
    (void)limited.run(answered(200));
    limited.plan.attemptLimitMs = 10;
    (void)limited.run(answered(200));
    EXPECT_EQ(limited.timeouts,
              (std::vector<milliseconds>{milliseconds(60'000), milliseconds(5000)}));
}

TEST(S2Exchange, tellsADeadProcessFromABrokenConnection) {
    const Ending alive{TtsErrorCode::engineFailed,
                       "跟推理进程通信失败:it \uFFFD broke(日志 /l/s2.log)"};
    const Ending dead{TtsErrorCode::engineNotConnected, goneSentence};
    const struct {
        HttpFailure failure;
        bool lives;
        int diesWithinMs;
        const Ending& ending;
    } rows[] = {
        {HttpFailure::transport, true, 1'000'000, alive}, {HttpFailure::transport, true, 300, dead},
        {HttpFailure::transport, false, 0, dead},         {HttpFailure::timedOut, true, 300, alive},
        {HttpFailure::timedOut, false, 0, dead},
    };
    for (const auto& row : rows) {
        Script script;
        script.lives = row.lives;
        script.diesWithin = milliseconds(row.diesWithinMs);
        EXPECT_EQ(script.run(broken(row.failure)), row.ending);
        EXPECT_EQ(script.gone, row.ending == dead ? 1 : 0);
        EXPECT_EQ(script.timeouts.size(), 1U) << "a failed line is not sent again";
    }
}

TEST(S2Exchange, quotesAnUnexpectedAnswer) {
    const auto sentenceFor = [](int status, const char* body) {
        const Ending ending = Script().run(answered(status, toBytes(body)));
        EXPECT_EQ(ending.first, TtsErrorCode::engineFailed);
        return ending.second;
    };
    EXPECT_EQ(sentenceFor(500, "model error \xFF!"), "推理进程返回 500:model error \uFFFD!");
    EXPECT_EQ(sentenceFor(0, ""), "推理进程返回 0:");
    EXPECT_EQ(sentenceFor(200, "no sound"),
              "the 8 bytes returned by the inference process are not a recognisable WAV");
}

}  // namespace
}  // namespace zepho
