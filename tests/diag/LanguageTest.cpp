#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/diag/Language.h"
#include "core/diag/MessageTable.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

class LanguageTest : public testing::Test {
protected:
    ~LanguageTest() override { setUiLang(UiLang::en); }

    static std::string in(UiLang lang, std::string_view key) {
        setUiLang(lang);
        return T(key);
    }
};

// The conversions of a printf-style text in their order, "%d", "%.1f", "%@", "%%" left out.
std::vector<std::string> placeholders(std::string_view text) {
    std::vector<std::string> found;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '%') continue;
        std::size_t end = at + 1;
        while (end < text.size() &&
               std::string_view("0123456789.:-+l").find(text[end]) != std::string_view::npos)
            ++end;
        if (end < text.size() &&
            std::string_view("dsfuxg@").find(text[end]) != std::string_view::npos)
            found.emplace_back(text.substr(at, end - at + 1));
        at = end < text.size() ? end : text.size();
    }
    return found;
}

TEST_F(LanguageTest, TablesAreWholeAndTheirKeysUnique) {
    std::set<std::string_view> keys;
    for (const auto rows : i18nRowGroups())
        for (const MessageRow& row : rows) {
            SCOPED_TRACE(row.zh);
            EXPECT_TRUE(keys.insert(row.zh).second);
            EXPECT_FALSE(row.ja.empty());
            EXPECT_EQ(placeholders(row.ja), placeholders(row.zh));
            EXPECT_TRUE(isValidUtf8(row.ja) && isValidUtf8(row.en) && isValidUtf8(row.zh));
            // One row names its arguments by position.
            if (row.en.find("%0:s") == std::string_view::npos) {
                EXPECT_EQ(placeholders(row.en), placeholders(row.zh));
            }
        }
    EXPECT_GT(keys.size(), 500U);
    const auto fits = [](const MessageRow& row) {
        EXPECT_EQ(placeholders(row.ja), placeholders(row.zh)) << row.zh;
        EXPECT_EQ(placeholders(row.en), placeholders(row.zh)) << row.zh;
    };
    for (const MessageRow& row : macExtraRows()) fits(row);
    for (const auto rows : windowRowGroups())
        for (const MessageRow& row : rows) {
            fits(row);
            EXPECT_TRUE(keys.insert(row.zh).second) << row.zh;
        }
}

TEST_F(LanguageTest, LooksUpOverridesThenTheMainTableThenTheExtras) {
    const struct {
        const char* key;
        const char* zh;
        const char* ja;
        const char* en;
    } rows[] = {
        {"隐藏到托盘", "收进菜单栏", "メニューバーに格納", "Hide to menu bar"},
        {"合成并播放", "合成并播放", "合成して再生", "Synthesize && play"},
        {"退出", "退出", "終了", "Quit"},
        {"推理进程起不来:%@(%@)", "推理进程起不来:%@(%@)", "推論プロセスを起動できません:%@(%@)",
         "could not start the inference process: %@ (%@)"},
        // A row exists for the spelling with %s only; this one stays as it is.
        {"「%@」已导入。", "「%@」已导入。", "「%@」已导入。", "「%@」已导入。"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(in(UiLang::zh, row.key), row.zh);
        EXPECT_EQ(in(UiLang::ja, row.key), row.ja);
        EXPECT_EQ(in(UiLang::en, row.key), row.en);
    }
    EXPECT_NE(in(UiLang::en, "「%s」已导入。"), "「%s」已导入。");
    setUiLang(UiLang::en);
    EXPECT_EQ(TF("「%@」已导入。", "calm"), "「calm」已导入。");
    EXPECT_EQ(TF("本机 %d..%d 全被占用,推理进程无处可放", 1, 2),
              "ports 1..2 are all taken — nowhere to put the inference process");
}

TEST_F(LanguageTest, AutomaticFollowsTheDesktop) {
    const struct {
        const char* language;
        const char* lcAll;
        const char* lcMessages;
        const char* lang;
        UiLang expected;
    } rows[] = {
        {"", "", "", "C", UiLang::en},
        {"", "", "", "ja_JP.UTF-8", UiLang::ja},
        {"", "", "zh_CN.UTF-8", "ja_JP.UTF-8", UiLang::zh},
        {"", "de_DE", "zh_CN.UTF-8", "ja_JP.UTF-8", UiLang::en},
        {"zh_TW:ja", "", "", "en_US.UTF-8", UiLang::zh},
        {":ja:zh", "", "", "zh_CN", UiLang::ja},
        {"", "", "", "zh-Hant-TW", UiLang::zh},
        {"", "", "", "zhx_CN", UiLang::en},
    };
    setUiLang(UiLang::auto_);
    for (const auto& row : rows) {
        ::setenv("LANGUAGE", row.language, 1);
        ::setenv("LC_ALL", row.lcAll, 1);
        ::setenv("LC_MESSAGES", row.lcMessages, 1);
        ::setenv("LANG", row.lang, 1);
        EXPECT_EQ(detectFromOS(), row.expected) << row.language << "/" << row.lang;
        EXPECT_EQ(uiLang(), row.expected);
    }
    ::setenv("LANG", "ja_JP", 1);
    EXPECT_EQ(T("自动"), "自動");
    EXPECT_EQ(uiLangDisplay(UiLang::auto_), "自動");
    for (const UiLang lang : allUiLangs) EXPECT_EQ(uiLangFromCode(uiLangCode(lang)), lang);
    EXPECT_EQ(uiLangFromCode("de"), UiLang::auto_);
    for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) ::unsetenv(name);
    EXPECT_EQ(uiLang(), UiLang::en);
}

TEST(FormatText, FillsPlaceholders) {
    EXPECT_EQ(formatText("%@ · %d Hz · %.2f", "a%@b", 44100, 1.005), "a%@b · 44100 Hz · 1.00");
    EXPECT_EQ(formatText("%d%% %@%%@", 5, std::string("音")), "5% 音%@");
    EXPECT_EQ(formatText("%.0f%% %s", 62.5, "x"), "62% x");
    EXPECT_EQ(formatText("%d %lld", INT64_MIN, INT64_MAX),
              "-9223372036854775808 9223372036854775807");
    EXPECT_EQ(formatText("%04d|%-4d|%5.1f|%x", 7, 7, 2.25, 255), "0007|7   |  2.2|ff");
    // A format that does not fit comes back unfilled.
    EXPECT_EQ(formatText("%d of %d", 1), "%d of %d");
    EXPECT_EQ(formatText("%d", "text"), "%d");
    EXPECT_EQ(formatText("100%"), "100%");
    // Nor does one that would fill the memory, while the percent signs of a text count for nothing.
    for (const char* wide : {"%99999999d", "%.2000000000f", "%-08888d", "%*d", "%.*f", "%% %1000d",
                             "%2$99999999d", "%d %'5000d", "%?%5000d"})
        EXPECT_EQ(formatText(wide, 7, 7), wide);
    EXPECT_EQ(formatText("%%2000 %03d", 7), "%2000 007");
}

}  // namespace
}  // namespace zepho
