#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include "core/diag/Language.h"
#include "core/engine/PlaceholderEngine.h"
#include "tests/engine/PlaceholderReference.h"

namespace zepho {
namespace {

PcmBuffer speak(const std::string& text, TtsGender gender = TtsGender::auto_,
                std::int64_t seed = 0) {
    PlaceholderEngine engine{EngineOptions()};
    S2Params params;
    params.text = text;
    VoiceHint hint;
    hint.gender = gender;
    hint.seed = seed;
    return engine.synthesize(params, hint);
}

// The greatest difference of two clips in steps of 16 bits, as they leave the service.
int greatestDifference(const PcmBuffer& left, const PcmBuffer& right) {
    const Bytes one = buildWav(left, 1);
    const Bytes other = buildWav(right, 1);
    if (one.size() != other.size()) return INT32_MAX;
    int greatest = 0;
    for (std::size_t at = 44; at < one.size(); at += 2) {
        std::int16_t a = 0;
        std::int16_t b = 0;
        std::memcpy(&a, one.data() + at, 2);
        std::memcpy(&b, other.data() + at, 2);
        greatest = std::max(greatest, std::abs(a - b));
    }
    return greatest;
}

const std::vector<std::string> lines{
    "Flight CA1301 to Shanghai is now boarding at gate 27.",
    "各位旅客请注意，前往东京的航班现在开始登机。",
    "お客様にご案内いたします、ゲート３へお越しください！",
    "[calm [soft] 请 Mr. O'Neil] to 5号 [x]counter; thank you",
    "sSfFhHxXcCzZ",
    "👨‍👩‍👧 ok 🇯🇵! e\u0301a\u0308 ś s\u0301 한국어 עברית हिन्दी ½ Ⅷ",
    "…—\u00A0\u3000\r\n\t?：；",
};

TEST(PlaceholderEngine, SoundsAsPlainArithmeticDoes) {
    const std::int64_t seeds[] = {0, 1, -7, 123456789, INT64_C(0x1234567890), INT64_MIN};
    for (const std::string& line : lines)
        for (const TtsGender gender : allTtsGenders) {
            const std::int64_t seed = seeds[(line.size() + static_cast<std::size_t>(gender)) % 6];
            EXPECT_LE(greatestDifference(speak(line, gender, seed),
                                         test::placeholderReference(line, gender, seed)),
                      1)
                << line << " " << seed;
        }
    for (const std::int64_t seed : seeds)
        EXPECT_LE(
            greatestDifference(speak("Gate six", TtsGender::female, seed),
                               test::placeholderReference("Gate six", TtsGender::female, seed)),
            1)
            << seed;
}

// Beyond 2^24 samples a float no longer counts them one by one, and the angles are of many thousand
// turns. Pauses bring a line there cheaply: to the middle, where the arithmetic changes, and beyond.
TEST(PlaceholderEngine, StaysTrueLateInALongLine) {
    for (const std::size_t pauses : {863, 1800}) {
        const std::string line = std::string(pauses, ',') + "a1b文字";
        EXPECT_LE(
            greatestDifference(speak(line), test::placeholderReference(line, TtsGender::auto_, 0)),
            1)
            << pauses;
    }
}

TEST(PlaceholderEngine, EveryVectorUnitGivesTheSameSound) {
    const std::string line = "Gate 27 休息 faces";
    const PcmBuffer expected = test::placeholderReference(line, TtsGender::male, 5);
    for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
        EXPECT_LE(greatestDifference(speak(line, TtsGender::male, 5), expected), 1)
            << hwy::TargetName(target);
    }
    hwy::SetSupportedTargetsForTest(0);
    hwy::GetChosenTarget().DeInit();
}

TEST(PlaceholderEngine, KeepsTheRhythmOfTheText) {
    struct Case {
        std::string text;
        std::vector<int> ms;  // of the segments before the closing pause
    };
    const Case cases[] = {
        {"[whisper, softly. 请]", {}},
        {"[a[b]", {}},
        {"]a", {80}},
        {"#@", {}},
        {"a", {80}},
        {"é", {80}},
        {"e\u0301", {80}},
        {"7", {80}},
        {"文", {170}},
        {"가", {170}},
        {"\u2E80\u2E81", {}},  // radicals are symbols
        {"ａ", {170}},
        {"a  b", {80, 70, 70, 80}},
        {"a, b", {80, 220, 70, 80}},
        {"a\r\nb", {80, 70, 80}},
        {"a\u3000b", {80, 70, 80}},
        {" a ", {70, 80, 70}},
        {",.!?;:，。！？、；：", std::vector<int>(13, 220)},
        {"a'-b", {80, 80}},
    };
    for (const Case& one : cases) {
        std::size_t expected = 5292;
        for (const int ms : one.ms)
            expected += static_cast<std::size_t>(std::llround(ms * 44100.0 / 1000.0));
        const PcmBuffer pcm = speak(one.text);
        EXPECT_EQ(pcm.data.size(), expected) << one.text;
        EXPECT_EQ(pcm.sampleRate, 44100);
        const bool silent = std::count(pcm.data.begin(), pcm.data.end(), 0.0F) ==
                            static_cast<std::ptrdiff_t>(pcm.data.size());
        const bool mute = std::count(one.ms.begin(), one.ms.end(), 80) +
                              std::count(one.ms.begin(), one.ms.end(), 170) ==
                          0;
        EXPECT_EQ(silent, mute) << one.text;
    }
    for (const char* blank : {"", " ", "\n\t", "\u3000\u00A0\r\n"}) {
        const PcmBuffer pcm = speak(blank);
        EXPECT_TRUE(pcm.isEmpty());
        EXPECT_EQ(pcm.sampleRate, 44100);
    }
}

TEST(PlaceholderEngine, SeedMovesThePitchAndNotTheRhythm) {
    const std::string line = "a sea, 文";
    const PcmBuffer first = speak(line, TtsGender::auto_, 1);
    EXPECT_EQ(first.data, speak(line, TtsGender::auto_, 1).data);
    EXPECT_EQ(first.data, speak(line, TtsGender::auto_, (INT64_C(5) << 32) + 1).data);
    const PcmBuffer second = speak(line, TtsGender::auto_, 2);
    EXPECT_EQ(first.data.size(), second.data.size());
    EXPECT_GT(greatestDifference(first, second), 1000);
    EXPECT_GT(greatestDifference(speak("A"), speak("a")), 1000);
    EXPECT_GT(greatestDifference(first, speak(line, TtsGender::female, 1)), 1000);
}

TEST(PlaceholderEngine, ManyThreadsHearTheSame) {
    PlaceholderEngine engine{EngineOptions()};
    S2Params params;
    params.text = lines[1] + lines[0];
    const PcmBuffer expected = engine.synthesize(params, VoiceHint());
    std::vector<PcmBuffer> heard(6);
    std::vector<std::thread> threads;
    for (PcmBuffer& pcm : heard)
        threads.emplace_back([&] {
            EngineOptions options = engine.options();
            ++options.threads;
            engine.configure(options);
            pcm = engine.synthesize(params, VoiceHint());
            (void)engine.checkHealth();
        });
    for (std::thread& thread : threads) thread.join();
    for (const PcmBuffer& pcm : heard) EXPECT_EQ(pcm.data, expected.data);
}

TEST(PlaceholderEngine, AnswersForItself) {
    EngineOptions options;
    options.modelFile = "m.gguf";
    PlaceholderEngine engine(options);
    EXPECT_EQ(engine.options(), options);
    options.threads = 3;
    engine.configure(options);
    EXPECT_EQ(engine.options(), options);
    EXPECT_EQ(engine.name(), "placeholder");
    EXPECT_TRUE(engine.ready());
    EXPECT_FALSE(engine.supportsNativeSpeed());
    EXPECT_TRUE(engine.supportsInstantClone());
    EXPECT_EQ(engine.registerReference(VoiceCloneSpec()), "");

    const EngineHealth health = engine.checkHealth();
    EXPECT_TRUE(health.ready);
    EXPECT_EQ(health.backend, "placeholder waveform");
    EXPECT_EQ(
        health.detail,
        "no model under bin yet; this is audible fake audio, only to prove the pipeline works");
    EXPECT_EQ(health.exePath, "");
    EXPECT_LT(std::chrono::abs(std::chrono::system_clock::now() - health.probedAt),
              std::chrono::minutes(5));
}

}  // namespace
}  // namespace zepho
