#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "core/http/HttpMessage.h"

namespace zepho {
namespace {

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
    EXPECT_EQ(serialized({304, {{"A", "1"}}, {}}),
              "HTTP/1.1 304 Not Modified\r\nA: 1\r\nConnection: keep-alive\r\n"
              "Content-Length: 0\r\n\r\n");
    // The body of these is never sent.
    for (const int status : {204, 304})
        EXPECT_TRUE(serialized({status, {}, toBytes("abc")}).ends_with("\r\n\r\n"));
}

TEST(HttpMessageTest, NoValueCanBeginAHeaderOfItsOwn) {
    const HttpResponse evil{
        200, {{"X-Voice", "a\r\nSet-Cookie: b\r\n\r\nbody"}, {"Bad\r\nName", "\t日本"}}, {}};
    EXPECT_EQ(serialized(evil),
              "HTTP/1.1 200 OK\r\nBad  Name:  日本\r\nConnection: keep-alive\r\n"
              "Content-Length: 0\r\nX-Voice: a  Set-Cookie: b    body\r\n\r\n");
}

TEST(HttpMessageTest, MakesJsonTextAndErrors) {
    const HttpResponse json = HttpResponse::json(202, Json{{"url", "a/b"}, {"n", 1}});
    EXPECT_EQ(json.status, 202);
    EXPECT_EQ(json.headers.at("Content-Type"), "application/json; charset=utf-8");
    EXPECT_EQ(asText(json.body), R"({"n":1,"url":"a/b"})");
    EXPECT_EQ(asText(HttpResponse::json(200, Json("\xFF")).body), "{}");
    const HttpResponse text = HttpResponse::text(200, "声");
    EXPECT_EQ(text.headers.at("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_EQ(asText(text.body), "声");
    const HttpResponse error = HttpResponse::error(503, "queue_full", "later \"please\"");
    EXPECT_EQ(error.status, 503);
    EXPECT_EQ(asText(error.body), R"({"error":"queue_full","message":"later \"please\""})");
}

TEST(HttpMessageTest, QueryValuesAreTheFirstOfTheirKeyDecoded) {
    const struct {
        const char* query;
        const char* key;
        const char* value;
    } cases[] = {
        {"", "a", "none"},
        {"b=1&&c", "a", "none"},
        {"a&a=1", "a", "1"},  // a piece without "=" is no value
        {"a=1&a=2", "a", "1"},
        {"a=b=c", "a", "b=c"},
        {"a=", "a", ""},
        {"=x", "", "x"},
        {"a=1+2%2B3%20", "a", "1 2+3 "},
        {"%61b=%E5%A3%B0", "ab", "声"},
        {"a+b=1", "a+b", "1"},  // "+" stands for a blank in values only
        {"%zz=1", "%zz", "1"},  // a name that cannot be decoded stands as sent
        {"a=1+%zz", "a", "1 %zz"},
        {"a=%E5%A3", "a", "%E5%A3"},  // not UTF-8
        {"a=%4", "a", "%4"},
    };
    for (const auto& each : cases) {
        HttpRequest request;
        request.query = each.query;
        EXPECT_EQ(request.queryValue(each.key, "none"), each.value) << each.query;
    }
}

TEST(HttpMessageTest, ReadsHeadersAndBodiesOfAnyBytes) {
    HttpRequest request;
    request.headers = {{"content-type", "text/plain"}};
    request.body = toBytes(
        "a\xFF"
        "b");
    EXPECT_EQ(request.header("Content-TYPE"), "text/plain");
    EXPECT_EQ(request.header("accept"), "");
    EXPECT_EQ(request.bodyText(),
              "a\xEF\xBF\xBD"
              "b");
}

TEST(HttpMessageTest, UnlistedStatusesAreOk) {
    EXPECT_EQ(reasonPhrase(200), "OK");
    EXPECT_EQ(reasonPhrase(418), "OK");
    EXPECT_EQ(reasonPhrase(413), "Payload Too Large");
    EXPECT_EQ(reasonPhrase(429), "Too Many Requests");
}

}  // namespace
}  // namespace zepho
