#include <algorithm>
#include <filesystem>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "core/diag/AppLog.h"
#include "core/platform/Files.h"
#include "core/store/WavCache.h"
#include "tests/store/CacheTestSupport.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

using test::expectInvariants;
using test::putClip;
using test::readFile;
using test::TempDir;
using test::warnings;
using test::wavOfSize;
using test::writeFile;

TEST(WavCache, GivesBackWhatWasPut) {
    const TempDir home;
    WavCache cache(home.file("cache"), 0);
    EXPECT_EQ(cache.directory(), home.file("cache/"));
    EXPECT_EQ(cache.stats().hitRate(), 0.0);
    EXPECT_FALSE(cache.tryGet("K"));
    putClip(cache, "K", 1000);

    const auto hit = cache.tryGet("K");
    ASSERT_TRUE(hit);
    EXPECT_EQ(asText(hit->wav), asText(wavOfSize(1000)));
    EXPECT_EQ(hit->sampleRate, 8000);
    EXPECT_EQ(hit->channels, 1);
    EXPECT_EQ(hit->durationMs, 77);
    EXPECT_EQ(hit->synthMs, 0);
    EXPECT_EQ(hit->voiceId, "voice");
    EXPECT_EQ(hit->language, "ja");
    EXPECT_EQ(hit->gender, TtsGender::auto_);
    EXPECT_EQ(hit->speed, 1.25F);
    EXPECT_EQ(hit->engine, "");
    EXPECT_EQ(hit->etag, "K");
    EXPECT_TRUE(hit->fromCache);
    EXPECT_EQ(cache.stats().hitRate(), 0.5);

    // Reading the audio counts nowhere; an empty clip is not kept; switched off, nothing moves.
    EXPECT_EQ(asText(*cache.readAudio("K")), asText(wavOfSize(1000)));
    EXPECT_FALSE(cache.readAudio("other"));
    cache.put("empty", "", TtsResult());
    cache.enabled = false;
    putClip(cache, "off", 100);
    EXPECT_FALSE(cache.tryGet("K"));
    EXPECT_TRUE(cache.contains("K"));
    cache.enabled = true;
    const CacheStats stats = cache.stats();
    EXPECT_EQ(stats.count, 1);
    EXPECT_EQ(stats.hits, 1);
    EXPECT_EQ(stats.misses, 1);
    expectInvariants(cache);
}

TEST(WavCache, BudgetIsKeptToTheByte) {
    const TempDir home;
    WavCache cache(home.path(), 1000);
    putClip(cache, "big", 2000);
    EXPECT_EQ(cache.stats().count, 0);
    EXPECT_FALSE(fileExists(home.file("big.wav")));

    for (const char* key : {"a", "b", "c", "d"}) putClip(cache, key, 250);
    EXPECT_EQ(cache.stats().evictions, 0);
    EXPECT_EQ(cache.stats().bytes, 1000);
    cache.setBudget(999);
    EXPECT_FALSE(cache.contains("a"));
    EXPECT_FALSE(fileExists(home.file("a.wav")));
    EXPECT_EQ(cache.stats().bytes, 750);
    EXPECT_EQ(cache.stats().evictions, 1);

    // A clip too large for the budget evicts nothing; one that fits evicts no more than it must.
    putClip(cache, "big", 1000);
    EXPECT_EQ(cache.stats().count, 3);
    putClip(cache, "e", 450);
    EXPECT_FALSE(cache.contains("b"));
    EXPECT_TRUE(cache.contains("c"));
    expectInvariants(cache);

    // The same key with a shorter clip.
    putClip(cache, "e", 300);
    EXPECT_EQ(cache.stats().bytes, 800);
    EXPECT_EQ(cache.stats().evictions, 2);

    cache.setBudget(-5);
    EXPECT_EQ(cache.stats().budgetBytes, 0);
    for (int i = 0; i < 20; ++i) putClip(cache, "more" + std::to_string(i), 1000);
    EXPECT_EQ(cache.stats().evictions, 2);
    expectInvariants(cache);
}

TEST(WavCache, UseProtectsFromEvictionAndReadingDoesNot) {
    const TempDir home;
    WavCache cache(home.path(), 0);
    for (const char* key : {"a", "b", "c"}) putClip(cache, key, 100);
    ASSERT_TRUE(cache.tryGet("a"));
    ASSERT_TRUE(cache.readAudio("b"));
    cache.setBudget(200);
    EXPECT_TRUE(cache.contains("a"));
    EXPECT_FALSE(cache.contains("b"));
    putClip(cache, "d", 100);
    EXPECT_TRUE(cache.contains("a"));
    EXPECT_FALSE(cache.contains("c"));
}

