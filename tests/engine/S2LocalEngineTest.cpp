// The supervision with a real child: tests/tools/FakeS2.cpp.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <thread>

#include <fcntl.h>
#include <sys/wait.h>

#include "tests/engine/S2TestSupport.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

using std::chrono::milliseconds;
using test::countLogLines;
using test::eventually;
using Words = std::vector<std::string>;

int recordedPid() {
    const std::string text = test::readText(ZEPHOPaths::enginePidFile());
    return text.empty() ? 0 : std::stoi(text);
}

class S2Engine : public test::S2Test {
protected:
    static PcmBuffer speak(S2LocalEngine& engine) {
        S2Params params;
        params.text = "four";
        params.voiceProfile = "/v/p.bin";
        PcmBuffer pcm = engine.synthesize(params, VoiceHint());
        EXPECT_EQ(pcm.sampleRate, 22050);
        EXPECT_EQ(pcm.data.size(), 4U * 441U);
        return pcm;
    }
    // Nothing is left, no zombie either.
    static void expectNoChild(const S2LocalEngine& engine, S2EngineState state) {
        EXPECT_EQ(engine.currentState(), state);
        EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
        EXPECT_EQ(errno, ECHILD);
    }
    static void expectStopped(S2LocalEngine& engine) {
        engine.stop();
        expectNoChild(engine, S2EngineState::missing);
        EXPECT_FALSE(fileExists(ZEPHOPaths::enginePidFile()));
    }
};

TEST_F(S2Engine, startsSpeaksAndStops) {
    const auto engine = readyEngine();
    EXPECT_EQ(engine->modelPath(), root + "models/voice.gguf");
    EXPECT_TRUE(engine->checkHealth().ready);
    EXPECT_EQ(engine->checkHealth().detail.find("voice.gguf,端口 "), 0U);
    EXPECT_EQ(engine->port(), tuning.firstPort);
    speak(*engine);
    EXPECT_EQ(countLogLines("no reference audio"), 0);
    EXPECT_NE(test::readText(fakeFile("fake-s2.request")).find("name=\"voice\""),
              std::string::npos);
    const int pid = reportedNumber("pid");
    EXPECT_EQ(recordedPid(), pid);
    EXPECT_TRUE(test::processLives(pid));
    expectStopped(*engine);
    EXPECT_EQ(engine->checkHealth().detail, "stopped");
    EXPECT_EQ(refusal(*engine),
              std::pair(TtsErrorCode::engineNotConnected, std::string("引擎还没装齐:bin 里缺 ")));

    behave("port=" + std::to_string(tuning.ownPort));
    startAndWait(*engine);
    EXPECT_EQ(engine->port(), tuning.ownPort);
    speak(*engine);
}

TEST_F(S2Engine, givesTheChildNothingOfItsOwn) {
    const int leak = ::open("/dev/null", O_RDONLY);  // not closed on exec
    auto* const before = ::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    EngineOptions options;
    options.extraArgs = "--more  words";
    const auto engine = readyEngine(options);
    ::pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    ::signal(SIGPIPE, before);
    ::close(leak);

    EXPECT_EQ(reported("arg").back(), "words");
    const std::string log = S2LocalEngine::logPath();
    Words descriptors = reported("fd");
    std::sort(descriptors.begin(), descriptors.end());
    EXPECT_EQ(descriptors, (Words{"0 /dev/null", "1 " + log, "2 " + log}));
    EXPECT_EQ(reported("cwd"), Words{std::filesystem::canonical(root + "engine").string()});
    EXPECT_EQ(reported("pgid"), reported("pid"));
    EXPECT_EQ(reported("blocked"), Words{"0000000000000000"});
    // The C library keeps signals 32 and 33 for itself.
    EXPECT_EQ(std::stoull(reported("ignored").at(0), nullptr, 16) & ~0x180000000ULL, 0U);
}

