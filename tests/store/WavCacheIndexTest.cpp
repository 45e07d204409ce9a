#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <random>
#include <set>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/diag/AppLog.h"
#include "core/platform/Files.h"
#include "core/store/CacheIndex.h"
#include "core/store/CacheIndexReader.h"
#include "core/store/FileNames.h"
#include "core/store/OwnIndexReader.h"
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

std::map<std::string, std::string> byKey(const std::vector<CacheRecordPointer>& list) {
    std::map<std::string, std::string> lines;
    for (const CacheRecordPointer& record : list) {
        const CacheEntry entry = record->entry();
        lines[std::string(record->key)] =
            Json({entry.fileName, entry.voiceId, entry.text, entry.language, entry.speed,
                  entry.sampleRate, entry.durationMs, entry.bytes})
                .dump();
    }
    return lines;
}

TEST(CacheIndex, TextIsWhatTheJsonLibraryWrites) {
    const TempDir home;
    std::vector<CacheRecordPointer> records;
    const auto add = [&](const std::string& key, const std::string& text, float speed) {
        CacheEntry entry;
        entry.fileName = key + ".wav";
        entry.text = text;
        entry.speed = speed;
        entry.bytes = INT64_MAX;
        records.push_back(makeCacheRecord(key, entry));
    };
    std::string controls;
    for (char c = 1; c < 0x21; ++c) controls += c;
    add("z", controls + "\x7f\"\\/", 1.0F);
    add("b", "航班 ✈ \xF0\x9F\x9B\xAB", 0.8F);
    add("a", "", 1.0F / 3);
    add("B", "x", -0.0004F);
    add("bad\xff", "", 1.0F);
    add("nan", "", std::numeric_limits<float>::quiet_NaN());
    saveCacheIndex(home.file("index.json"), records);

    const std::string text = readFile(home.file("index.json"));
    const auto parsed = parseJsonObject(text);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(text, jsonString(*parsed, true));
    EXPECT_EQ((*parsed)["z"]["text"], controls + "\x7f\"\\/");
    EXPECT_EQ((*parsed)["a"]["speed"], 0.333);
    EXPECT_EQ((*parsed)["b"]["speed"], 0.8);
    // What JSON cannot hold is left out, and takes nothing else with it.
    EXPECT_EQ(parsed->size(), 5U);

    const auto loaded = loadCacheIndex(home.file("index.json"));
    ASSERT_TRUE(loaded);
    records.resize(4);
    EXPECT_EQ(byKey(*loaded)["z"], byKey(records)["z"]);
    EXPECT_EQ(byKey(*loaded)["b"], byKey(records)["b"]);
}

// However the file is cut up on its way; an end too soon is none.
void expectReadInPieces(const std::string& text, const std::vector<CacheRecordPointer>& records) {
    for (const std::size_t size : {std::size_t{1}, std::size_t{97}, text.size()}) {
        OwnIndexReader reader;
        for (std::size_t pos = 0; pos < text.size(); pos += size) {
            ASSERT_FALSE(reader.isComplete());
            ASSERT_TRUE(reader.take(std::string_view(text).substr(pos, size))) << pos;
        }
        ASSERT_TRUE(reader.isComplete());
        EXPECT_EQ(byKey(reader.records()), byKey(records));
        static_cast<void>(reader.take("\n"));
        EXPECT_FALSE(reader.isComplete());
    }
}

// The reader has a short way for the text that the cache itself writes. Whatever happens to a byte of
// it, the answer is the one that the JSON library gives.
TEST(CacheIndex, OwnFormReadsAsTheJsonLibraryDoes) {
    const TempDir home;
    std::vector<CacheRecordPointer> records;
    for (int i = 0; i < 2; ++i) {
        const std::string key = "key" + std::to_string(i);
        records.push_back(makeCacheRecord(
            key, {key + ".wav", "v", "a \"q\" \\ \n é", "zh", 0.85F, 44100, 1200, 90, 0}));
    }
    saveCacheIndex(home.file("index.json"), records);
    const std::string text = readFile(home.file("index.json"));

    const std::string replacements = "09-.e\"\\{},: u\n\x01\xff";
    int accepted = 0;
    for (std::size_t pos = 0; pos <= text.size(); ++pos) {
        for (const char byte : replacements) {
            std::string changed = text;
            if (pos < text.size() && pos % 2 == 0)
                changed[pos] = byte;
            else
                changed.insert(pos, 1, byte);
            const auto read = readIndexText(changed);
            const auto parsed = parseJsonObject(changed);
            ASSERT_EQ(read.has_value(), parsed.has_value()) << changed;
            if (!read) continue;
            ++accepted;
            const auto plain = readAnyIndexText(changed);
            ASSERT_TRUE(plain);
            ASSERT_EQ(byKey(*read), byKey(*plain)) << changed;
        }
    }
    EXPECT_GT(accepted, 500);
    ASSERT_TRUE(readIndexText(text));
    EXPECT_EQ(byKey(*readIndexText(text)), byKey(records));
    expectReadInPieces(text, records);
    for (int i = 0; i < 600; ++i) {
        const std::string key = "k" + std::to_string(i * 7919 % 1000);
        records.push_back(makeCacheRecord(
            key, {i % 5 == 0 ? "other" + key : key + ".wav", "voice", std::string(i % 100, '\n'),
                  i % 3 == 0 ? "zh" : "", 1, i, i * 1000000000000, i, 0}));
    }
    saveCacheIndex(home.file("index.json"), records);
    expectReadInPieces(readFile(home.file("index.json")), records);
    EXPECT_EQ(byKey(*loadCacheIndex(home.file("index.json"))), byKey(records));
    // One that is far from our form is not collected in vain.
    OwnIndexReader reader;
    EXPECT_FALSE(reader.take("{ \"" + std::string(100000, 'x')));
}

