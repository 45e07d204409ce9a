#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "core/base/Text.h"
#include "core/base/TtsError.h"
#include "core/base/TtsTypes.h"
#include "core/diag/Language.h"

namespace zepho {
namespace {

TEST(TtsTypes, NormalizeBringsEqualRequestsToOneForm) {
    TtsRequest request;
    request.text = "\u3000 hello \n";
    request.airline = " ca\u00A0";
    request.style = " [ calm ] ";
    request.voiceId = "\tV-1 ";
    request.language = " ZH ";
    request.speed = 9;
    request.sampleRate = -5;
    request.seed = -3;
    request.priority = TtsPriority::high;
    request.normalize();
    EXPECT_EQ(request.text, "hello");
    EXPECT_EQ(request.airline, "CA");
    EXPECT_EQ(request.style, "calm");
    EXPECT_EQ(request.voiceId, "V-1");
    EXPECT_EQ(request.language, " ZH ");
    EXPECT_EQ(request.speed, 2.0F);
    EXPECT_EQ(request.sampleRate, 0);
    EXPECT_EQ(request.seed, -3);
    EXPECT_EQ(request.priority, TtsPriority::high);

    const TtsRequest made = TtsRequest::make(" a ", "ja", TtsGender::male, 0);
    EXPECT_EQ(made.text, "a");
    EXPECT_EQ(made.language, "ja");
    EXPECT_EQ(made.gender, TtsGender::male);
    EXPECT_EQ(made.speed, 1.0F);
}

TEST(TtsTypes, StyleStandsInOnePairOfBrackets) {
    const struct {
        const char* style;
        const char* effective;
    } rows[] = {
        {"", "hi"},
        {"calm", "[calm] hi"},
        {"[calm]", "[calm] hi"},
        {"[", "[[] hi"},
        {"[[calm]]", "[[calm]] hi"},
        {"[]", "hi"},
        {"[a] b", "[[a] b] hi"},
        {"[ 柔 ]", "[柔] hi"},
    };
    for (const auto& row : rows) {
        TtsRequest request;
        request.text = "hi";
        request.style = row.style;
        request.normalize();
        EXPECT_EQ(request.effectiveText(), row.effective) << row.style;
    }
}

TEST(TtsTypes, DescribesItselfInOneLine) {
    TtsRequest request = TtsRequest::make("50% [x] %s", "zh", TtsGender::auto_, 1.255F);
    EXPECT_EQ(request.describe(), "[zh/default/- x1.25] 50% [x] %s");
    request.voiceId = "v";
    request.style = "calm";
    request.gender = TtsGender::female;
    EXPECT_EQ(request.describe(), "[zh/female/v x1.25 calm] 50% [x] %s");
}

TEST(TtsTypes, CodesReadWithoutRegardToCaseAndNeverFail) {
    for (const TtsGender gender : allTtsGenders)
        EXPECT_EQ(ttsGenderFromCode(ttsGenderCode(gender)), gender);
    for (const char* word : {"female", " F\n", "女", "FEMALE"})
        EXPECT_EQ(ttsGenderFromCode(word), TtsGender::female) << word;
    for (const char* word : {"male", "m", "\u3000男"})
        EXPECT_EQ(ttsGenderFromCode(word), TtsGender::male) << word;
    for (const char* word : {"", "auto", "default", "woman", "fm"})
        EXPECT_EQ(ttsGenderFromCode(word), TtsGender::auto_) << word;
    EXPECT_EQ(ttsGenderCode(TtsGender::auto_), "default");
    EXPECT_EQ(ttsGenderDisplay(TtsGender::female), "Female");

    for (const TtsSpeedMode mode : allTtsSpeedModes)
        EXPECT_EQ(ttsSpeedModeFromCode(ttsSpeedModeCode(mode)), mode);
    EXPECT_EQ(ttsSpeedModeFromCode(" Stretch "), TtsSpeedMode::localStretch);
    EXPECT_EQ(ttsSpeedModeFromCode("wsola"), TtsSpeedMode::engine);
    EXPECT_EQ(ttsSpeedModeDisplay(TtsSpeedMode::engine), "engine-native speed");
    EXPECT_EQ(ttsSpeedModeDisplay(TtsSpeedMode::localStretch), "local time-stretch (WSOLA)");
    EXPECT_EQ(ttsSpeedModeDisplay(TtsSpeedMode::localResample),
              "local resample (pitch shifts too)");

    for (const ComputeBackend backend : allComputeBackends)
        EXPECT_EQ(computeBackendFromCode(computeBackendCode(backend)), backend);
    EXPECT_EQ(computeBackendFromCode("GPU"), ComputeBackend::metal);
}

TEST(TtsTypes, ErrorsHaveTheirWordAndStatus) {
    const struct {
        const char* name;
        int status;
    } rows[] = {
        {"ok", 500},
        {"empty_text", 400},
        {"text_too_long", 413},
        {"bad_voice", 404},
        {"bad_speed", 400},
        {"bad_audio", 400},
        {"engine_not_connected", 503},
        {"engine_failed", 500},
        {"queue_full", 503},
        {"timeout", 504},
        {"clone_failed", 500},
        {"not_found", 404},
    };
    int raw = 0;
    for (const auto& row : rows) {
        const TtsError error(static_cast<TtsErrorCode>(raw++), "text");
        EXPECT_EQ(ttsErrorName(error.code), row.name);
        EXPECT_EQ(error.httpStatus(), row.status) << row.name;
        EXPECT_STREQ(error.what(), "text");
    }
}

TEST(Text, LanguageCodesAreNormalised) {
    const struct {
        const char* text;
        const char* code;
    } rows[] = {
        {" ZH-cn ", "zh"}, {"pt_BR", "pt"}, {"zh_CN-x", ""}, {"AUTO", ""}, {"Auto_x", ""},
        {"cn", "zh"},      {"JP", "ja"},    {"kr-KR", "ko"}, {"zh2", ""},  {"cmn", "cmn"},
        {"", ""},          {"-", ""},       {"zh hans", ""}, {"日本", ""}, {"\u3000en\u00A0", "en"},
    };
    for (const auto& row : rows) EXPECT_EQ(normLang(row.text), row.code) << row.text;
    EXPECT_EQ(normAirline("\u3000ca|ß "), "CA|SS");

    EXPECT_EQ(commonLanguages().size(), 28U);
    EXPECT_EQ(commonLanguages().front(), "zh");
    EXPECT_EQ(commonLanguages().back(), "hu");
    EXPECT_EQ(langDisplay("JP"), "日本語");
    EXPECT_EQ(langDisplay("xx"), "xx");
    EXPECT_EQ(langDisplay(""), "Auto");
    EXPECT_EQ(langWithCode("ja"), "日本語 (ja)");
    EXPECT_EQ(langWithCode("xx"), "xx (xx)");
    EXPECT_EQ(langWithCode("auto"), "Auto (auto)");
}

TEST(Text, SpeedIsClamped) {
    EXPECT_EQ(clampSpeed(0), 1.0F);
    EXPECT_EQ(clampSpeed(-1), 1.0F);
    EXPECT_EQ(clampSpeed(std::nanf("")), 1.0F);
    EXPECT_EQ(clampSpeed(0.1F), 0.5F);
    EXPECT_EQ(clampSpeed(9), 2.0F);
    EXPECT_EQ(clampSpeed(std::numeric_limits<float>::infinity()), 2.0F);
    EXPECT_EQ(clampSpeed(1.3F), 1.3F);
}

}  // namespace
}  // namespace zepho
