#include <optional>

#include <gtest/gtest.h>

#include "core/platform/InstanceLock.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

TEST(InstanceLock, HasOneHolderAtATime) {
    const test::TempDir dir;
    std::optional<InstanceLock> first(std::in_place, dir.file("lock"));
    EXPECT_FALSE(first->isTaken());
    EXPECT_TRUE(InstanceLock(dir.file("lock")).isTaken());
    EXPECT_FALSE(InstanceLock(dir.file("other")).isTaken());
    first.reset();
    EXPECT_FALSE(InstanceLock(dir.file("lock")).isTaken());
    EXPECT_FALSE(InstanceLock(dir.file("no/such/directory")).isTaken());
}

}  // namespace
}  // namespace zepho