TEST(CacheIndex, NamesAreFoundInAnyOrder) {
    std::mt19937 random(1);
    std::set<std::string> there;
    FileNames names;
    while (there.size() < 500) {
        std::string name(random() % 12, 'a');
        for (char& byte : name) byte = "ab\xff"[random() % 3];
        if (there.insert(name).second) names.add(name);
    }
    names.sort();
    std::vector<std::string> asked(there.begin(), there.end());
    for (const std::string& name : there) asked.push_back(name + "b");
    for (int round = 0; round < 3; ++round) {
        for (const std::string& name : asked) {
            const FileNames::Name* const found = names.find(name);
            ASSERT_EQ(found != nullptr, there.contains(name));
            ASSERT_TRUE(found == nullptr || names.text(*found) == name);
        }
        std::shuffle(asked.begin(), asked.end(), random);
    }
}

TEST(CacheIndex, IsWrittenAtMostOnceInTwoSeconds) {
    const TempDir home;
    WavCache cache(home.path(), 0);
    // On a disk that takes longer for all this, the second put may write as well.
    const auto begun = std::chrono::steady_clock::now();
    putClip(cache, "a", 100);
    const std::string first = readFile(home.file("index.json"));
    putClip(cache, "b", 100);
    const bool soon = std::chrono::steady_clock::now() - begun < std::chrono::milliseconds(1500);
    if (soon) {
        EXPECT_EQ(readFile(home.file("index.json")), first);
    }
    cache.flush();
    EXPECT_EQ(parseJsonObject(readFile(home.file("index.json")))->size(), 2U);
    if (soon) {
        EXPECT_EQ(readFile(home.file("index.json.bak")), first);
    }

    const auto index = fileIdentity(home.file("index.json"));
    ASSERT_TRUE(cache.tryGet("a"));
    cache.flush();
    EXPECT_EQ(fileIdentity(home.file("index.json")), index);
}

TEST(CacheIndex, IsWrittenOnceForManyThatAreRemoved) {
    const TempDir home;
    WavCache cache(home.path(), 0);
    for (const char* key : {"a", "b", "c", "d"}) putClip(cache, key, 100);
    cache.flush();
    const std::string before = readFile(home.file("index.json"));
    EXPECT_EQ(cache.remove(std::vector<std::string>{"a", "none", "c", "a"}), 2U);
    EXPECT_FALSE(cache.contains("a"));
    EXPECT_FALSE(fileExists(home.file("c.wav")));
    EXPECT_EQ(cache.stats().bytes, 200);
    EXPECT_EQ(parseJsonObject(readFile(home.file("index.json")))->size(), 2U);
    // The backup is the index of the write before.
    EXPECT_EQ(readFile(home.file("index.json.bak")), before);

    const auto index = fileIdentity(home.file("index.json"));
    EXPECT_EQ(cache.remove(std::vector<std::string>{"none"}), 0U);
    EXPECT_EQ(cache.remove(std::vector<std::string>()), 0U);
    EXPECT_EQ(fileIdentity(home.file("index.json")), index);
    expectInvariants(cache);
}