// Whether from memory or from disk, a hit is what the file holds now.
TEST(WavCache, NoticesVanishedAndReplacedFiles) {
    const TempDir home;
    WavCache cache(home.path(), 0);
    const auto get = [&] {
        const auto hit = cache.tryGet("k");
        return hit ? std::string(asText(hit->wav)) : std::string("(miss)");
    };
    // Let the times of the file come to rest, so that the cache trusts its copies.
    const auto rest = [&] {
        const auto old = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
        std::filesystem::last_write_time(home.file("k.wav"), old);
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
    };
    putClip(cache, "k", 100);
    rest();
    const std::string first(asText(wavOfSize(100)));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(get(), first);
    EXPECT_EQ(cache.tryGet("k")->wav.data(), cache.tryGet("k")->wav.data());

    // Damaged in place, the same size: served as it is.
    {
        std::FILE* file = std::fopen(home.file("k.wav").c_str(), "r+b");
        ASSERT_NE(file, nullptr);
        std::fputs("damaged", file);
        std::fclose(file);
    }
    EXPECT_EQ(get().substr(0, 7), "damaged");
    rest();
    EXPECT_EQ(get().substr(0, 7), "damaged");
    // Replaced as a whole, at an age that tells nothing.
    writeFile(home.file("k.wav"), "other");
    rest();
    EXPECT_EQ(get(), "other");
    EXPECT_EQ(get(), "other");

    AppLog::clear();
    const CacheStats before = cache.stats();
    std::filesystem::remove(home.file("k.wav"));
    EXPECT_FALSE(cache.readAudio("k"));
    EXPECT_TRUE(cache.contains("k"));
    EXPECT_EQ(get(), "(miss)");
    EXPECT_EQ(warnings(),
              std::vector<std::string>{"cannot read cache file (k.wav), dropping the entry"});
    EXPECT_FALSE(cache.contains("k"));
    EXPECT_EQ(cache.stats().misses, before.misses + 1);
    EXPECT_EQ(cache.stats().bytes, 0);
    putClip(cache, "k", 60, 9);
    EXPECT_EQ(get(), asText(wavOfSize(60, 9)));
}

TEST(WavCache, RemoveAndClear) {
    const TempDir home;
    WavCache cache(home.path(), 0);
    putClip(cache, "a", 100);
    putClip(cache, "b", 100);
    ASSERT_TRUE(cache.tryGet("a"));
    EXPECT_TRUE(cache.remove("a"));
    EXPECT_FALSE(cache.remove("a"));
    EXPECT_FALSE(fileExists(home.file("a.wav")));
    EXPECT_EQ(readFile(home.file("index.json")).find("\"a\""), std::string::npos);

    // Files that the index never knew go as well; what is no clip stays.
    writeFile(home.file("unknown.wav"), "x");
    writeFile(home.file("notes.txt"), "x");
    AppLog::clear();
    cache.clear();
    EXPECT_TRUE(warnings().empty());
    EXPECT_FALSE(fileExists(home.file("b.wav")));
    EXPECT_FALSE(fileExists(home.file("unknown.wav")));
    EXPECT_TRUE(fileExists(home.file("notes.txt")));
    EXPECT_EQ(readFile(home.file("index.json")), "{}");
    EXPECT_EQ(cache.stats().hits, 1);

    // A directory that is not empty cannot be deleted as a file can.
    putClip(cache, "c", 100);
    writeFile(home.file("stuck.wav/inside"), "x");
    cache.clear();
    EXPECT_EQ(warnings(),
              std::vector<std::string>{"cache cleared, but 1 file(s) could not be deleted; they "
                                       "will reappear on the next start"});
    EXPECT_EQ(cache.stats().count, 0);
    EXPECT_EQ(readFile(home.file("index.json")), "{}");
    expectInvariants(cache);
}

