// What the service makes of a helper that is missing, fails, lies, hangs or is busy.
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/audio/DecoderHelper.h"
#include "core/diag/AppLog.h"
#include "core/platform/PlatformPaths.h"
#include "core/platform/SandboxedRun.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

using namespace std::chrono_literals;

std::string standIn() {
    return programDirectory() + "test-decoder-stand-in";
}

std::string lastWarning() {
    const std::vector<LogEntry> lines = AppLog::snapshot();
    if (lines.empty() || lines.back().level != LogLevel::warn || lines.back().source != "voices")
        return {};
    return lines.back().text;
}

bool hasChildren() {
    return ::waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD;
}

DecodedClip order(DecoderHelper& helper, const std::string& what) {
    return helper.decode(DecoderEntry::ogg, asBytes(what));
}

TEST(DecoderHelperTest, AMissingHelperDecodesNothingAndIsLogged) {
    AppLog::clear();
    DecoderHelper helper("/nowhere/zephon-decode");
    const DecodedClip clip = helper.decode(DecoderEntry::mp3, asBytes("ID3 and more"));
    EXPECT_EQ(clip.status, 0);
    EXPECT_FALSE(clip.pcm);
    EXPECT_EQ(lastWarning(),
              "the decoder of mp3 clips could not be started: No such file or "
              "directory (/nowhere/zephon-decode)");
    EXPECT_FALSE(hasChildren());
}

TEST(DecoderHelperTest, HelpersThatDieOrLieDecodeNothingAndAreLogged) {
    struct Case {
        const char* behaviour;
        const char* warning;
    };
    const Case cases[] = {
        {"crash", "was ended by signal 11 (Segmentation fault)"},
        {"fail", "ended with exit code 9"},
        {"silent", "gave an answer that makes no sense"},
        {"garbage", "gave an answer that makes no sense"},
        {"other form", "gave an answer that makes no sense"},
        {"too few", "gave an answer that makes no sense"},
        {"too many", "gave an answer that makes no sense"},
        {"countless", "gave an answer that makes no sense"},
        {"no rate", "gave an answer that makes no sense"},
        {"wide rate", "gave an answer that makes no sense"},
    };
    DecoderHelper helper(standIn());
    for (const Case& one : cases) {
        SCOPED_TRACE(one.behaviour);
        AppLog::clear();
        const DecodedClip clip = order(helper, one.behaviour);
        EXPECT_EQ(clip.status, 0);
        EXPECT_FALSE(clip.pcm);
        EXPECT_EQ(lastWarning(), std::string("the decoder of ogg clips ") + one.warning);
    }
    EXPECT_FALSE(hasChildren());
}

TEST(DecoderHelperTest, SamplesThatAreNoNumbersBecomeSilence) {
    DecoderHelper helper(standIn());
    const DecodedClip clip = order(helper, "not finite");
    ASSERT_TRUE(clip.pcm);
    ASSERT_EQ(clip.pcm->data.size(), 100U);
    for (std::size_t i = 0; i < 100; i += 4)
        EXPECT_EQ(std::vector<float>(clip.pcm->data.begin() + i, clip.pcm->data.begin() + i + 4),
                  (std::vector<float>{0.5F, 0.0F, 0.0F, 1.5F}))
            << i;
    EXPECT_EQ(clip.pcm->sampleRate, 8000);
}

TEST(DecoderHelperTest, AHelperThatHangsIsKilledAtTheDeadline) {
    AppLog::clear();
    DecoderHelper helper(standIn(), {.deadline = 50ms});
    const DecodedClip clip = order(helper, "hang");
    EXPECT_EQ(clip.status, 0);
    EXPECT_EQ(lastWarning(), "the decoder of ogg clips was still running after 50 ms");
    EXPECT_FALSE(hasChildren());
}

