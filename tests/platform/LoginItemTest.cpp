// The entry that starts the program at login.
#include <cstdlib>
#include <system_error>

#include <gtest/gtest.h>

#include "core/platform/Files.h"
#include "core/platform/LoginItem.h"
#include "core/platform/PlatformPaths.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

std::string execOf(const std::string& program) {
    const std::string text = loginItemText(program);
    const std::size_t start = text.find("\nExec=") + 6;
    return text.substr(start, text.find('\n', start) - start);
}

TEST(LoginItem, QuotesWhateverTheProgramIsCalled) {
    EXPECT_EQ(execOf("/usr/bin/zephon"), R"("/usr/bin/zephon" --hidden)");
    EXPECT_EQ(execOf("/a b/x'y;&|"), R"("/a b/x'y;&|" --hidden)");
    EXPECT_EQ(execOf("/a\"b"), R"("/a\\"b" --hidden)");
    EXPECT_EQ(execOf("/$HOME`x`"), R"("/\\$HOME\\`x\\`" --hidden)");
    EXPECT_EQ(execOf("/a\\b"), R"("/a\\\\b" --hidden)");
    EXPECT_EQ(execOf("/100%/%U"), R"("/100%%/%%U" --hidden)");
    EXPECT_EQ(execOf("/a\nHidden=true"), R"("/a\nHidden=true" --hidden)");
}

class LoginItemFile : public testing::Test {
protected:
    LoginItemFile() { ::setenv("XDG_CONFIG_HOME", home.path().c_str(), 1); }
    ~LoginItemFile() override { ::unsetenv("XDG_CONFIG_HOME"); }
    const test::TempDir home;
};

TEST_F(LoginItemFile, IsWrittenRepairedAndRemoved) {
    ASSERT_EQ(loginItemPath(), home.file("autostart/zephon.desktop"));
    const std::string entry = loginItemText(executablePath());
    setLoginItem(false);
    EXPECT_FALSE(directoryExists(home.file("autostart")));
    setLoginItem(true);
    EXPECT_EQ(asText(*loadFileBytes(loginItemPath())), entry);
    // That of a place where the program is no more.
    saveFileBytes(loginItemPath(), asBytes(loginItemText("/old/zephon")));
    setLoginItem(true);
    EXPECT_EQ(asText(*loadFileBytes(loginItemPath())), entry);
    setLoginItem(false);
    EXPECT_FALSE(fileExists(loginItemPath()));

    saveFileBytes(home.file("file"), {});
    ::setenv("XDG_CONFIG_HOME", home.file("file").c_str(), 1);
    EXPECT_THROW(setLoginItem(true), std::system_error);
    ::setenv("XDG_CONFIG_HOME", "relative", 1);
    EXPECT_EQ(loginItemPath(),
              withTrailingSlash(homeDirectory()) + ".config/autostart/zephon.desktop");
}

}  // namespace
}  // namespace zepho