// Random operations against a list ordered by use.
TEST(WavCache, AgreesWithASimpleModel) {
    struct Kept {
        std::string key;
        std::int64_t size;
    };
    const TempDir home;
    WavCache cache(home.path(), 0);
    std::vector<Kept> model;  // the latest use last
    std::int64_t budget = 0;
    std::int64_t evictions = 0;
    const auto place = [&](const std::string& key) {
        return std::find_if(model.begin(), model.end(),
                            [&](const Kept& kept) { return kept.key == key; });
    };
    const auto evict = [&] {
        const auto total = [&] {
            std::int64_t sum = 0;
            for (const Kept& kept : model) sum += kept.size;
            return sum;
        };
        while (budget > 0 && total() > budget) {
            model.erase(model.begin());
            ++evictions;
        }
    };
    std::mt19937 random(7);
    for (int step = 0; step < 800; ++step) {
        const std::string key = "key" + std::to_string(random() % 12);
        const std::int64_t size = 46 + 2 * static_cast<std::int64_t>(random() % 100);
        switch (random() % 16) {
            case 0:
                EXPECT_EQ(cache.remove(key), place(key) != model.end());
                std::erase_if(model, [&](const Kept& kept) { return kept.key == key; });
                break;
            case 1:
                budget = static_cast<std::int64_t>(random() % 4) * 400;
                cache.setBudget(budget);
                evict();
                break;
            case 2:
                if (random() % 8 != 0) break;
                cache.clear();
                model.clear();
                break;
            case 3:
            case 4:
            case 5:
            case 6:
                putClip(cache, key, static_cast<std::size_t>(size));
                if (budget > 0 && size > budget) break;
                std::erase_if(model, [&](const Kept& kept) { return kept.key == key; });
                model.push_back({key, size});
                evict();
                break;
            case 7:
                EXPECT_EQ(cache.readAudio(key).has_value(), place(key) != model.end());
                break;
            default: {
                const auto hit = cache.tryGet(key);
                const auto found = place(key);
                ASSERT_EQ(hit.has_value(), found != model.end());
                if (!hit) break;
                EXPECT_EQ(static_cast<std::int64_t>(hit->wav.size()), found->size);
                std::rotate(found, found + 1, model.end());
            }
        }
        if (step % 20 != 0) continue;
        auto entries = cache.snapshot();
        ASSERT_EQ(entries.size(), model.size());
        std::int64_t before = 0;
        for (const Kept& kept : model) {
            ASSERT_EQ(entries[kept.key].bytes, kept.size);
            EXPECT_GT(entries[kept.key].stamp, before);
            before = entries[kept.key].stamp;
        }
        EXPECT_EQ(cache.stats().evictions, evictions);
        expectInvariants(cache);
    }
    EXPECT_GT(evictions, 0);
}

TEST(WavCache, ManyThreads) {
    const TempDir home;
    {
        WavCache cache(home.path(), 3000);
        std::vector<std::thread> threads;
        for (unsigned seed = 1; seed <= 4; ++seed)
            threads.emplace_back([&cache, seed] {
                std::mt19937 random(seed);
                for (int step = 0; step < 150; ++step) {
                    const unsigned number = random() % 10;
                    const std::string key = "key" + std::to_string(number);
                    const auto fill = static_cast<std::uint8_t>(number);
                    const std::size_t size = 200 + 60 * number;
                    switch (random() % 12) {
                        case 0:
                            cache.remove(key);
                            break;
                        case 1:
                            cache.flush();
                            break;
                        case 2:
                            if (step % 50 == 0) cache.clear();
                            break;
                        case 3:
                            cache.setBudget(1000 + static_cast<std::int64_t>(random() % 5000));
                            break;
                        case 4:
                        case 5:
                        case 6:
                            putClip(cache, key, size, fill);
                            break;
                        default:
                            // Whatever the others do, a clip is whole and its own.
                            if (const auto hit = cache.tryGet(key)) {
                                EXPECT_EQ(asText(hit->wav), asText(wavOfSize(size, fill)));
                            }
                    }
                }
            });
        for (std::thread& thread : threads) thread.join();
        expectInvariants(cache);
        cache.flush();
    }
    const WavCache again(home.path(), 0);
    expectInvariants(again);
    for (const auto& [key, entry] : again.snapshot()) EXPECT_TRUE(again.readAudio(key)) << key;
}

TEST(HotClips, KeepsTheLatestWithinItsCapacity) {
    const FileIdentity identity{1, 2, 3, 4, 5};
    FileIdentity changed = identity;
    changed.changedNs = 6;
    HotClips hot(1000);
    const SharedBytes clip(Bytes(400));
    hot.add("a", identity, clip);
    hot.add("b", identity, clip);
    EXPECT_EQ(hot.find("a", identity)->data(), clip.data());
    hot.add("c", identity, clip);
    EXPECT_FALSE(hot.find("b", identity));
    EXPECT_TRUE(hot.find("a", identity));
    EXPECT_FALSE(hot.find("a", changed));
    hot.add("a", changed, SharedBytes(Bytes(600)));
    EXPECT_EQ(hot.bytes(), 1000U);
    EXPECT_EQ(hot.find("a", changed)->size(), 600U);
    hot.add("large", identity, SharedBytes(Bytes(1001)));
    EXPECT_EQ(hot.bytes(), 1000U);
    hot.drop("a");
    hot.drop("a");
    EXPECT_EQ(hot.bytes(), 400U);
    hot.clear();
    EXPECT_EQ(hot.bytes(), 0U);
    EXPECT_FALSE(hot.find("c", identity));
}

}  // namespace
}  // namespace zepho