TEST(DecoderHelperTest, AHelperInheritsNothing) {
    // Open without close-on-exec, as a library of the service might have it.
    const int open = ::open("/dev/null", O_RDONLY);
    const auto before = std::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    sigset_t old;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &old);

    DecoderHelper helper(standIn());
    const DecodedClip clip = order(helper, "surroundings");
    ASSERT_TRUE(clip.pcm);
    EXPECT_EQ(clip.pcm->data, (std::vector<float>{3, 0, 0})) << "descriptors, signals, environment";

    EXPECT_EQ(std::signal(SIGPIPE, before), SIG_IGN) << "the service's own setting has changed";
    ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
    ::close(open);
}

// Lets helpers wait inside until the test opens the gate.
class Crowd {
public:
    Crowd() { std::filesystem::create_directory(folder.file("here")); }

    [[nodiscard]] std::string order() const { return "crowd " + folder.path(); }
    void waitFor(int helpers) const {
        while (std::distance(std::filesystem::directory_iterator(folder.file("here")), {}) <
               helpers)
            std::this_thread::sleep_for(1ms);
    }
    void go() const { std::ofstream(folder.file("go")).put('x'); }

private:
    test::TempDir folder;
};

TEST(DecoderHelperTest, NoMoreThanTwoRunAtATime) {
    const Crowd crowd;
    DecoderHelper helper(standIn(), {.deadline = 30s});
    std::vector<std::thread> callers;
    std::atomic<int> answered = 0;
    std::atomic<int> largest = 0;
    for (int i = 0; i < 6; ++i)
        callers.emplace_back([&] {
            const DecodedClip clip = order(helper, crowd.order());
            if (!clip.pcm) return;
            ++answered;
            const int seen = static_cast<int>(clip.pcm->data.at(0));
            for (int known = largest; known < seen && !largest.compare_exchange_weak(known, seen);)
                continue;
        });
    crowd.waitFor(2);
    // Gives a third one the chance to show up, if there were one.
    std::this_thread::sleep_for(50ms);
    crowd.go();
    for (std::thread& caller : callers) caller.join();
    EXPECT_EQ(answered, 6);
    EXPECT_LE(largest, 2);
    EXPECT_FALSE(hasChildren());
}

TEST(DecoderHelperTest, WhoWaitsTooLongForATurnGivesUp) {
    AppLog::clear();
    const Crowd crowd;
    DecoderHelper helper(standIn(), {.deadline = 30s, .patience = 1ms, .atOnce = 1});
    std::thread first([&] { EXPECT_TRUE(order(helper, crowd.order()).pcm); });
    crowd.waitFor(1);
    EXPECT_FALSE(order(helper, "not finite").pcm);
    EXPECT_EQ(lastWarning(), "the decoder of ogg clips was busy with other clips for too long");
    crowd.go();
    first.join();
    EXPECT_TRUE(order(helper, "not finite").pcm) << "the turn was not given back";
}

std::string problemOf(const std::string& forbidden) {
    return runOnBytes(standIn(), {}, asBytes("locked in: " + forbidden), 20s).problem;
}

TEST(SandboxTest, LimitsHoldAndADecoderGetsWhatItNeeds) {
    EXPECT_EQ(problemOf("nothing"), "");
    EXPECT_EQ(problemOf("abort"), "was ended by signal 6 (Aborted)");
    EXPECT_EQ(problemOf("allocate"), "ended with exit code 51");
    EXPECT_EQ(problemOf("write much"), "was ended by signal 25 (File size limit exceeded)");
    EXPECT_EQ(problemOf("spin"), "was ended by signal 24 (CPU time limit exceeded)");
}

TEST(SandboxTest, OtherSystemCallsEndTheProgram) {
    if (!std::filesystem::exists("/proc/sys/kernel/seccomp"))
        GTEST_SKIP() << "this kernel has no system-call filters";
    for (const char* what :
         {"open", "fork", "socket", "signal the parent", "write elsewhere", "map code"})
        EXPECT_EQ(problemOf(what), "was ended by signal 31 (Bad system call)") << what;
}

}  // namespace
}  // namespace zepho
