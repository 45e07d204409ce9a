// What is left when the process is killed or the disk is full.
#include <csignal>
#include <filesystem>
#include <set>
#include <thread>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/audio/WavReader.h"
#include "core/diag/AppLog.h"
#include "core/platform/Files.h"
#include "core/store/WavCache.h"
#include "tests/store/CacheTestSupport.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

using test::expectInvariants;
using test::putClip;
using test::TempDir;
using test::warnings;
using test::wavOfSize;

constexpr std::size_t clipSize = 40000;

// Puts and flushes until it is killed, and tells each flushed number through `pipe`.
[[noreturn]] void writeUntilKilled(const std::string& dir, int first, int pipe) {
    WavCache cache(dir, 0);
    for (int number = first;; ++number) {
        // An old clip is written again and again, so that a replacement is cut short as well.
        putClip(cache, "again", clipSize + 2 * static_cast<std::size_t>(number % 50));
        putClip(cache, "clip" + std::to_string(number), clipSize,
                static_cast<std::uint8_t>(number));
        cache.flush();
        if (::write(pipe, &number, sizeof number) != sizeof number) ::_exit(1);
    }
}

TEST(CacheCrash, KilledProcessLosesNothingThatWasFlushed) {
    const TempDir home;
    std::set<int> flushed;
    int next = 0;
    for (int round = 0; round < 8; ++round) {
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(ends[0]);
            writeUntilKilled(home.path(), next, ends[1]);
        }
        ::close(ends[1]);
        int number = 0;
        const auto receive = [&] {
            if (::read(ends[0], &number, sizeof number) != sizeof number) return false;
            flushed.insert(number);
            next = number + 1;
            return true;
        };
        for (int i = 0; i < 5; ++i) EXPECT_TRUE(receive());
        // Somewhere within the work on the next clip.
        std::this_thread::sleep_for(std::chrono::microseconds(700 * round));
        ::kill(child, SIGKILL);
        while (receive()) {
        }
        ::close(ends[0]);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));
        // The one that was under way may or may not have come through.
        ++next;

        WavCache cache(home.path(), 0);
        for (const int known : flushed) {
            const std::string key = "clip" + std::to_string(known);
            const auto hit = cache.tryGet(key);
            ASSERT_TRUE(hit) << key;
            EXPECT_EQ(asText(hit->wav),
                      asText(wavOfSize(clipSize, static_cast<std::uint8_t>(known))));
            EXPECT_EQ(cache.snapshot()[key].text, "text of " + key);
        }
        for (const auto& [key, entry] : cache.snapshot()) {
            const auto audio = cache.readAudio(key);
            ASSERT_TRUE(audio) << key;
            EXPECT_TRUE(parseWav(*audio)) << key;
        }
        for (const auto& file : std::filesystem::directory_iterator(home.path()))
            EXPECT_FALSE(isTemporaryName(file.path().filename().string())) << file.path();
        expectInvariants(cache);
    }
}

// A limit on the size of files fails a write in its middle, as a full disk does.
TEST(CacheCrash, FullDiskLosesThatClipOnly) {
    const TempDir home;
    WavCache cache(home.path(), 0);
    putClip(cache, "before", 30000);
    cache.flush();
    AppLog::clear();

    rlimit usual{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &usual), 0);
    const auto old = std::signal(SIGXFSZ, SIG_IGN);
    rlimit tight = usual;
    tight.rlim_cur = 20000;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
    putClip(cache, "lost", 30000);
    putClip(cache, "before", 40000);
    tight.rlim_cur = 100;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
    EXPECT_FALSE(cache.remove("lost"));
    putClip(cache, "small", 60);
    cache.flush();
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &usual), 0);
    std::signal(SIGXFSZ, old);

    const auto lines = warnings();
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[0].find("cannot write cache to " + home.path()), 0U);
    EXPECT_EQ(lines[2].find("cannot write cache index: "), 0U);
    EXPECT_FALSE(cache.contains("lost"));
    EXPECT_EQ(asText(cache.tryGet("before")->wav), asText(wavOfSize(30000)));
    EXPECT_TRUE(cache.tryGet("small"));
    EXPECT_EQ(cache.stats().bytes, 30060);

    // With room again the index is written, though nothing has changed since.
    cache.flush();
    EXPECT_EQ(WavCache(home.path(), 0).snapshot()["small"].text, "text of small");
}

}  // namespace
}  // namespace zepho
