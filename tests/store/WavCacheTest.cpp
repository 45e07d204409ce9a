#include <algorithm>
#include <filesystem>
#include <random>
#include <thread>

#include "core/platform/Unicode.h"
#include "tests/store/CacheTestSupport.h"

namespace zepho::test {
namespace {

TEST(WavCache, GivesBackWhatWasPutAlsoAfterARestart) {
    const TempDir home;
    std::string longText;
    for (int i = 0; i < 250; ++i) longText += "é🛫";
    TtsResult clip;
    clip.wav = wavOfSize(1000);
    clip.sampleRate = 8000;
    clip.durationMs = 77;
    clip.voiceId = "voice";
    clip.language = "ja";
    clip.speed = 1.25F;
    {
        WavCache cache(home.file("cache"), 0);
        EXPECT_FALSE(cache.tryGet("K"));
        cache.put("K", longText + "\xff", clip);
        // Reading the audio counts nowhere; an empty clip is not kept; switched off, nothing moves.
        EXPECT_EQ(asText(*cache.readAudio("K")), asText(wavOfSize(1000)));
        cache.put("empty", "", TtsResult());
        cache.enabled = false;
        putClip(cache, "off", 100);
        EXPECT_FALSE(cache.tryGet("K"));
        EXPECT_TRUE(cache.contains("K"));
        cache.enabled = true;
        EXPECT_TRUE(cache.tryGet("K"));
        EXPECT_EQ(cache.stats().hitRate(), 0.5);
        expectInvariants(cache);
        cache.flush();
    }
    WavCache cache(home.file("cache"), 0);
    EXPECT_EQ(graphemeCount(cache.snapshot()["K"].text), 200U);
    const auto hit = cache.tryGet("K");
    ASSERT_TRUE(hit);
    EXPECT_EQ(asText(hit->wav), asText(wavOfSize(1000)));
    EXPECT_EQ(hit->sampleRate, 8000);
    EXPECT_EQ(hit->durationMs, 77);
    EXPECT_EQ(hit->voiceId + hit->language, "voiceja");
    EXPECT_EQ(hit->speed, 1.25F);
    EXPECT_EQ(hit->etag, "K");
    EXPECT_TRUE(hit->fromCache);
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
    for (int i = 0; i < 3; ++i) EXPECT_EQ(get(), asText(wavOfSize(100)));
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
    std::filesystem::remove(home.file("k.wav"));
    EXPECT_FALSE(cache.readAudio("k"));
    EXPECT_TRUE(cache.contains("k"));
    EXPECT_EQ(get(), "(miss)");
    EXPECT_EQ(warnings(),
              std::vector<std::string>{"cannot read cache file (k.wav), dropping the entry"});
    EXPECT_EQ(cache.stats().misses, 1);
    EXPECT_EQ(cache.stats().bytes, 0);
    putClip(cache, "k", 60, 9);
    EXPECT_EQ(get(), asText(wavOfSize(60, 9)));
}

TEST(WavCache, ClearTakesEveryClipAndNothingElse) {
    const TempDir home;
    WavCache cache(home.path(), 0);
    putClip(cache, "a", 100);
    // Files that the index never knew go as well; what is no clip stays.
    writeFile(home.file("unknown.wav"), "x");
    writeFile(home.file("notes.txt"), "x");
    AppLog::clear();
    cache.clear();
    EXPECT_TRUE(warnings().empty());
    EXPECT_FALSE(fileExists(home.file("unknown.wav")));
    EXPECT_TRUE(fileExists(home.file("notes.txt")));

    // A directory that is not empty cannot be deleted as a file can.
    putClip(cache, "c", 100);
    writeFile(home.file("stuck.wav/inside"), "x");
    cache.clear();
    EXPECT_EQ(warnings(),
              std::vector<std::string>{"cache cleared, but 1 file(s) could not be deleted; they "
                                       "will reappear on the next start"});
    EXPECT_EQ(readFile(home.file("index.json")), "{}");
    expectInvariants(cache);

    // Where nothing can be written, nothing to write is no failure; the emptied cache is one, and
    // stays to be written.
    AppLog::clear();
    WavCache homeless(home.file("notes.txt/cache/"), 1000);
    putClip(homeless, "a", 100);
    homeless.flush();
    EXPECT_EQ(warnings().size(), 1U);
    homeless.clear();
    homeless.flush();
    EXPECT_EQ(warnings().size(), 3U);
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
    const auto drop = [&](const std::string& key) {
        return std::erase_if(model, [&](const Kept& kept) { return kept.key == key; }) == 1;
    };
    const auto evict = [&] {
        std::int64_t total = 0;
        for (const Kept& kept : model) total += kept.size;
        for (; budget > 0 && total > budget; ++evictions) {
            total -= model.front().size;
            model.erase(model.begin());
        }
    };
    std::mt19937 random(7);
    for (int step = 0; step < 800; ++step) {
        const std::string key = "key" + std::to_string(random() % 12);
        // Few sizes, so that the budget is often met to the byte.
        const std::int64_t size = 100 * (1 + static_cast<std::int64_t>(random() % 5));
        const unsigned what = random() % 128;
        if (what < 8) {
            EXPECT_EQ(cache.remove(key), drop(key));
        } else if (what < 16) {
            budget = static_cast<std::int64_t>(random() % 5) * 400 - 400;
            cache.setBudget(budget);
            evict();
        } else if (what < 17) {
            cache.clear();
            model.clear();
        } else if (what < 50) {
            putClip(cache, key, static_cast<std::size_t>(size));
            if (budget > 0 && size > budget) continue;
            drop(key);
            model.push_back({key, size});
            evict();
        } else {
            const auto found = std::find_if(model.begin(), model.end(),
                                            [&](const Kept& kept) { return kept.key == key; });
            const bool isThere = found != model.end();
            ASSERT_EQ(cache.readAudio(key).has_value(), isThere);
            if (what < 60) continue;  // which is no use of the clip
            const auto hit = cache.tryGet(key);
            ASSERT_EQ(hit.has_value(), isThere);
            if (!hit) continue;
            EXPECT_EQ(static_cast<std::int64_t>(hit->wav.size()), found->size);
            std::rotate(found, found + 1, model.end());
        }
        auto entries = cache.snapshot();
        ASSERT_EQ(entries.size(), model.size());
        std::size_t files = 0;
        for (const auto& file : std::filesystem::directory_iterator(home.path()))
            files += file.path().extension() == ".wav" ? 1 : 0;
        EXPECT_EQ(files, model.size());
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
                    const int fill = static_cast<int>(number);
                    const std::size_t size = 200 + 60 * number;
                    const unsigned what = random() % 12;
                    if (what == 0) cache.remove(key);
                    if (what == 1) cache.flush();
                    if (what == 2 && step % 50 == 0) cache.clear();
                    if (what == 3) cache.setBudget(1000 + static_cast<int>(random() % 5000));
                    if (what < 7) putClip(cache, key, size, fill);
                    // Whatever the others do, a clip is whole and its own.
                    if (const auto hit = cache.tryGet(key)) {
                        EXPECT_EQ(asText(hit->wav), asText(wavOfSize(size, fill)));
                    }
                }
            });
        for (std::thread& thread : threads) thread.join();
        expectInvariants(cache);
        for (const auto& [key, entry] : cache.snapshot()) EXPECT_TRUE(cache.readAudio(key)) << key;
        cache.flush();
    }
    const WavCache again(home.path(), 0);
    expectInvariants(again);
    for (const auto& [key, entry] : again.snapshot()) EXPECT_TRUE(again.readAudio(key)) << key;
}

TEST(HotClips, KeepsTheLatestWithinItsCapacity) {
    const FileIdentity identity{1, 2, 3, 4, 5};
    HotClips hot(1000);
    for (const char* key : {"a", "b"}) hot.add(key, identity, SharedBytes(Bytes(400)));
    EXPECT_TRUE(hot.find("a", identity));
    hot.add("c", identity, SharedBytes(Bytes(400)));
    EXPECT_FALSE(hot.find("b", identity));
    hot.add("a", identity, SharedBytes(Bytes(600)));
    EXPECT_EQ(hot.find("a", identity)->size(), 600U);
    hot.add("large", identity, SharedBytes(Bytes(1001)));
    EXPECT_EQ(hot.bytes(), 1000U);
    hot.drop("a");
    EXPECT_EQ(hot.bytes(), 400U);
}

}  // namespace
}  // namespace zepho::test
