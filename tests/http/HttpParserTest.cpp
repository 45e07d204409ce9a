#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "core/http/HttpParser.h"

namespace zepho {
namespace {

using Outlook = ParseProgress::Outlook;

TEST(HttpParserTest, TakesOneRequestFromTheFront) {
    const std::string first =
        "post /a%20b/c?x=1?2&y HTTP/1.1\r\nHost: h:1\r\n X-Name :\t v: w \r\nno colon\r\n"
        "X-NAME: last\r\nContent-Length: +3 \r\n\r\nabc";
    const auto parsed = parseRequest(asBytes(first + "GET / HTTP/1.1"), "10.0.0.1");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->consumed, first.size());
    EXPECT_EQ(parsed->request.method, "POST");
    EXPECT_EQ(parsed->request.path, "/a%20b/c");
    EXPECT_EQ(parsed->request.query, "x=1?2&y");
    EXPECT_EQ(parsed->request.peer, "10.0.0.1");
    EXPECT_EQ(asText(parsed->request.body), "abc");
    EXPECT_EQ(parsed->request.headers,
              (std::map<std::string, std::string>{
                  {"host", "h:1"}, {"x-name", "last"}, {"content-length", "+3"}}));
}

TEST(HttpParserTest, ToleratesWhatClientsSend) {
    const auto spaced = parseRequest(asBytes("  GET   /x  HTTP/9 more\r\n\r\n"), "?");
    ASSERT_TRUE(spaced);
    EXPECT_EQ(spaced->request.path, "/x");
    const auto versionless = parseRequest(asBytes("get ?q\r\n\r\n"), "?");
    ASSERT_TRUE(versionless);
    EXPECT_EQ(versionless->request.path, "");
    EXPECT_EQ(versionless->request.query, "q");
    const auto broken = parseRequest(asBytes("GET /\xFF HTTP/1.1\r\nA: \xE5\r\n\r\nrest"), "?");
    ASSERT_TRUE(broken);
    EXPECT_EQ(broken->request.path, "/\xEF\xBF\xBD");
    EXPECT_EQ(broken->request.header("a"), "\xEF\xBF\xBD");
    // Counted in the bytes as sent, not in the repaired ones.
    EXPECT_EQ(broken->consumed, 25U);
}

TEST(HttpParserTest, ContentLengthsAreNumbersNothingOrRefused) {
    const struct {
        const char* length;
        Outlook outlook;
        std::size_t bodySize;
    } cases[] = {
        {"0", Outlook::open, 0},
        {"0004", Outlook::open, 4},
        {"letters", Outlook::open, 0},
        {"", Outlook::open, 0},
        {"4 4", Outlook::open, 0},
        {"4.0", Outlook::open, 0},
        {"-", Outlook::open, 0},
        {"-x", Outlook::open, 0},
        {"-1", Outlook::refused, 0},
        {"-9223372036854775808", Outlook::refused, 0},
        {"9223372036854775807", Outlook::refused, 0},
        {"18446744073709551615", Outlook::refused, 0},
        {"99999999999999999999999999", Outlook::refused, 0},
        {"1099511627777", Outlook::refused, 0},
    };
    for (const auto& each : cases) {
        const std::string text =
            std::string("POST / HTTP/1.1\r\nContent-Length: ") + each.length + "\r\n\r\nbody";
        ParseProgress progress;
        const auto parsed = parseRequest(asBytes(text), "?", progress);
        EXPECT_EQ(progress.outlook, each.outlook) << each.length;
        ASSERT_EQ(parsed.has_value(), each.outlook == Outlook::open) << each.length;
        if (parsed) {
            EXPECT_EQ(parsed->request.body.size(), each.bodySize) << each.length;
        }
    }
}

TEST(HttpParserTest, ALineThatIsNoRequestNeverBecomesOne) {
    for (const char* text : {"\r\n\r\n", "GET\r\n\r\n", "   \r\nHost: a\r\n\r\n",
                             "\r\nGET / HTTP/1.1\r\n\r\n", "GET\t/\r\n\r\n"}) {
        ParseProgress progress;
        EXPECT_FALSE(parseRequest(asBytes(text), "?", progress)) << text;
        EXPECT_EQ(progress.outlook, Outlook::never) << text;
    }
}

TEST(HttpParserTest, EveryCutGivesTheSameRequest) {
    const std::string whole = "POST /p?q=1 HTTP/1.1\r\nContent-Length: 5\r\nA: b\r\n\r\n\r\n\r\nx";
    const auto expected = parseRequest(asBytes(whole), "p");
    ASSERT_TRUE(expected);
    EXPECT_EQ(asText(expected->request.body), "\r\n\r\nx");
    for (std::size_t first = 0; first < whole.size(); ++first)
        for (std::size_t second = first; second < whole.size(); ++second) {
            ParseProgress progress;
            const std::string_view text = whole;
            ASSERT_FALSE(parseRequest(asBytes(text.substr(0, first)), "p", progress));
            ASSERT_FALSE(parseRequest(asBytes(text.substr(0, second)), "p", progress));
            const auto parsed = parseRequest(asBytes(text), "p", progress);
            ASSERT_TRUE(parsed) << first << " " << second;
            ASSERT_EQ(parsed->consumed, whole.size());
            ASSERT_EQ(parsed->request.headers, expected->request.headers);
            ASSERT_EQ(parsed->request.body, expected->request.body);
        }
}

TEST(HttpParserTest, AHeaderBlockWithoutEndIsRefusedNotCollected) {
    const std::string endless(9 * 1024 * 1024, 'a');
    ParseProgress progress;
    std::size_t size = 0;
    // Byte by byte at the beginning: each look must be cheap, or this takes hours.
    for (; size < 1'000'000; ++size)
        ASSERT_FALSE(
            parseRequest(asBytes(std::string_view(endless).substr(0, size)), "?", progress));
    EXPECT_EQ(progress.outlook, Outlook::open);
    EXPECT_FALSE(parseRequest(asBytes(endless), "?", progress));
    EXPECT_EQ(progress.outlook, Outlook::refused);
}

}  // namespace
}  // namespace zepho