TEST(CacheIndex, DamagedIndexIsRecoveredFromTheBackup) {
    const TempDir home;
    {
        WavCache cache(home.path(), 0);
        putClip(cache, "old", 100);
        cache.flush();
        putClip(cache, "new", 200);
        cache.flush();
    }
    std::filesystem::resize_file(home.file("index.json"), 10);
    AppLog::clear();
    {
        const WavCache cache(home.path(), 0);
        EXPECT_EQ(warnings(), (std::vector<std::string>{
                                  "cache index is not valid JSON: index.json",
                                  "main cache index was unusable, recovered from the backup"}));
        const auto entries = cache.snapshot();
        ASSERT_EQ(entries.size(), 2U);
        EXPECT_EQ(entries.at("old").text, "text of old");
        EXPECT_EQ(entries.at("new").text, "");
        EXPECT_EQ(entries.at("new").speed, 1.0F);
        EXPECT_EQ(entries.at("new").bytes, 200);
        EXPECT_EQ(entries.at("new").sampleRate, 8000);
    }
    // Both damaged: every clip that is one is adopted.
    writeFile(home.file("index.json"), "[]");
    writeFile(home.file("index.json.bak"), "{\"old\": {\"file\": \"old.wav\"}} trailing");
    writeFile(home.file("noise.wav"), "this is not a WAV");
    writeFile(home.file(".wav"), asText(wavOfSize(100)));
    writeFile(home.file("old.wav.zepho-tmp-1-1"), asText(wavOfSize(100)));
    AppLog::clear();
    WavCache cache(home.path(), 0);
    EXPECT_EQ(warnings().size(), 2U);
    EXPECT_EQ(AppLog::snapshot()[2].text,
              "adopted 2 cached clip(s) that the index did not know about");
    EXPECT_EQ(cache.stats().bytes, 300);
    EXPECT_TRUE(fileExists(home.file("noise.wav")));
    EXPECT_TRUE(fileExists(home.file(".wav")));
    EXPECT_FALSE(fileExists(home.file("old.wav.zepho-tmp-1-1")));
    cache.flush();
    EXPECT_EQ(parseJsonObject(readFile(home.file("index.json")))->size(), 2U);
    expectInvariants(cache);
}

TEST(CacheIndex, HostileLinesReachNoOtherFileAndBreakNoSum) {
    const TempDir home;
    const std::string dir = home.file("cache/");
    writeFile(home.file("secret.wav"), asText(wavOfSize(100)));
    writeFile(dir + "sub/inner.wav", asText(wavOfSize(100)));
    for (const char* key : {"a", "b", "c", "d"})
        writeFile(dir + key + ".wav", asText(wavOfSize(100)));
    writeFile(dir + "index.json", R"({
        "up": {"file": "../secret.wav", "bytes": 1}, "dots": {"file": "..", "bytes": 1},
        "down": {"file": "sub/inner.wav", "bytes": 1}, "self": {"file": "index.json", "bytes": 1},
        "a": {"file": "a.wav", "bytes": 9223372036854775807, "sampleRate": 99999999999},
        "b": {"file": "b.wav", "bytes": 9223372036854775807, "durationMs": -5},
        "c": {"file": "c.wav", "bytes": -9223372036854775808, "speed": 1e300},
        "d": {"file": "d.wav", "bytes": 1e30},
        "gone": {"file": "gone.wav", "bytes": 1000}, "nameless": {"bytes": 1000},
        "number": 5, "list": [{"file": "d.wav"}], "Loose": {"file": "a.wav", "bytes": 1},
        "Loose": {"file": "d.wav", "voice": 12, "text": null, "language": {"text": "x"},
                  "speed": "0.5", "sampleRate": 44100.9, "durationMs": "30", "bytes": 5,
                  "extra": {"file": "c.wav"}}})");
    WavCache cache(dir, 0);
    EXPECT_EQ(cache.stats().count, 5);
    const CacheEntry loose = cache.snapshot()["Loose"];
    EXPECT_EQ(loose.fileName + "|" + loose.voiceId + "|" + loose.text + "|" + loose.language,
              "d.wav|12||");
    EXPECT_EQ(loose.speed, 0.5F);
    EXPECT_EQ(loose.sampleRate, 44100);
    EXPECT_EQ(loose.durationMs, 30);
    for (const char* key : {"up", "dots", "down", "self"}) {
        EXPECT_FALSE(cache.tryGet(key));
        EXPECT_FALSE(cache.remove(key));
    }
    expectInvariants(cache);
    putClip(cache, "e", 100);
    expectInvariants(cache);
    EXPECT_GT(cache.stats().bytes, 0);
    cache.setBudget(100);
    EXPECT_TRUE(cache.contains("e"));
    EXPECT_EQ(cache.stats().bytes, 100);
    expectInvariants(cache);
    cache.clear();
    EXPECT_TRUE(fileExists(home.file("secret.wav")));
    EXPECT_TRUE(fileExists(dir + "sub/inner.wav"));
}

}  // namespace
}  // namespace zepho
