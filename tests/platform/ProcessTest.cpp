#include <algorithm>
#include <csignal>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include "core/platform/Files.h"
#include "core/platform/Process.h"
#include "core/platform/ProcessList.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

using std::chrono::milliseconds;

std::shared_ptr<Process> shell(const std::string& script, const std::string& output = {}) {
    return Process::spawn({"/bin/sh", {"-c", script}, "/", output});
}

ProcessExit endOf(Process& process) {
    EXPECT_TRUE(process.waitForExit(std::chrono::seconds(30), milliseconds(5)));
    return process.exitStatus().value_or(ProcessExit{ExitCause::exited, -99});
}

TEST(Process, tellsHowItEnded) {
    struct Row {
        const char* script;
        ExitCause cause;
        int number;
    };
    for (const Row& row : {
             Row{"exit 0", ExitCause::exited, 0},
             Row{"exit 7", ExitCause::exited, 7},
             Row{"kill -ILL $$", ExitCause::illegalInstruction, SIGILL},
             Row{"kill -ABRT $$", ExitCause::aborted, SIGABRT},
             Row{"kill -KILL $$", ExitCause::killed, SIGKILL},
             Row{"kill -BUS $$", ExitCause::busError, SIGBUS},
             Row{"kill -SEGV $$", ExitCause::segmentationFault, SIGSEGV},
             Row{"kill -USR1 $$", ExitCause::otherSignal, SIGUSR1},
         }) {
        const auto process = shell(std::string("ulimit -c 0; ") + row.script);
        const ProcessExit exit = endOf(*process);
        EXPECT_EQ(exit.cause, row.cause) << row.script;
        EXPECT_EQ(exit.number, row.number) << row.script;
    }
}

TEST(Process, collectsItsOutputAndRunsWithoutAPlaceForIt) {
    const test::TempDir directory;
    saveFileBytes(directory.file("log"), asBytes("of an earlier child"));
    endOf(*shell("echo one; pwd; echo two >&2", directory.file("log")));
    EXPECT_EQ(asText(*loadFileBytes(directory.file("log"))), "one\n/\ntwo\n");
    EXPECT_EQ(endOf(*shell("echo one; exit 4", directory.file("none/log"))).number, 4);
}

TEST(Process, reportsWhatCannotBeStarted) {
    const test::TempDir directory;
    const auto errorOf = [](const ProcessSpec& spec) {
        try {
            (void)Process::spawn(spec);
        } catch (const std::system_error& error) {
            return error.code().value();
        }
        return 0;
    };
    EXPECT_EQ(errorOf({directory.file("none"), {}, "", ""}), ENOENT);
    saveFileBytes(directory.file("text"), asBytes("text"));
    EXPECT_EQ(errorOf({directory.file("text"), {}, "", ""}), EACCES);
    EXPECT_EQ(errorOf({"/bin/sh", {}, directory.file("none"), ""}), ENOENT);
}

TEST(Process, leavesNoZombieWhenItIsForgottenWhileItRuns) {
    const test::TempDir directory;
    std::int32_t pid = 0;
    {
        const auto process =
            shell("while test ! -e " + directory.file("go") + "; do sleep 0.01; done");
        pid = process->pid();
    }
    const std::string entry = "/proc/" + std::to_string(pid);
    EXPECT_TRUE(fileExists(entry)) << "it is left alone";
    saveFileBytes(directory.file("go"), asBytes(""));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (fileExists(entry) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(milliseconds(5));
    EXPECT_FALSE(fileExists(entry));
}

TEST(Process, isAskedAndKilledFromManyThreadsAtOnce) {
    for (int round = 0; round < 5; ++round) {
        const auto process = shell("sleep 60");
        std::vector<std::thread> callers;
        for (int caller = 0; caller < 4; ++caller)
            callers.emplace_back([&process, caller] {
                if (caller == 0) process->terminate();
                if (caller == 1) process->killGroup();
                while (process->running()) std::this_thread::yield();
                process->terminate();
                process->killGroup();
            });
        for (std::thread& caller : callers) caller.join();
        const ProcessExit exit = endOf(*process);
        EXPECT_TRUE(exit.number == SIGTERM || exit.number == SIGKILL);
    }
}

TEST(ProcessList, killsOnlyWhatIsAccepted) {
    // A program whose path has a blank in it.
    const test::TempDir directory;
    const std::string program = directory.file("a name");
    std::filesystem::create_symlink("/bin/sleep", program);
    const auto process = Process::spawn({program, {"60"}, "", ""});
    const auto is = [&program](std::string_view found) { return found == program; };
    // A new program's command line shows a moment after its start.
    for (int look = 0; look < 6000 && programOfProcess(process->pid()) != program; ++look)
        std::this_thread::sleep_for(milliseconds(5));
    EXPECT_FALSE(killProcessIf(process->pid(), [](std::string_view) { return false; }));
    EXPECT_TRUE(process->running());
    EXPECT_TRUE(killProcessIf(process->pid(), is));
    EXPECT_EQ(endOf(*process).cause, ExitCause::killed);
    EXPECT_FALSE(killProcessIf(process->pid(), is));

    const auto listed = listProcesses();
    const auto own = std::ranges::find(listed, ownProcessId(), &ProcessEntry::pid);
    ASSERT_NE(own, listed.end());
    EXPECT_EQ(own->parent, ::getppid());
    EXPECT_EQ(own->program, programOfProcess(own->pid));
    EXPECT_EQ(programOfProcess(0x7FFFFFF0), std::nullopt);
}

}  // namespace
}  // namespace zepho
