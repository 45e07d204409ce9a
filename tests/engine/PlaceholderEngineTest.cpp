#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <hwy/targets.h>

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

// Whether no sample differs by more than a step of 16 bits, as they leave the service.
bool soundAlike(const PcmBuffer& left, const PcmBuffer& right) {
    return left.sampleRate == right.sampleRate &&
           std::ranges::equal(left.data, right.data,
                              [](float a, float b) { return std::abs(a - b) <= 1.0F / 32768.0F; });
}

void expectReferenceSound(const std::string& line, TtsGender gender = TtsGender::auto_,
                          std::int64_t seed = 0) {
    EXPECT_TRUE(
        soundAlike(speak(line, gender, seed), test::placeholderReference(line, gender, seed)))
        << line << " " << seed;
}

TEST(PlaceholderEngine, SoundsAsPlainArithmeticDoes) {
    const std::int64_t seeds[] = {0, 1, -7, 123456789, INT64_C(0x1234567890), INT64_MIN};
    for (
        const std::string line : {
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
        })
        for (const TtsGender gender : allTtsGenders)
            expectReferenceSound(line, gender,
                                 seeds[(line.size() + static_cast<std::size_t>(gender)) % 6]);
    EXPECT_FALSE(soundAlike(speak("A"), speak("a"))) << "or the comparison is deaf";

    // Beyond 2^24 samples a float no longer counts them one by one, and the angles are of many
    // thousand turns. Pauses bring a line there cheaply: to the middle, where the arithmetic changes,
    // and beyond.
    for (const std::size_t pauses : {863, 1800})
        expectReferenceSound(std::string(pauses, ',') + "a1b文字");
}

TEST(PlaceholderEngine, EveryVectorUnitGivesTheSameSound) {
    for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
        SCOPED_TRACE(hwy::TargetName(target));
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().Update(hwy::SupportedTargets());
        expectReferenceSound("Gate 27 休息 faces", TtsGender::male, 5);
    }
    hwy::SetSupportedTargetsForTest(0);
    hwy::GetChosenTarget().DeInit();
}

}  // namespace
}  // namespace zepho
