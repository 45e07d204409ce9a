#include <algorithm>
#include <filesystem>

#include "core/config/ZEPHOPaths.h"
#include "core/engine/S2Orphans.h"
#include "core/platform/Files.h"
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
    static void recordPid(const std::string& text) {
        test::writeText(ZEPHOPaths::enginePidFile(), text);
    }
    static bool recordExists() { return fileExists(ZEPHOPaths::enginePidFile()); }
};

TEST_F(S2Orphans, picksOrphansOfOursByTheirPlace) {
    const std::string ours = root + "engine/s2";
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
    const auto ours = spawnAt(root + "engine/s2");
    recordPid(" " + std::to_string(ours->pid()) + "\n");
    sweepOrphans();
    ASSERT_TRUE(ours->waitForExit(std::chrono::seconds(30), std::chrono::milliseconds(5)));
    EXPECT_EQ(ours->exitStatus()->cause, ExitCause::killed);
    EXPECT_FALSE(recordExists());
    EXPECT_EQ(test::countLogLines("[WARN] s2: killed 1 orphaned inference process(es) left by a "
                                  "previous run"),
              1);

    const test::TempDir foreign;
    std::filesystem::create_symlink(FAKE_S2, foreign.file("s2"));
    test::writeText(foreign.file("fake-s2.conf"), "never-ready=1");
    const auto stranger = spawnAt(foreign.file("s2"));
    recordPid(std::to_string(stranger->pid()));
    sweepOrphans();
    EXPECT_FALSE(recordExists());
    EXPECT_TRUE(stranger->running());
    stranger->killGroup();
    EXPECT_TRUE(stranger->waitForExit(std::chrono::seconds(30), std::chrono::milliseconds(5)));

    for (const char* garbage : {"", "no number", "1", "-1", "12 13", "99999999999"}) {
        recordPid(garbage);
        sweepOrphans();
        EXPECT_FALSE(recordExists()) << garbage;
    }
    EXPECT_EQ(test::countLogLines("orphaned"), 1);
}

// The whole way: a service dies, its child is adopted, and the next engine object finds it without
// a record. A child whose parent lives stays.
TEST_F(S2Orphans, findsAnOrphanInTheProcessListWhenAnEngineIsMade) {
    const auto kept = spawnAt(root + "engine/s2");
    ASSERT_TRUE(test::eventually([&] { return reportedNumber("pid") == kept->pid(); }));
    std::filesystem::remove(fakeFile("fake-s2.report"));
    const auto launcher =
        Process::spawn({"/bin/sh",
                        {"-c", "setsid \"$0\" </dev/null >/dev/null 2>&1 &", root + "engine/s2"},
                        root + "engine/",
                        ""});
    ASSERT_TRUE(test::eventually([&] { return reportedNumber("pid") != 0; }));
    const int orphan = reportedNumber("pid");
    ASSERT_TRUE(launcher->waitForExit(std::chrono::seconds(30), std::chrono::milliseconds(5)));
    const auto list = listProcesses();
    const auto entry = std::find_if(list.begin(), list.end(),
                                    [&](const ProcessEntry& it) { return it.pid == orphan; });
    ASSERT_NE(entry, list.end());
    EXPECT_EQ(entry->program, root + "engine/s2");
    if (!entry->orphaned) {
        EXPECT_TRUE(killProcessIf(orphan, looksLikeOurEngine));
        GTEST_SKIP() << "orphans are adopted by process " << entry->parent << " here";
    }
    {
        const S2LocalEngine engine({}, tuning);
        EXPECT_TRUE(test::eventually([&] { return !test::processLives(orphan); }));
        EXPECT_TRUE(kept->running());
    }
    kept->killGroup();
    EXPECT_TRUE(kept->waitForExit(std::chrono::seconds(30), std::chrono::milliseconds(5)));
}

}  // namespace
}  // namespace zepho
