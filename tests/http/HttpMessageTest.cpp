// Requests and responses as bytes.
#include <string>

#include <gtest/gtest.h>

#include "core/http/HttpMessage.h"
#include "core/http/HttpParser.h"

namespace zepho {
namespace {

using Outlook = ParseProgress::Outlook;

std::string serialized(const HttpResponse& response) {
    return std::string(asText(response.serialize()));
}

TEST(HttpMessageTest, SerializesHeadersSortedWithLengthAndConnection) {
    HttpResponse clip{
        200, {{"X-Voice", "a"}, {"Accept", "b"}, {"Content-Type", "audio/wav"}}, toBytes("abc")};
    EXPECT_EQ(serialized(clip),
              "HTTP/1.1 200 OK\r\nAccept: b\r\nConnection: keep-alive\r\nContent-Length: 3\r\n"
              "Content-Type: audio/wav\r\nX-Voice: a\r\n\r\nabc");
    clip.headers = {{"Connection", "close"}, {"Content-Length", "99"}};
    EXPECT_EQ(serialized(clip),
              "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 3\r\n\r\nabc");
    EXPECT_EQ(serialized({404, {}, {}}),
              "HTTP/1.1 404 Not Found\r\nConnection: keep-alive\r\nContent-Length: 0\r\n\r\n");
    for (const int status : {204, 304})
        EXPECT_TRUE(serialized({status, {}, toBytes("never sent")}).ends_with("\r\n\r\n"));
    // No value can begin a header of its own.
    const HttpResponse evil{
        200, {{"X-Voice", "a\r\nSet-Cookie: b\r\n\r\nbody"}, {"Bad\r\nName", "\t日本"}}, {}};
    EXPECT_EQ(serialized(evil),
              "HTTP/1.1 200 OK\r\nBad  Name:  日本\r\nConnection: keep-alive\r\n"
              "Content-Length: 0\r\nX-Voice: a  Set-Cookie: b    body\r\n\r\n");
}

TEST(HttpMessageTest, QueryValuesAreTheFirstOfTheirKeyDecoded) {
    const struct {
        const char *query, *key, *value;
    } cases[] = {
        {"", "a", "none"},
        {"b=1&&c", "a", "none"},
        {"a&a=1&a=2", "a", "1"},  // a piece without "=" is no value
        {"a=b=c", "a", "b=c"},
        {"a=", "a", ""},
        {"a=1+2%2B3%20", "a", "1 2+3 "},
        {"%61b=%E5%A3%B0", "ab", "声"},
        {"a+b=1", "a+b", "1"},  // "+" stands for a blank in values only
        {"%zz=1", "%zz", "1"},  // a name that cannot be decoded stands as sent
        {"a=1+%zz", "a", "1 %zz"},
        {"a=%E5%A3", "a", "%E5%A3"},  // not UTF-8
    };
    for (const auto& each : cases) {
        HttpRequest request;
        request.query = each.query;
        EXPECT_EQ(request.queryValue(each.key, "none"), each.value) << each.query;
    }
}

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

    EXPECT_EQ(parseRequest(asBytes("  GET   /x  HTTP/9 more\r\n\r\n"), "?")->request.path, "/x");
    EXPECT_EQ(parseRequest(asBytes("get ?q\r\n\r\n"), "?")->request.query, "q");
    const auto broken = parseRequest(asBytes("GET /\xFF HTTP/1.1\r\nA: \xE5\r\n\r\nrest"), "?");
    ASSERT_TRUE(broken);
    EXPECT_EQ(broken->request.path, "/\xEF\xBF\xBD");
    EXPECT_EQ(broken->request.header("A"), "\xEF\xBF\xBD");
    EXPECT_EQ(broken->consumed, 25U) << "counted in the bytes as sent, not in the repaired ones";
}

TEST(HttpParserTest, KnowsWhatCannotBecomeARequest) {
    const auto post = [](const std::string& length) {
        return "POST / HTTP/1.1\r\nContent-Length: " + length + "\r\n\r\nbody";
    };
    const std::pair<std::string, Outlook> rows[] = {
        {post("0004"), Outlook::open},
        {post("letters"), Outlook::open},
        {post(""), Outlook::open},
        {post("4 4"), Outlook::open},
        {post("-"), Outlook::open},
        {post("-1"), Outlook::refused},
        {post("1099511627777"), Outlook::refused},
        {post("99999999999999999999999999"), Outlook::refused},
        {"\r\n\r\n", Outlook::never},
        {"GET\r\n\r\n", Outlook::never},
        {"   \r\nHost: a\r\n\r\n", Outlook::never},
        {"\r\nGET / HTTP/1.1\r\n\r\n", Outlook::never},
        {"GET\t/\r\n\r\n", Outlook::never},
    };
    for (const auto& [text, outlook] : rows) {
        ParseProgress progress;
        const auto parsed = parseRequest(asBytes(text), "?", progress);
        EXPECT_EQ(progress.outlook, outlook) << text;
        EXPECT_EQ(parsed.has_value(), outlook == Outlook::open) << text;
        // A length that is no number is none.
        if (parsed) {
            EXPECT_EQ(parsed->request.body.size(), text == post("0004") ? 4U : 0U) << text;
        }
    }
}

TEST(HttpParserTest, AHeaderBlockWithoutEndIsRefusedNotCollected) {
    const std::string text(9 * 1024 * 1024, 'a');
    ParseProgress progress;
    const std::string_view endless(text);
    // Byte by byte at the beginning: each look must be cheap, or this takes hours.
    for (std::size_t size = 0; size < 1'000'000; ++size)
        ASSERT_FALSE(parseRequest(asBytes(endless.substr(0, size)), "?", progress));
    EXPECT_EQ(progress.outlook, Outlook::open);
    EXPECT_FALSE(parseRequest(asBytes(endless), "?", progress));
    EXPECT_EQ(progress.outlook, Outlook::refused);
}

}  // namespace
}  // namespace zepho
