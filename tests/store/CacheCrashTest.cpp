// What is left when the process is killed or the disk is full.
#include <csignal>
#include <filesystem>
#include <thread>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/audio/WavReader.h"
#include "tests/store/CacheTestSupport.h"

namespace zepho::test {
namespace {

constexpr std::size_t clipSize = 40000;

// Puts and flushes until it is killed, and tells each flushed number through `pipe`.
[[noreturn]] void writeUntilKilled(const std::string& dir, int first, int pipe) {
    WavCache cache(dir, 0);
    for (int number = first;; ++number) {
        // An old clip is written again and again, so that a replacement is cut short as well.
        putClip(cache, "again", clipSize + 2 * static_cast<std::size_t>(number % 50));
        putClip(cache, "clip" + std::to_string(number), clipSize, number % 256);
        cache.flush();
        if (::write(pipe, &number, sizeof number) != sizeof number) ::_exit(1);
    }
}

TEST(CacheCrash, KilledProcessLosesNothingThatWasFlushed) {
    const TempDir home;
    std::vector<int> flushed;
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
        const auto receive = [&] {
            int number = 0;
            if (::read(ends[0], &number, sizeof number) != sizeof number) return false;
            flushed.push_back(number);
            return true;
        };
        for (int i = 0; i < 5; ++i) ASSERT_TRUE(receive());
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
        next = flushed.back() + 2;

        WavCache cache(home.path(), 0);
        auto entries = cache.snapshot();
        for (const int known : flushed) {
            const std::string key = "clip" + std::to_string(known);
            const auto hit = cache.tryGet(key);
            ASSERT_TRUE(hit) << key;
            EXPECT_EQ(asText(hit->wav), asText(wavOfSize(clipSize, known % 256)));
            EXPECT_EQ(entries[key].text, "text of " + key);
        }
        for (const auto& [key, entry] : entries) {
            const auto audio = cache.readAudio(key);
            ASSERT_TRUE(audio && parseWav(*audio)) << key;
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
    const auto limitTo = [&](rlim_t bytes) {
        const rlimit limit{bytes, usual.rlim_max};
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    };
    const auto old = std::signal(SIGXFSZ, SIG_IGN);
    limitTo(20000);
    putClip(cache, "lost", 30000);
    putClip(cache, "before", 40000);
    limitTo(100);
    EXPECT_FALSE(cache.remove("lost"));
    putClip(cache, "small", 60);
    cache.flush();
    limitTo(usual.rlim_cur);
    std::signal(SIGXFSZ, old);

    const auto lines = warnings();
    ASSERT_GE(lines.size(), 3U);
    EXPECT_TRUE(lines[0].starts_with("cannot write cache to " + home.path()));
    EXPECT_TRUE(lines[2].starts_with("cannot write cache index: "));
    EXPECT_EQ(asText(cache.tryGet("before")->wav), asText(wavOfSize(30000)));
    EXPECT_TRUE(cache.tryGet("small"));
    EXPECT_EQ(cache.stats().bytes, 30060);

    // With room again the index is written, though nothing has changed since.
    cache.flush();
    EXPECT_EQ(WavCache(home.path(), 0).snapshot()["small"].text, "text of small");
}

}  // namespace
}  // namespace zepho::test
