#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
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
    "]a #@\u2E80 文가ａ  a'-7,.!?;:，。！？、；： [a[b]",
    "",
    "\u3000\u00A0\r\n",
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
    EXPECT_GT(greatestDifference(speak("A"), speak("a")), 1000) << "or the comparison is deaf";
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

}  // namespace
}  // namespace zepho
