#include <algorithm>
#include <filesystem>
#include <limits>
#include <random>
#include <set>

#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/store/CacheIndex.h"
#include "core/store/CacheIndexReader.h"
#include "core/store/FileNames.h"
#include "core/store/OwnIndexReader.h"
#include "tests/store/CacheTestSupport.h"

namespace zepho::test {
namespace {

// All that the index keeps of each record.
std::set<std::string> told(const std::vector<CacheRecordPointer>& list) {
    std::set<std::string> lines;
    for (const CacheRecordPointer& record : list)
        lines.insert(
            Json({record->key, record->fileName, record->voiceId, record->text, record->language,
                  record->speed, record->sampleRate, record->durationMs, record->bytes})
                .dump());
    EXPECT_EQ(lines.size(), list.size());
    return lines;
}

class CacheIndex : public testing::Test {
protected:
    // The text of an index of these records, which is in the file as well.
    std::string written(const std::vector<CacheRecordPointer>& records) {
        saveCacheIndex(path, records);
        return readFile(path);
    }
    [[nodiscard]] std::size_t linesOnDisk() const {
        return parseJsonObject(readFile(path)).value().size();
    }

    const TempDir home;
    const std::string path = home.file("index.json");
    const std::string backup = home.file("index.json.bak");
};

TEST_F(CacheIndex, TextIsWhatTheJsonLibraryWrites) {
    std::string controls = "\x7f\"\\/";
    for (char c = 1; c < 0x21; ++c) controls += c;
    const std::pair<std::string, float> speeds[] = {
        {"z", 1.0F},     {"b", 0.8F},    {"a", 1.0F / 3},
        {"B", -0.0004F}, {"bad\xff", 1}, {"nan", std::numeric_limits<float>::quiet_NaN()}};
    std::vector<CacheRecordPointer> records;
    for (const auto& [key, speed] : speeds)
        records.push_back(makeCacheRecord(
            key, {key + ".wav", "", key == "z" ? controls : "航班 ✈ \xF0\x9F\x9B\xAB", "", speed, 0,
                  0, INT64_MAX, 0}));
    const std::string text = written(records);
    const auto parsed = parseJsonObject(text);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(text, jsonString(*parsed, true));
    EXPECT_EQ((*parsed)["z"]["text"], controls);
    EXPECT_EQ((*parsed)["a"]["speed"], 0.333);
    EXPECT_EQ((*parsed)["b"]["speed"], 0.8);
    // What JSON cannot hold is left out, and takes nothing else with it.
    EXPECT_EQ(parsed->size(), 5U);
    records.resize(2);
    const auto loaded = told(loadCacheIndex(path).value());
    for (const std::string& line : told(records)) EXPECT_TRUE(loaded.contains(line)) << line;
}

// The reader has a short way for the text that the cache itself writes. Whatever happens to a byte of
// it, the answer is the one that the JSON library gives.
TEST_F(CacheIndex, OwnFormReadsAsTheJsonLibraryDoes) {
    std::vector<CacheRecordPointer> records;
    for (const std::string key : {"key0", "key1"})
        records.push_back(makeCacheRecord(
            key, {key + ".wav", "v", "a \"q\" \\ \n é", "zh", 0.85F, 44100, 1200, 90, 0}));
    const std::string text = written(records);
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
            ASSERT_EQ(read.has_value(), parseJsonObject(changed).has_value()) << changed;
            if (!read) continue;
            ++accepted;
            ASSERT_EQ(told(*read), told(readAnyIndexText(changed).value())) << changed;
        }
    }
    EXPECT_GT(accepted, 500);
    // One that is far from our form is not collected in vain.
    EXPECT_FALSE(OwnIndexReader().take("{ \"" + std::string(100000, 'x')));
}

