// What the service makes of a helper that is missing, fails, lies, hangs or is busy.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
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

DecodedClip order(DecoderHelper& helper, const std::string& what) {
    return helper.decode(DecoderEntry::ogg, asBytes(what));
}

// The order decodes nothing, and only the warning stands in the log.
void expectFailure(DecoderHelper& helper, const std::string& what, const std::string& warning) {
    SCOPED_TRACE(what);
    AppLog::clear();
    const DecodedClip clip = order(helper, what);
    EXPECT_EQ(clip.status, 0);
    EXPECT_FALSE(clip.pcm);
    const std::vector<LogEntry> lines = AppLog::snapshot();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, LogLevel::warn);
    EXPECT_EQ(lines[0].source, "voices");
    EXPECT_EQ(lines[0].text, "the decoder of ogg clips " + warning);
}

TEST(DecoderHelperTest, HelpersThatFailOrLieDecodeNothingAndAreLogged) {
    DecoderHelper missing("/nowhere/zephon-decode");
    expectFailure(missing, "anything",
                  "could not be started: No such file or directory (/nowhere/zephon-decode)");
    DecoderHelper hasty(standIn(), {.deadline = 50ms});
    expectFailure(hasty, "hang", "was still running after 50 ms");
    DecoderHelper helper(standIn(), {.deadline = 60s});
    expectFailure(helper, "crash", "was ended by signal 11 (Segmentation fault)");
    expectFailure(helper, "fail", "ended with exit code 9");
    for (const char* lie :
         {"silent", "other form", "too few", "too many", "countless", "wide rate", "large block",
          "endless", "trickles", "breaks off", "talks on", "too long"})
        expectFailure(helper, lie, "gave an answer that makes no sense");
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a helper is left";
}

TEST(DecoderHelperTest, SamplesThatAreNoNumbersBecomeSilence) {
    DecoderHelper helper(standIn());
    const DecodedClip clip = order(helper, "not finite");
    ASSERT_TRUE(clip.pcm);
    std::vector<float> expected;
    for (int i = 0; i < 25; ++i) expected.insert(expected.end(), {0.5F, 0.0F, 0.0F, 1.5F});
    EXPECT_EQ(clip.pcm->data, expected);
    EXPECT_EQ(clip.pcm->sampleRate, 8000);
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

TEST(DecoderHelperTest, TwoRunAtATimeAndWhoWaitsTooLongGivesUp) {
    const test::TempDir folder;
    std::filesystem::create_directory(folder.file("here"));
    DecoderHelper helper(standIn(), {.deadline = 30s, .patience = 1ms});
    const auto inside = [&] {
        return std::distance(std::filesystem::directory_iterator(folder.file("here")), {});
    };
    std::vector<std::future<DecodedClip>> callers;
    for (int i = 1; i <= 2; ++i) {
        callers.push_back(std::async(std::launch::async,
                                     [&] { return order(helper, "wait in " + folder.path()); }));
        while (inside() < i && callers.back().wait_for(1ms) != std::future_status::ready) continue;
    }
    expectFailure(helper, "not finite", "was busy with other clips for too long");
    std::ofstream(folder.file("go")).put('x');
    for (auto& caller : callers) EXPECT_TRUE(caller.get().pcm);
    EXPECT_TRUE(order(helper, "not finite").pcm) << "the turn was not given back";

    DecoderHelper patient(standIn(), {.deadline = 30s});
    callers.clear();
    for (int i = 0; i < 6; ++i)
        callers.push_back(
            std::async(std::launch::async, [&] { return order(patient, "not finite"); }));
    for (auto& caller : callers) EXPECT_TRUE(caller.get().pcm);
}

std::string problemOf(const std::string& forbidden) {
    return runOnBytes(standIn(), {}, asBytes("locked in: " + forbidden), 20s,
                      [](RunOutput& output) {
                          char first = 0;
                          (void)output.read(&first, sizeof first);
                      });
}

TEST(SandboxTest, LimitsHoldAndOtherSystemCallsEndTheProgram) {
    EXPECT_EQ(problemOf("allocate"), "ended with exit code 51");
    EXPECT_EQ(problemOf("write without end"), "") << "ended when nobody reads on";
    EXPECT_EQ(problemOf("spin"), "was ended by signal 24 (CPU time limit exceeded)");
    if (!std::filesystem::exists("/proc/sys/kernel/seccomp")) GTEST_SKIP() << "no filters here";
    for (const char* what :
         {"open", "fork", "socket", "signal the parent", "write elsewhere", "map code"})
        EXPECT_EQ(problemOf(what), "was ended by signal 31 (Bad system call)") << what;
}

}  // namespace
}  // namespace zepho
