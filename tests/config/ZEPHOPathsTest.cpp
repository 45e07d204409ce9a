#include <cstdlib>

#include <gtest/gtest.h>

#include "core/config/ZEPHOPaths.h"
#include "core/platform/Files.h"
#include "core/platform/PlatformPaths.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

// The root is decided once per process, so each case has one of its own: `check` runs there, and its
// answer is the exit code.
void inOwnProcess(bool (*check)(const std::string& dir)) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const test::TempDir dir;
    EXPECT_EXIT(std::_Exit(check(dir.path()) ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(ZEPHOPathsRootDeathTest, FollowsZephoHomeTrimmed) {
    inOwnProcess([](const std::string& dir) {
        ::setenv("ZEPHO_HOME", (" " + dir + "x \n").c_str(), 1);
        const bool trimmedRoot = ZEPHOPaths::dataRoot() == dir + "x/";
        ::setenv("ZEPHO_HOME", "/elsewhere", 1);
        const bool unchanged = ZEPHOPaths::configFile() == dir + "x/data/config.json";
        // A creation that fails does not stop the others.
        saveFileBytes(dir + "x/clone", asBytes("in the way"));
        ZEPHOPaths::ensureDirectories();
        bool all = true;
        for (const char* name : {"data", "temp", "models", "engine", "logs"})
            all = all && directoryExists(dir + "x/" + name);
        return trimmedRoot && unchanged && all;
    });
}

TEST(ZEPHOPathsRootDeathTest, IsTheUsersDataDirectoryWithoutZephoHome) {
    inOwnProcess([](const std::string& dir) {
        ::setenv("ZEPHO_HOME", "  ", 1);
        ::setenv("XDG_DATA_HOME", dir.c_str(), 1);
        return ZEPHOPaths::dataRoot() == dir + "Zephon/";
    });
}

TEST(ZEPHOPaths, FindsThePackagedEngineBeforeTheNamedOne) {
    EXPECT_EQ(ZEPHOPaths::portableCandidate(), programDirectory() + "Zephon-data");
    ::unsetenv("ZEPHO_ENGINE_DIR");
    EXPECT_FALSE(ZEPHOPaths::bundledEngineDir().has_value());
    ::setenv("ZEPHO_ENGINE_DIR", "/opt/not there", 1);
    EXPECT_EQ(ZEPHOPaths::bundledEngineDir(), "/opt/not there/");
}

}  // namespace
}  // namespace zepho
