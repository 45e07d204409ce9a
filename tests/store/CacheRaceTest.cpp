// What another thread may do while a clip is on its way into the cache, at the very moment that is
// meant.
//
// The definition of fsync() here stands in front of the C library's for the whole program.
#include <functional>
#include <utility>

#include <dlfcn.h>
#include <sys/stat.h>

#include "tests/store/CacheTestSupport.h"

namespace {

// Runs once, when a file has its new name and the directory is about to be synced.
std::function<void()> afterRename;

}  // namespace

extern "C" int fsync(int fd) {
    struct stat info {};
    if (afterRename && ::fstat(fd, &info) == 0 && S_ISDIR(info.st_mode))
        std::exchange(afterRename, nullptr)();
    static auto* const real = reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, "fsync"));
    return real(fd);
}

namespace zepho::test {
namespace {

TEST(CacheRace, AnEvictionThatTakesTheFileOfANewClipTakesTheClip) {
    const TempDir home;
    WavCache cache(home.path(), 1000);
    putClip(cache, "a", 100);
    afterRename = [&cache] {
        cache.setBudget(50);
        cache.setBudget(1000);
    };
    putClip(cache, "a", 200);
    EXPECT_FALSE(afterRename);
    EXPECT_EQ(cache.stats().evictions, 1);
    EXPECT_FALSE(fileExists(home.file("a.wav")));
    EXPECT_FALSE(cache.contains("a"));
    expectInvariants(cache);
    putClip(cache, "a", 200);
    EXPECT_TRUE(cache.tryGet("a"));
}

}  // namespace
}  // namespace zepho::test