// However the file is cut up on its way; an end too soon is none.
TEST_F(CacheIndex, OwnFormIsReadInPieces) {
    std::vector<CacheRecordPointer> records;
    for (int i = 0; i < 600; ++i) {
        const std::string key = "k" + std::to_string(i * 7919 % 1000);
        records.push_back(makeCacheRecord(
            key, {i % 5 == 0 ? "other" + key : key + ".wav", "voice", std::string(i % 100, '\n'),
                  i % 3 == 0 ? "zh" : "", 1, i, i * 1000000000000, i, 0}));
    }
    const std::string text = written(records);
    EXPECT_EQ(told(loadCacheIndex(path).value()), told(records));
    for (const std::size_t size : {1, 97, 100000}) {
        OwnIndexReader reader;
        for (std::size_t pos = 0; pos < text.size(); pos += size) {
            ASSERT_FALSE(reader.isComplete());
            ASSERT_TRUE(reader.take(std::string_view(text).substr(pos, size))) << pos;
        }
        ASSERT_TRUE(reader.isComplete());
        EXPECT_EQ(told(reader.records()), told(records));
        static_cast<void>(reader.take("\n"));
        EXPECT_FALSE(reader.isComplete());
    }
}

TEST(FileNames, AreFoundInAnyOrder) {
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

TEST_F(CacheIndex, IsWrittenOnlyWhenItMust) {
    WavCache cache(home.path(), 0);
    // On a disk that takes longer for all this than two seconds, the second put may write as well.
    const auto begun = std::chrono::steady_clock::now();
    putClip(cache, "a", 100);
    const std::string first = readFile(path);
    putClip(cache, "b", 100);
    const std::string second = readFile(path);
    if (std::chrono::steady_clock::now() - begun < std::chrono::milliseconds(1500)) {
        EXPECT_EQ(second, first);
    }
    for (const char* key : {"c", "d", "e"}) putClip(cache, key, 100);
    cache.flush();
    EXPECT_EQ(linesOnDisk(), 5U);

    // Once for all that are removed; the backup is the index of the write before.
    const std::string before = readFile(path);
    EXPECT_EQ(cache.remove(std::vector<std::string>{"a", "none", "c", "a"}), 2U);
    EXPECT_FALSE(fileExists(home.file("c.wav")));
    EXPECT_EQ(cache.stats().bytes, 300);
    EXPECT_EQ(linesOnDisk(), 3U);
    EXPECT_EQ(readFile(backup), before);
    EXPECT_EQ(cache.remove(std::vector<std::string>{"e"}), 1U);
    EXPECT_EQ(linesOnDisk(), 2U);
    EXPECT_TRUE(cache.remove("d"));
    EXPECT_EQ(linesOnDisk(), 1U);
    expectInvariants(cache);

    const auto index = fileIdentity(path);
    EXPECT_EQ(cache.remove(std::vector<std::string>{"none"}), 0U);
    ASSERT_TRUE(cache.tryGet("b"));
    cache.flush();
    EXPECT_EQ(fileIdentity(path), index);
}

TEST_F(CacheIndex, DamagedIndexIsRecoveredFromTheBackup) {
    {
        WavCache cache(home.path(), 0);
        putClip(cache, "old", 100);
        cache.flush();
        putClip(cache, "new", 200);
        cache.flush();
    }
    std::filesystem::resize_file(path, 10);
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
        EXPECT_EQ(entries.at("new").bytes, 200);
        EXPECT_EQ(entries.at("new").sampleRate, 8000);
    }
    // Both damaged: every clip that is one is adopted.
    writeFile(path, "[]");
    writeFile(backup, "{\"old\": {\"file\": \"old.wav\"}} trailing");
    writeFile(home.file("noise.wav"), "this is not a WAV");
    for (const char* name : {".wav", "old.wav.zepho-tmp-1-1"})
        writeFile(home.file(name), asText(wavOfSize(100)));
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
    EXPECT_EQ(linesOnDisk(), 2U);
}

TEST_F(CacheIndex, HostileLinesReachNoOtherFileAndBreakNoSum) {
    const std::string dir = home.file("cache/");
    for (const char* name :
         {"secret", "cache/sub/inner", "cache/a", "cache/b", "cache/c", "cache/d"})
        writeFile(home.file(name) + ".wav", asText(wavOfSize(100)));
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
    putClip(cache, "e", 100);
    expectInvariants(cache);
    EXPECT_GT(cache.stats().bytes, 0);
    cache.setBudget(100);
    EXPECT_TRUE(cache.contains("e"));
    EXPECT_EQ(cache.stats().bytes, 100);
    cache.clear();
    EXPECT_TRUE(fileExists(home.file("secret.wav")));
    EXPECT_TRUE(fileExists(dir + "sub/inner.wav"));
}

}  // namespace
}  // namespace zepho::test