TEST_F(S2Engine, tellsWhatItIsMissing) {
    std::filesystem::remove(root + "models/voice.gguf");
    S2LocalEngine engine({}, tuning);
    engine.start();
    EXPECT_EQ(engine.currentState(), S2EngineState::missing);
    EXPECT_EQ(engine.checkHealth().detail, "bin 里缺 models/*.gguf");
    EXPECT_EQ(refusal(engine).second, "引擎还没装齐:bin 里缺 models/*.gguf");
    EXPECT_EQ(refusal(engine, " \n　").first, TtsErrorCode::emptyText);

    const test::TempDir elsewhere;
    test::writeText(elsewhere.file("models/m.gguf"), "x");
    test::writeText(elsewhere.file("engine/s2"), "not a program");
    engine.setSearchRoot(elsewhere.path().substr(0, elsewhere.path().size() - 1));
    engine.start();
    std::string detail = engine.checkHealth().detail;
    EXPECT_EQ(detail.find("could not start the inference process: " + elsewhere.path() +
                          "engine/s2 (Permission denied"),
              0U)
        << detail;
    EXPECT_EQ(refusal(engine), std::pair(TtsErrorCode::engineFailed, detail));
    expectNoChild(engine, S2EngineState::failed);

    std::filesystem::remove(elsewhere.file("engine/s2"));
    std::filesystem::create_symlink(FAKE_S2, elsewhere.file("engine/s2"));
    startAndWait(engine);
    EXPECT_EQ(engine.modelPath(), elsewhere.file("models/m.gguf"));

    tuning.lastPort = tuning.firstPort - 1;
    S2LocalEngine crowded({}, tuning);
    crowded.setSearchRoot(elsewhere.path());
    crowded.start();
    EXPECT_EQ(crowded.currentState(), S2EngineState::failed);
    detail = crowded.checkHealth().detail;
    EXPECT_NE(detail.find(" are all taken — nowhere to put the"), std::string::npos) << detail;
}

TEST_F(S2Engine, doesNotRestartWhatDiesOrHangsOrIsStoppedWhileItLoads) {
    const auto end = ", log " + S2LocalEngine::logPath();
    const std::pair<std::string, std::string> rows[] = {
        {"die-at=start\ndie-signal=9",
         "the inference process exited (signal 9): not enough memory to start the engine." + end},
        {"die-at=start\ndie-exit=3", "the inference process exited (signal 3): (empty)" + end},
        {"never-ready=1", "等了 0 秒模型还没加载完,看 " + S2LocalEngine::logPath()},
    };
    for (const auto& [behaviour, detail] : rows) {
        behave(behaviour);
        if (behaviour == "never-ready=1") tuning.loadLimit = milliseconds(30);
        S2LocalEngine engine({}, tuning);
        engine.start();
        EXPECT_TRUE(waitForState(engine, S2EngineState::failed));
        EXPECT_EQ(engine.checkHealth().detail, detail);
        expectStopped(engine);
    }
    EXPECT_EQ(countLogLines("inference process started"), 3);

    tuning.loadLimit = std::chrono::hours(1);
    S2LocalEngine engine({}, tuning);
    engine.start();
    EXPECT_EQ(engine.checkHealth().detail.find("loading the model ("), 0U);
    const auto [code, message] = refusal(engine);
    EXPECT_EQ(code, TtsErrorCode::engineNotConnected);
    EXPECT_EQ(message.find("the model is still loading ("), 0U);
    expectStopped(engine);
}

TEST_F(S2Engine, leavesThePortOfAnotherServicesChildAloneWhileThatLoads) {
    behave("start-delay-ms=300");
    // Both at first: the second would take the child of the first for a leftover.
    S2LocalEngine one({}, tuning);
    S2LocalEngine other({}, tuning);
    one.start();
    // They report under one name in one directory.
    ASSERT_TRUE(eventually([&] { return reportedNumber("pid") != 0; }));
    startAndWait(other);
    EXPECT_TRUE(waitForState(one, S2EngineState::ready)) << one.checkHealth().detail;
    EXPECT_EQ(one.port(), tuning.firstPort);
    EXPECT_EQ(other.port(), tuning.firstPort + 1);
    behave("");
    speak(one);
    one.stop();
    speak(other);  // it has a child of its own
    EXPECT_EQ(countLogLines("inference process gone"), 0);
    startAndWait(one);
    EXPECT_EQ(one.port(), tuning.firstPort) << "given back, and had again";
}

TEST_F(S2Engine, staysUnloadedWhenThatCutsALineShortAndLoadsAgain) {
    const auto engine = readyEngine();
    behave("delay-ms=60000");
    std::pair<TtsErrorCode, std::string> outcome;
    std::thread speaker([&] { outcome = refusal(*engine); });
    EXPECT_TRUE(eventually([&] { return fileExists(fakeFile("fake-s2.request")); }));
    engine->unload();
    speaker.join();
    EXPECT_EQ(outcome.first, TtsErrorCode::engineNotConnected);
    EXPECT_TRUE(engine->isUnloaded());
    expectNoChild(*engine, S2EngineState::unloaded);
    EXPECT_EQ(engine->checkHealth().detail, "Model unloaded — memory released");
    const auto [code, message] = refusal(*engine);
    EXPECT_EQ(code, TtsErrorCode::engineNotConnected);
    EXPECT_EQ(message.find("The model is unloaded and this line is not in the cache.\n"), 0U);
    behave("");
    startAndWait(*engine);
    speak(*engine);
}

