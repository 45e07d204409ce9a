// The entry that starts the program at login.
#include <gtest/gtest.h>

#include "core/platform/LoginItem.h"

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

}  // namespace
}  // namespace zepho
