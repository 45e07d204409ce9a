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
    request.voiceId = "\tV-1 ";
    request.language = " ZH ";
    request.sampleRate = -5;
    request.normalize();
    EXPECT_EQ(request.text, "hello");
    EXPECT_EQ(request.airline, "CA");
    EXPECT_EQ(request.voiceId, "V-1");
    EXPECT_EQ(request.sampleRate, 0);
    EXPECT_EQ(request.describe(), "[ ZH /default/V-1 x1.00] hello");

    const std::pair<const char*, const char*> styles[] = {
        {"", "hi"},
        {"calm", "[calm] hi"},
        {" [ calm ] ", "[calm] hi"},
        {"[", "[[] hi"},
        {"[[calm]]", "[[calm]] hi"},
        {"[]", "hi"},
        {"[a] b", "[[a] b] hi"},
    };
    for (const auto& [style, effective] : styles) {
        request.text = "hi";
        request.style = style;
        request.normalize();
        EXPECT_EQ(request.effectiveText(), effective) << style;
    }
    for (const float none : {0.0F, -1.0F, std::nanf("")}) EXPECT_EQ(clampSpeed(none), 1.0F);
    EXPECT_EQ(clampSpeed(0.1F), 0.5F);
    EXPECT_EQ(clampSpeed(std::numeric_limits<float>::infinity()), 2.0F);
    EXPECT_EQ(clampSpeed(1.3F), 1.3F);
}

TEST(TtsTypes, CodesReadWithoutRegardToCaseAndNeverFail) {
    for (const TtsGender gender : allTtsGenders)
        EXPECT_EQ(ttsGenderFromCode(ttsGenderCode(gender)), gender);
    for (const char* word : {" F\n", "女", "FEMALE"})
        EXPECT_EQ(ttsGenderFromCode(word), TtsGender::female) << word;
    for (const char* word : {"m", "\u3000男"})
        EXPECT_EQ(ttsGenderFromCode(word), TtsGender::male) << word;
    for (const char* word : {"", "auto", "woman", "fm"})
        EXPECT_EQ(ttsGenderFromCode(word), TtsGender::auto_) << word;
    for (const TtsSpeedMode mode : allTtsSpeedModes)
        EXPECT_EQ(ttsSpeedModeFromCode(ttsSpeedModeCode(mode)), mode);
    EXPECT_EQ(ttsSpeedModeFromCode("wsola"), TtsSpeedMode::engine);
    for (const ComputeBackend backend : allComputeBackends)
        EXPECT_EQ(computeBackendFromCode(computeBackendCode(backend)), backend);
}

TEST(TtsTypes, ErrorsHaveTheirWordAndStatus) {
    const std::pair<const char*, int> rows[] = {{"ok", 500},
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
                                                {"not_found", 404}};
    int raw = 0;
    for (const auto& [name, status] : rows) {
        const TtsError error(static_cast<TtsErrorCode>(raw++), "text");
        EXPECT_EQ(ttsErrorName(error.code), name);
        EXPECT_EQ(error.httpStatus(), status) << name;
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

    EXPECT_EQ(langWithCode("JP"), "日本語 (ja)");
    EXPECT_EQ(langWithCode("xx"), "xx (xx)");
    EXPECT_EQ(langWithCode("auto"), "Auto (auto)");
}

}  // namespace
}  // namespace zepho