TEST_F(S2Engine, tellsAtOnceThatAChildDiedOverALine) {
    tuning.watchPoll = std::chrono::hours(1);
    const auto engine = readyEngine();
    behave("die-at=request\ndie-signal=11");
    const auto [code, message] = refusal(*engine);
    EXPECT_EQ(code, TtsErrorCode::engineNotConnected);
    EXPECT_EQ(message.find("the inference process is gone"), 0U);
    EXPECT_EQ(engine->currentState(), S2EngineState::loading);
    EXPECT_EQ(countLogLines("(voice: )"), 1);
    expectStopped(*engine);
}

TEST_F(S2Engine, restartsAChildThreeTimesAndThenGivesUp) {
    const auto engine = readyEngine();
    ::kill(recordedPid(), SIGKILL);
    for (int count = 1; count <= 3; ++count) {
        const std::string done = "restarted and ready (attempt " + std::to_string(count) + ")";
        ASSERT_TRUE(eventually([&] { return countLogLines(done) == 1; }));
        speak(*engine);
        EXPECT_EQ(engine->port(), tuning.firstPort) << "where it was before";
        ::kill(recordedPid(), SIGKILL);
    }
    EXPECT_TRUE(waitForState(*engine, S2EngineState::failed));
    EXPECT_EQ(engine->checkHealth().detail,
              "推理进程反复退出(3 次),不再自动重启 —— 看 " + S2LocalEngine::logPath());
    EXPECT_EQ(countLogLines("inference process gone (auto-restarted 3 time(s))"), 1);
    EXPECT_EQ(countLogLines("inference process started"), 4);
    expectNoChild(*engine, S2EngineState::failed);
    EXPECT_EQ(test::readText(S2LocalEngine::logPath()),
              "fake-s2 says this on stdout\nfake-s2 says this on stderr\n")
        << "the log is of the last child only";

    startAndWait(*engine);
    ::kill(recordedPid(), SIGKILL);
    EXPECT_TRUE(eventually([] { return countLogLines("ready (attempt 1)") == 2; }))
        << "a start counts from nothing";
}

TEST_F(S2Engine, endsAStubbornChildAndItsHelpers) {
    tuning.stopLimit = milliseconds(100);
    for (const char* how : {"ignore-term=1\ngrandchild=1", "grandchild=1"}) {
        behave(how);
        const auto engine = readyEngine();
        const int grandchild = reportedNumber("grandchild");
        ASSERT_TRUE(grandchild > 0 && test::processLives(grandchild));
        expectStopped(*engine);
        EXPECT_TRUE(eventually([&] { return !test::processLives(grandchild); })) << how;
    }
}

TEST_F(S2Engine, aFailedLineIsNotTheEndOfALivingChild) {
    tuning.lastAttempt = milliseconds(100);
    tuning.exitGrace = milliseconds(50);
    EngineOptions options;
    options.timeoutMs = 0;
    const auto engine = readyEngine(options);
    // The line's own time is over, the connection breaks, or the time of an attempt is over, which
    // is that of the start.
    const struct {
        std::string behaviour;
        std::int64_t timeoutMs;
        TtsErrorCode code;
    } rows[] = {
        {"busy=1000", 0, TtsErrorCode::timeout},
        {"hang-up=1", 600'000, TtsErrorCode::engineFailed},
        {"delay-ms=20000", 600'000, TtsErrorCode::engineFailed},
    };
    for (const auto& row : rows) {
        behave(row.behaviour);
        options.timeoutMs = row.timeoutMs;
        engine->configure(options);
        EXPECT_EQ(refusal(*engine).first, row.code) << row.behaviour;
        EXPECT_TRUE(engine->ready()) << "the child lives";
    }
}

TEST_F(S2Engine, keepsOneChildHoweverManyStartAndStopIt) {
    S2LocalEngine engine({}, tuning);
    std::vector<std::thread> callers;
    for (int caller = 0; caller < 4; ++caller)
        callers.emplace_back([&engine, caller] {
            for (int round = 0; round < 4; ++round) {
                engine.start();
                if (caller == 0) engine.stop();
                if (caller == 1) engine.unload();
                (void)engine.checkHealth();
            }
        });
    for (std::thread& caller : callers) caller.join();
    expectStopped(engine);

    startAndWait(engine);
    EXPECT_EQ(recordedPid(), reportedNumber("pid"));
    engine.stopForGood();
    engine.start();
    expectNoChild(engine, S2EngineState::missing);
}

}  // namespace
}  // namespace zepho
