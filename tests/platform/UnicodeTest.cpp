#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/platform/Unicode.h"

namespace zepho {
namespace {

std::vector<std::string> characters(std::string_view text) {
    std::vector<std::string> found;
    forEachGrapheme(text, [&](const Grapheme& one) { found.emplace_back(one.bytes); });
    return found;
}

TEST(Unicode, TrimsWhatUnicodeCallsWhiteSpace) {
    const struct {
        const char* text;
        const char* trimmed;
    } rows[] = {
        {" \t\r\n\v\f", ""},
        {"\u3000\u00A0\u2003a b\u2028\u0085 ", "a b"},
        {"\u200Ba\uFEFF", "\u200Ba\uFEFF"},  // no width, and no white space either
        {"\x80 \xE3\x80", "\x80 \xE3\x80"},
    };
    for (const auto& row : rows) EXPECT_EQ(trimmed(row.text), row.trimmed);
}

TEST(Unicode, WalksUserPerceivedCharacters) {
    using List = std::vector<std::string>;
    EXPECT_EQ(characters("a\r\nb\r\r\n"), (List{"a", "\r\n", "b", "\r", "\r\n"}));
    EXPECT_EQ(characters("👨‍👩‍👧x🇯🇵🇨🇳e\u0301"),
              (List{"👨‍👩‍👧", "x", "🇯🇵", "🇨🇳", "e\u0301"}));

    std::vector<char32_t> firsts;
    forEachGrapheme("e\u0301音\xFFz", [&](const Grapheme& one) { firsts.push_back(one.first); });
    EXPECT_EQ(firsts, (std::vector<char32_t>{'e', U'音', 0xFFFD, 'z'}));

    EXPECT_EQ(graphemeCount("👨‍👩‍👧e\u0301\r\n"), 3U);
    EXPECT_EQ(graphemePrefix("e\u0301👨‍👩‍👧b", 2), "e\u0301👨‍👩‍👧");
    EXPECT_EQ(graphemePrefix("ab", 9), "ab");
    EXPECT_EQ(graphemePrefix("ab", 0), "");
    // A visit may walk another text: each walk has a place of its own.
    std::size_t inner = 0;
    forEachGrapheme("音音", [&](const Grapheme&) { inner += graphemeCount("声声声"); });
    EXPECT_EQ(inner, 6U);
}

TEST(Unicode, WalksLongTextsInPartsThatNobodySees) {
    constexpr std::size_t part = std::size_t{16} << 20;
    const auto repeated = [](std::string_view one, std::size_t bytes) {
        std::string text;
        while (text.size() < bytes) text += one;
        return text;
    };
    // A part ends in the middle of a family, of a pair of letters that makes a flag, of a scalar that
    // belongs to the letter before it, and of a sequence that is none.
    for (const std::string_view one : {"👨‍👩‍👧", "🇯🇵", "e\u0301", "\xF0\x9F\x91"}) {
        const std::string text = "音ab" + repeated(one, part + 100);
        EXPECT_EQ(graphemeCount(text), 3 + (text.size() - 5) / one.size()) << one;
    }
    // One letter that is longer than a part.
    const std::string tower = "e" + repeated("\u0301", part);
    EXPECT_EQ(characters(tower + "音"),
              (std::vector<std::string>{tower.substr(0, part - 1), "\u0301", "音"}));
}

TEST(Unicode, CaseAndClasses) {
    EXPECT_EQ(lowercased("ÄİI"), "äi\u0307i");
    EXPECT_EQ(uppercased("straße"), "STRASSE");
    EXPECT_TRUE(equalsIgnoringCase("ÄB", "äb"));
    EXPECT_FALSE(equalsIgnoringCase("ab", "abc"));
    for (const char32_t scalar : {U'a', U'7', U'音', U'½', U'Ⅷ', U'가', U'ａ', U'٣'})
        EXPECT_TRUE(isLetterOrNumber(scalar)) << static_cast<std::uint32_t>(scalar);
    for (const char32_t scalar : {U'-', U' ', U'_', U'。', U'\u0301', U'⺀', char32_t{0x1F600}})
        EXPECT_FALSE(isLetterOrNumber(scalar)) << static_cast<std::uint32_t>(scalar);
}

TEST(Unicode, InvalidBytesAreAcceptedEverywhere) {
    const struct {
        std::string text;
        std::string repaired;
    } rows[] = {
        {"\xE9\x9F", "\uFFFD"},
        {"\xE9\x9F音", "\uFFFD音"},
        {"\xC0\xAF", "\uFFFD\uFFFD"},                      // an overlong slash
        {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},            // half a surrogate pair
        {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},  // beyond the last scalar
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(isValidUtf8(row.text));
        EXPECT_EQ(replaceInvalidUtf8(row.text), row.repaired);
        EXPECT_TRUE(isValidUtf8(replaceInvalidUtf8(row.text)));
        std::string joined;
        for (const std::string& one : characters(row.text)) joined += one;
        EXPECT_EQ(joined, row.text);
        (void)lowercased(row.text);
        (void)uppercased(row.text);
    }
}

}  // namespace
}  // namespace zepho
