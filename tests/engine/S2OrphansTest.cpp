#include <algorithm>
#include <filesystem>

#include "core/engine/S2Orphans.h"
#include "core/platform/Process.h"
#include "tests/engine/S2TestSupport.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

class S2Orphans : public test::S2Test {
protected:
    S2Orphans() { behave("never-ready=1"); }

    static std::shared_ptr<Process> spawnAt(const std::string& path) {
        std::shared_ptr<Process> made = Process::spawn({path, {}, parentDirectory(path), ""});
        EXPECT_TRUE(test::eventually([&] { return programOfProcess(made->pid()) == path; }));
        return made;
    }
    static void expectEnd(Process& process) {
        ASSERT_TRUE(process.waitForExit(std::chrono::seconds(30), std::chrono::milliseconds(5)));
        EXPECT_EQ(process.exitStatus()->cause, ExitCause::killed);
    }
    static void sweepWith(const std::string& record) {
        test::writeText(ZEPHOPaths::enginePidFile(), record);
        sweepOrphans();
        EXPECT_FALSE(fileExists(ZEPHOPaths::enginePidFile())) << record;
    }
    const std::string ours = root + "engine/s2";
};

TEST_F(S2Orphans, picksOrphansOfOursByTheirPlace) {
    const std::vector<ProcessEntry> list{
        {10, 1, true, ours},
        {11, 500, false, ours},
        {12, 1, true, "/usr/lib/zephon/engine/s2"},
        {13, 1, true, "/opt/z/bin/../lib/zephon/engine/s2"},
        {14, 1, true, ours},
    };
    EXPECT_EQ(orphanedEngines(list, 14), (std::vector<std::int32_t>{10, 12, 13}));
    for (const std::string& other :
         {std::string("s2"), std::string(), std::string("/usr/bin/s2"),
          std::string("/home/other/engine/s2"), ours + "x", ours + "/", root + "engine/sub/s2",
          root + "s2", "/x" + ours, std::string("/usr/lib/zephon-engine/s2")})
        EXPECT_FALSE(looksLikeOurEngine(other)) << other;
}

TEST_F(S2Orphans, killsTheRecordedProcessOnlyIfItIsOurs) {
    const auto process = spawnAt(ours);
    sweepWith(" " + std::to_string(process->pid()) + "\n");
    expectEnd(*process);
    EXPECT_EQ(test::countLogLines("[WARN] s2: killed 1 orphaned inference process(es) left by a "
                                  "previous run"),
              1);

    const test::TempDir foreign;
    std::filesystem::create_symlink(FAKE_S2, foreign.file("s2"));
    test::writeText(foreign.file("fake-s2.conf"), "never-ready=1");
    const auto stranger = spawnAt(foreign.file("s2"));
    sweepWith(std::to_string(stranger->pid()));
    EXPECT_TRUE(stranger->running());
    stranger->killGroup();
    expectEnd(*stranger);
    for (const char* garbage : {"", "no number", "1", "-1", "12 13", "99999999999"})
        sweepWith(garbage);
    EXPECT_EQ(test::countLogLines("orphaned"), 1);
}

// The whole way: a service dies, its child is adopted, and the next engine object finds it without
// a record. A child whose parent lives stays.
TEST_F(S2Orphans, findsAnOrphanInTheProcessListWhenAnEngineIsMade) {
    const auto kept = spawnAt(ours);
    ASSERT_TRUE(test::eventually([&] { return reportedNumber("pid") == kept->pid(); }));
    std::filesystem::remove(fakeFile("fake-s2.report"));
    const std::string script = "setsid \"$0\" </dev/null >/dev/null 2>&1 &";
    const auto launcher = Process::spawn({"/bin/sh", {"-c", script, ours}, root + "engine/", ""});
    ASSERT_TRUE(test::eventually([&] { return reportedNumber("pid") != 0; }));
    const int orphan = reportedNumber("pid");
    ASSERT_TRUE(launcher->waitForExit(std::chrono::seconds(30), std::chrono::milliseconds(5)));
    const auto list = listProcesses();
    const auto entry = std::ranges::find(list, orphan, &ProcessEntry::pid);
    ASSERT_NE(entry, list.end());
    EXPECT_EQ(entry->program, ours);
    if (!entry->orphaned) {
        EXPECT_TRUE(killProcessIf(orphan, looksLikeOurEngine));
        GTEST_SKIP() << "orphans are adopted by process " << entry->parent << " here";
    }
    const S2LocalEngine engine({}, tuning);
    EXPECT_TRUE(test::eventually([&] { return !test::processLives(orphan); }));
    EXPECT_TRUE(kept->running());
    kept->killGroup();
    expectEnd(*kept);
}

}  // namespace
}  // namespace zepho
