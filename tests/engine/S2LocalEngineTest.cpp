// The supervision with a real child: tests/tools/FakeS2.cpp.
#include <csignal>
#include <filesystem>
#include <thread>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/config/ZEPHOPaths.h"
#include "core/platform/Files.h"
#include "tests/engine/S2TestSupport.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

using std::chrono::milliseconds;
using test::countLogLines;
using test::eventually;

bool hasNoChildren() {
    return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

int recordedPid() {
    const std::string text = test::readText(ZEPHOPaths::enginePidFile());
    return text.empty() ? 0 : std::stoi(text);
}

class S2Engine : public test::S2Test {
protected:
    static PcmBuffer speak(S2LocalEngine& engine, const std::string& text = "hello") {
        S2Params params;
        params.text = text;
        params.voiceProfile = "/v/p.bin";
        return engine.synthesize(params, VoiceHint());
    }
    std::vector<std::string> listOf(const std::string& key) const {
        std::vector<std::string> values;
        const auto entries = report();
        for (auto [it, end] = entries.equal_range(key); it != end; ++it)
            values.push_back(it->second);
        return values;
    }
};

TEST_F(S2Engine, startsSpeaksAndStops) {
    const auto engine = readyEngine();
    EXPECT_EQ(engine->modelPath(), root + "models/voice.gguf");
    const EngineHealth health = engine->checkHealth();
    EXPECT_TRUE(health.ready);
    EXPECT_EQ(health.backend, "fish-s2-pro (s2.cpp)");
    EXPECT_EQ(health.detail.find("voice.gguf,端口 " + std::to_string(tuning.firstPort)), 0U);
    EXPECT_EQ(countLogLines("port " + std::to_string(tuning.firstPort) + "): voice.gguf [cpu]"), 1);

    const PcmBuffer pcm = speak(*engine, "four");
    EXPECT_EQ(pcm.sampleRate, 22050);
    EXPECT_EQ(pcm.data.size(), 4U * 441U);
    EXPECT_EQ(countLogLines("no reference audio"), 0);
    EXPECT_NE(test::readText(fakeFile("fake-s2.request")).find("name=\"voice\""),
              std::string::npos);

    const int pid = reportedNumber("pid");
    EXPECT_EQ(recordedPid(), pid);
    EXPECT_TRUE(test::processLives(pid));
    EXPECT_EQ(test::readText(S2LocalEngine::logPath()),
              "fake-s2 says this on stdout\nfake-s2 says this on stderr\n");
    engine->stop();
    EXPECT_FALSE(test::processLives(pid));
    EXPECT_TRUE(hasNoChildren());
    EXPECT_FALSE(fileExists(ZEPHOPaths::enginePidFile()));
    EXPECT_EQ(engine->currentState(), S2EngineState::missing);
    EXPECT_EQ(engine->checkHealth().detail, "stopped");
    EXPECT_EQ(refusal(*engine),
              std::pair(TtsErrorCode::engineNotConnected, std::string("引擎还没装齐:bin 里缺 ")));
}

TEST_F(S2Engine, givesTheChildNothingOfItsOwn) {
    const int leak = ::open("/dev/null", O_RDONLY);  // not closed on exec
    struct sigaction ignore {};
    struct sigaction before {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, &before);
    sigset_t blocked;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ::sigaddset(&blocked, SIGUSR1);
    ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    EngineOptions options;
    options.extraArgs = "--more  words";
    const auto engine = readyEngine(options);
    ::pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    ::sigaction(SIGPIPE, &before, nullptr);
    ::close(leak);

    EXPECT_EQ(listOf("arg").back(), "words");
    const std::string log = S2LocalEngine::logPath();
    std::vector<std::string> descriptors = listOf("fd");
    std::sort(descriptors.begin(), descriptors.end());
    EXPECT_EQ(descriptors, (std::vector<std::string>{"0 /dev/null", "1 " + log, "2 " + log}));
    EXPECT_EQ(listOf("cwd"),
              std::vector<std::string>{std::filesystem::canonical(root + "engine").string()});
    EXPECT_EQ(listOf("pgid"), listOf("pid"));
    EXPECT_EQ(listOf("blocked"), std::vector<std::string>{"0000000000000000"});
    // The C library keeps signals 32 and 33 for itself.
    EXPECT_EQ(std::stoull(listOf("ignored").at(0), nullptr, 16) & ~0x180000000ULL, 0U);
}

TEST_F(S2Engine, namesWhatIsMissing) {
    std::filesystem::remove(root + "models/voice.gguf");
    S2LocalEngine engine({}, tuning);
    engine.start();
    EXPECT_EQ(engine.currentState(), S2EngineState::missing);
    EXPECT_EQ(engine.missingWhat(), "models/*.gguf");
    EXPECT_EQ(engine.checkHealth().detail, "bin 里缺 models/*.gguf");
    EXPECT_EQ(countLogLines("model files incomplete (missing models/*.gguf)"), 1);
    EXPECT_EQ(refusal(engine).second, "引擎还没装齐:bin 里缺 models/*.gguf");
    EXPECT_EQ(refusal(engine, " \n　").first, TtsErrorCode::emptyText);

    const test::TempDir elsewhere;
    std::filesystem::create_directory(elsewhere.file("engine"));
    std::filesystem::create_symlink(FAKE_S2, elsewhere.file("engine/s2"));
    test::writeText(elsewhere.file("models/m.gguf"), "x");
    engine.setSearchRoot(elsewhere.path().substr(0, elsewhere.path().size() - 1));
    engine.start();
    EXPECT_TRUE(waitForState(engine, S2EngineState::ready));
    EXPECT_EQ(engine.modelPath(), elsewhere.file("models/m.gguf"));
}

TEST_F(S2Engine, failsWithASentenceWhenTheChildCannotBeStarted) {
    std::filesystem::remove(root + "engine/s2");
    test::writeText(root + "engine/s2", "not a program");
    S2LocalEngine engine({}, tuning);
    engine.start();
    EXPECT_EQ(engine.currentState(), S2EngineState::failed);
    const std::string sentence =
        "could not start the inference process: " + root + "engine/s2 (Permission denied";
    EXPECT_EQ(engine.checkHealth().detail.find(sentence), 0U) << engine.checkHealth().detail;
    EXPECT_EQ(refusal(engine), std::pair(TtsErrorCode::engineFailed, engine.checkHealth().detail));
    EXPECT_EQ(countLogLines("[ERROR] s2: cannot start the inference process: Permission"), 1);

    tuning.lastPort = tuning.firstPort;
    const test::TakenPort taken(tuning.firstPort, true);
    S2LocalEngine crowded({}, tuning);
    crowded.start();
    EXPECT_EQ(crowded.currentState(), S2EngineState::failed);
    const std::string port = std::to_string(tuning.firstPort);
    EXPECT_EQ(crowded.checkHealth().detail, "ports " + port + ".." + port +
                                                " are all taken — nowhere to put the inference "
                                                "process");
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(S2Engine, doesNotRestartWhatDiesOrHangsWhileItLoads) {
    const std::string log = S2LocalEngine::logPath();
    const auto failure = [this](const std::string& behaviour) {
        behave(behaviour);
        S2LocalEngine engine({}, tuning);
        engine.start();
        EXPECT_TRUE(waitForState(engine, S2EngineState::failed));
        const std::string detail = engine.checkHealth().detail;
        engine.stop();
        EXPECT_TRUE(hasNoChildren());
        return detail;
    };
    EXPECT_EQ(failure("die-at=start\ndie-signal=9"),
              "the inference process exited (signal 9): not enough memory to start the engine., "
              "log " +
                  log);
    EXPECT_EQ(failure("die-at=start\ndie-exit=3"),
              "the inference process exited (signal 3): (empty), log " + log);
    EXPECT_EQ(countLogLines("inference process started"), 2);
    EXPECT_EQ(countLogLines("inference process exited with status 3; "), 1);
    tuning.loadLimit = milliseconds(30);
    EXPECT_EQ(failure("never-ready=1"), "等了 0 秒模型还没加载完,看 " + log);
}

TEST_F(S2Engine, stopsWhileItLoads) {
    behave("never-ready=1");
    S2LocalEngine engine({}, tuning);
    engine.start();
    EXPECT_EQ(engine.checkHealth().detail.find("loading the model ("), 0U);
    const auto [code, message] = refusal(engine);
    EXPECT_EQ(code, TtsErrorCode::engineNotConnected);
    EXPECT_EQ(message.find("the model is still loading ("), 0U);
    engine.stop();
    EXPECT_EQ(engine.currentState(), S2EngineState::missing);
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(S2Engine, findsAChildOnItsOwnPort) {
    behave("port=" + std::to_string(tuning.ownPort));
    const auto engine = readyEngine();
    EXPECT_EQ(engine->port(), tuning.ownPort);
    EXPECT_EQ(speak(*engine).sampleRate, 22050);
}

TEST_F(S2Engine, leavesThePortOfAnotherServicesChildAloneWhileThatLoads) {
    behave("start-delay-ms=300");
    // Both at first: the second would take the child of the first for a leftover.
    S2LocalEngine one({}, tuning);
    S2LocalEngine other({}, tuning);
    one.start();
    other.start();
    EXPECT_TRUE(waitForState(one, S2EngineState::ready)) << one.checkHealth().detail;
    EXPECT_TRUE(waitForState(other, S2EngineState::ready)) << other.checkHealth().detail;
    EXPECT_EQ(one.port(), tuning.firstPort);
    EXPECT_EQ(other.port(), tuning.firstPort + 1);
    behave("");
    EXPECT_EQ(speak(one).sampleRate, 22050);
    one.stop();
    EXPECT_EQ(speak(other).sampleRate, 22050) << "it has a child of its own";
    EXPECT_EQ(countLogLines("inference process gone"), 0);
    one.start();
    EXPECT_TRUE(waitForState(one, S2EngineState::ready));
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
    EXPECT_TRUE(hasNoChildren());
    EXPECT_EQ(engine->checkHealth().detail, "Model unloaded — memory released");
    const auto [code, message] = refusal(*engine);
    EXPECT_EQ(code, TtsErrorCode::engineNotConnected);
    EXPECT_EQ(message.find("The model is unloaded and this line is not in the cache.\n"), 0U);
    behave("");
    engine->start();
    EXPECT_TRUE(waitForState(*engine, S2EngineState::ready));
    EXPECT_EQ(speak(*engine).sampleRate, 22050);
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
    engine->stop();
    EXPECT_EQ(engine->currentState(), S2EngineState::missing);
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(S2Engine, restartsAChildThreeTimesAndThenGivesUp) {
    const auto engine = readyEngine();
    behave("die-at=request");
    EXPECT_EQ(refusal(*engine).first, TtsErrorCode::engineNotConnected);
    behave("");
    for (int count = 1; count <= 3; ++count) {
        const std::string done = "restarted and ready (attempt " + std::to_string(count) + ")";
        ASSERT_TRUE(eventually([&] { return countLogLines(done) == 1; }));
        EXPECT_EQ(speak(*engine).sampleRate, 22050);
        ::kill(recordedPid(), SIGKILL);
    }
    EXPECT_TRUE(waitForState(*engine, S2EngineState::failed));
    EXPECT_EQ(engine->checkHealth().detail,
              "推理进程反复退出(3 次),不再自动重启 —— 看 " + S2LocalEngine::logPath());
    EXPECT_EQ(countLogLines("inference process gone (auto-restarted 3 time(s))"), 1);
    EXPECT_EQ(countLogLines("inference process started"), 4);
    EXPECT_TRUE(hasNoChildren());
    EXPECT_EQ(test::readText(S2LocalEngine::logPath()),
              "fake-s2 says this on stdout\nfake-s2 says this on stderr\n")
        << "the log is of the last child only";

    engine->start();
    EXPECT_TRUE(waitForState(*engine, S2EngineState::ready));
    ::kill(recordedPid(), SIGKILL);
    EXPECT_TRUE(eventually([] { return countLogLines("ready (attempt 1)") == 2; }))
        << "a start counts from nothing";
}

TEST_F(S2Engine, endsAStubbornChildAndItsHelpers) {
    tuning.stopLimit = milliseconds(100);
    for (const char* how : {"ignore-term=1\ngrandchild=1", "grandchild=1"}) {
        behave(how);
        const auto engine = readyEngine();
        const int pid = reportedNumber("pid");
        const int grandchild = reportedNumber("grandchild");
        ASSERT_TRUE(grandchild > 0 && test::processLives(grandchild));
        engine->stop();
        EXPECT_FALSE(test::processLives(pid));
        EXPECT_TRUE(eventually([&] { return !test::processLives(grandchild); })) << how;
        EXPECT_TRUE(hasNoChildren());
    }
}

TEST_F(S2Engine, aFailedLineIsNotTheEndOfALivingChild) {
    tuning.lastAttempt = milliseconds(100);
    tuning.exitGrace = milliseconds(50);
    EngineOptions options;
    options.timeoutMs = 20'000;
    auto engine = readyEngine(options);
    behave("busy=3");
    EXPECT_EQ(speak(*engine).sampleRate, 22050);
    EXPECT_EQ(countLogLines("engine busy with an earlier request"), 1);
    const struct {
        std::string behaviour;
        std::string begin;
    } rows[] = {
        {"status=500\nbody=model error \xFF!", "推理进程返回 500:model error \uFFFD!"},
        {"body=text", "the 4 bytes returned by the inference process are not a recognisable WAV"},
        {"hang-up=1", "跟推理进程通信失败:"},
    };
    for (const auto& row : rows) {
        behave(row.behaviour);
        const auto [code, message] = refusal(*engine);
        EXPECT_EQ(code, TtsErrorCode::engineFailed);
        EXPECT_EQ(message.find(row.begin), 0U) << message;
        EXPECT_TRUE(engine->ready()) << "the child lives";
    }
    // The line's own time is over, or the one of an attempt, which is that of the start.
    behave("busy=1000");
    options.timeoutMs = 0;
    engine->configure(options);
    EXPECT_EQ(refusal(*engine).first, TtsErrorCode::timeout);
    behave("");
    engine = readyEngine(options);
    options.timeoutMs = 600'000;
    engine->configure(options);
    behave("delay-ms=20000");
    EXPECT_EQ(refusal(*engine).first, TtsErrorCode::engineFailed);
    EXPECT_TRUE(engine->ready());
}

TEST_F(S2Engine, keepsOneChildHoweverManyStartAndStopIt) {
    auto engine = std::make_unique<S2LocalEngine>(EngineOptions(), tuning);
    std::vector<std::thread> callers;
    for (int caller = 0; caller < 4; ++caller)
        callers.emplace_back([&engine, caller] {
            for (int round = 0; round < 4; ++round) {
                engine->start();
                if (caller == 0) engine->stop();
                if (caller == 1) engine->unload();
                (void)engine->checkHealth();
            }
        });
    for (std::thread& caller : callers) caller.join();
    engine->stop();
    EXPECT_EQ(engine->currentState(), S2EngineState::missing);
    EXPECT_TRUE(hasNoChildren());

    engine->start();
    EXPECT_TRUE(waitForState(*engine, S2EngineState::ready));
    const int pid = recordedPid();
    EXPECT_EQ(pid, reportedNumber("pid"));
    engine->stopForGood();
    EXPECT_FALSE(test::processLives(pid));
    engine->start();
    EXPECT_EQ(engine->currentState(), S2EngineState::missing);
    EXPECT_TRUE(hasNoChildren());
}

}  // namespace
}  // namespace zepho
