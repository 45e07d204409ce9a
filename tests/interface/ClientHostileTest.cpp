// The client against hosts that are no service, or one that breaks in the middle.
#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/interface/ScriptedHost.h"
#include "tests/support/HttpClient.h"
#include "zephon_client.h"

namespace zephon {
namespace {

using namespace std::chrono_literals;
using zepho::test::ConnectionScript;
using zepho::test::ScriptedHost;
using End = ConnectionScript::End;

// Long enough for any machine, and short enough for a test that hangs.
Options patient() {
    Options options;
    options.timeout = 30s;
    return options;
}

Line lineOf(const std::string& text) {
    Line line;
    line.text = text;
    return line;
}

const std::string wav = "RIFF....WAVEfmt ";
const std::string clipHeaders =
    "X-ZEPHO-Sample-Rate: 24000\r\nX-ZEPHO-Duration-Ms: 10\r\nX-ZEPHO-Synth-Ms: 5\r\n";

std::string answer(const std::string& head, const std::string& body) {
    return "HTTP/1.1 " + head + "\r\n\r\n" + body;
}
std::string goodClip() {
    return answer("200 OK\r\n" + clipHeaders + "Content-Length: 16", wav);
}
std::string jsonAnswer(const std::string& body) {
    return answer("200 OK\r\nContent-Length: " + std::to_string(body.size()), body);
}

// What a call says to one answer that comes on a fresh connection.
template <class Call>
Error errorOf(const std::string& bytes, const Call& call, End end = End::close,
              const Options& options = patient()) {
    const ScriptedHost host({{{bytes}, end}});
    Client client(host.url(), options);
    return call(client);
}
Error speakError(const std::string& bytes, End end = End::close,
                 const Options& options = patient()) {
    return errorOf(
        bytes, [](Client& client) { return client.speak(lineOf("4")).error; }, end, options);
}

TEST(ClientHostile, CutAndDamagedAnswersAreErrors) {
    const std::string whole = goodClip();
    EXPECT_FALSE(speakError(whole));
    for (const std::size_t cut :
         {std::size_t{1}, std::size_t{20}, whole.size() - 17, whole.size() - 1}) {
        for (const End end : {End::close, End::reset}) {
            const Error error = speakError(whole.substr(0, cut), end);
            EXPECT_EQ(error.code, ErrorCode::connectionLost) << cut << ' ' << error.message;
        }
    }
    EXPECT_EQ(speakError("").code, ErrorCode::connectionLost);

    const std::string headers = "\r\n" + clipHeaders;
    const std::vector<std::string> damaged = {
        "garbage\r\n\r\n",
        "HTTP/2.0 200 OK" + headers + "\r\n",
        "HTTP/1.1 20 OK" + headers + "\r\n",
        "HTTP/1.1 +20 OK" + headers + "\r\n",
        "SSH-2.0-OpenSSH_9.2p1\r\n",
        answer("200 OK" + headers, wav),  // without a length
        answer("200 OK" + headers + "Content-Length: -16", wav),
        answer("200 OK" + headers + "Content-Length: 16 16", wav),
        answer("200 OK" + headers + "Content-Length: 99999999999999999999", wav),
        answer("200 OK" + headers + "Content-Length: 16\r\nContent-Length: 17", wav),
        answer("200 OK" + headers + "Content-Length: 16\r\nTransfer-Encoding: chunked", wav),
        answer("200 OK" + headers + "Transfer-Encoding: gzip", wav),
        answer("200 OK" + headers + "Transfer-Encoding: chunked", "-1\r\n"),
        answer("200 OK" + headers + "Transfer-Encoding: chunked", "\r\n"),
        answer("200 OK" + headers + "Transfer-Encoding: chunked", "4\r\nRIFFxx\r\n"),
        answer("200 OK" + headers + "Content-Length : 16", wav),
        answer("200 OK" + headers + "no colon\r\nContent-Length: 16", wav),
        answer("200 OK" + headers + " folded: 1\r\nContent-Length: 16", wav),
        answer("101 Upgrade", ""),
        // A good frame around something that is no clip.
        answer("200 OK\r\nContent-Length: 16", wav),
        answer("200 OK" + headers + "Content-Length: 4", "RIFF"),
    };
    for (const std::string& bytes : damaged) {
        const Error error = speakError(bytes);
        EXPECT_EQ(error.code, ErrorCode::badReply) << bytes << '\n' << error.message;
    }
    // Nobody asked whether it has changed.
    EXPECT_EQ(speakError(answer("304 Not Modified", "")).code, ErrorCode::refused);
}

TEST(ClientHostile, WhatIsReadIsBounded) {
    Options options = patient();
    options.maxReplyBytes = 1000;
    const std::string headers = "200 OK\r\n" + clipHeaders;
    EXPECT_EQ(speakError(answer(headers + "Content-Length: 1001", ""), End::hold, options).code,
              ErrorCode::replyTooLarge);
    std::string chunks;
    for (int i = 0; i < 11; ++i) chunks += "64\r\n" + std::string(100, 'x') + "\r\n";
    EXPECT_EQ(
        speakError(answer(headers + "Transfer-Encoding: chunked", chunks), End::hold, options).code,
        ErrorCode::replyTooLarge);
    EXPECT_EQ(speakError(answer(headers + "Transfer-Encoding: chunked", "fffffffffffffff\r\n"),
                         End::hold, options)
                  .code,
              ErrorCode::replyTooLarge);
    // A claim costs no memory: the end shows first.
    EXPECT_EQ(speakError(answer(headers + "Content-Length: 1000000000", "RIFF")).code,
              ErrorCode::connectionLost);

    std::string manyHeaders = "HTTP/1.1 200 OK\r\n";
    while (manyHeaders.size() < 90000) manyHeaders += "X-A: b\r\n";
    std::string trailers = answer("200 OK\r\nTransfer-Encoding: chunked", "0\r\n");
    while (trailers.size() < 90000) trailers += "X-A: b\r\n";
    std::string interim;
    for (int i = 0; i < 20; ++i) interim += "HTTP/1.1 100 Continue\r\n\r\n";
    for (const std::string& bytes :
         {std::string(100000, 'x'), "HTTP/1.1 200 " + std::string(100000, 'x'), manyHeaders,
          trailers, interim})
        EXPECT_EQ(speakError(bytes, End::hold).code, ErrorCode::badReply);
}

TEST(ClientHostile, UnusualButRightAnswersAreTaken) {
    const std::string headers = "200 OK\r\n" + clipHeaders;
    for (const std::string& bytes : {
             "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n" +
                 goodClip(),
             "HTTP/1.0 200\nx-zepho-sample-rate:24000\nX-ZEPHO-DURATION-MS:  10 \n"
             "X-Zepho-Synth-Ms:5\ncontent-length: 16\n\n" +
                 wav,
             answer(headers + "Content-Length: 16\r\nContent-Length: 16", wav),
             answer(headers + "Transfer-Encoding: Chunked",
                    "4\r\nRIFF\r\n00A;x=\"y\"\r\n....WAVEfm\r\n2\r\nt \r\n0\r\nX-Sum: 1\r\n\r\n"),
         }) {
        const ScriptedHost host({{{bytes}, End::close}});
        Client client(host.url());
        const Result<Clip> clip = client.speak(lineOf("4"));
        ASSERT_TRUE(clip) << clip.error.message << '\n' << bytes;
        EXPECT_EQ(std::string(clip.value.wav.begin(), clip.value.wav.end()), wav);
        EXPECT_EQ(clip.value.sampleRate, 24000);
        EXPECT_EQ(clip.value.durationMs, 10);
    }
}

TEST(ClientHostile, WrongJsonIsAnError) {
    const auto health = [](Client& client) { return client.health().error; };
    const auto voices = [](Client& client) { return client.voices().error; };
    const auto bindings = [](Client& client) { return client.bindings().error; };
    for (const char* body : {"", "{", "[]", "{}", R"({"status":"ready"})"})
        EXPECT_EQ(errorOf(jsonAnswer(body), health).code, ErrorCode::badReply) << body;
    EXPECT_EQ(errorOf(jsonAnswer(std::string(100000, '[')), health).code, ErrorCode::badReply);
    EXPECT_EQ(errorOf(jsonAnswer(R"({"voices":[{"id":"v"}],"count":1})"), voices).code,
              ErrorCode::badReply);
    EXPECT_EQ(errorOf(jsonAnswer(R"({"CCA:zh:female":1})"), bindings).code, ErrorCode::badReply);

    // A refusal is one even where it is not told in the service's way.
    const Error proxy =
        errorOf(answer("503 Service Unavailable\r\nContent-Length: 6", "<html>"), health);
    EXPECT_EQ(proxy.code, ErrorCode::refused);
    EXPECT_EQ(proxy.message, "HTTP status 503");
    const Error limited =
        errorOf(answer("429 Too Many Requests\r\nRetry-After: 60\r\nContent-Length: 43",
                       R"({"error":"rate_limited","message":"\u5fd9"})"),
                health);
    EXPECT_EQ(limited.message, "忙");
    EXPECT_EQ(limited.retryAfterSeconds, 60);
}

TEST(ClientHostile, NothingIsWaitedForLongerThanTold) {
    Options options;
    options.timeout = 100ms;
    EXPECT_EQ(speakError("", End::hold, options).code, ErrorCode::timedOut);
    EXPECT_EQ(speakError(goodClip().substr(0, 30), End::hold, options).code, ErrorCode::timedOut);
    // The deadline is that of the whole answer, not of each byte.
    EXPECT_EQ(speakError("HTTP/1.1 200 OK\r\nX: ", End::trickle, options).code,
              ErrorCode::timedOut);
    // More than any system's buffers take without a reader.
    const Error deaf = errorOf(
        "", [](Client& client) { return client.speak(lineOf(std::string(64000000, 'x'))).error; },
        End::deaf, options);
    EXPECT_EQ(deaf.code, ErrorCode::timedOut);
}

TEST(ClientHostile, WrongCallsAreRefusedAtOnce) {
    Client wrong("ftp://desk");
    EXPECT_EQ(wrong.health().error.code, ErrorCode::badArgument);
    Client nobody("http://127.0.0.1:" + std::to_string(zepho::test::freePort()));
    const Error error = nobody.health().error;
    EXPECT_EQ(error.code, ErrorCode::connectFailed);
    EXPECT_NE(error.message.find("127.0.0.1"), std::string::npos);
    Line line = lineOf("4");
    line.speed = std::nan("");
    EXPECT_EQ(nobody.speak(line).error.code, ErrorCode::badArgument);
    EXPECT_EQ(nobody.prewarm({line}).error.code, ErrorCode::badArgument);
    // Nothing from a value begins a header or a request of its own.
    EXPECT_EQ(nobody.speak(lineOf("4"), "a\r\nX: 1").error.code, ErrorCode::badArgument);
    EXPECT_EQ(nobody.request("GET", "/v1/log HTTP/1.1\r\n").error.code, ErrorCode::badArgument);
    EXPECT_EQ(nobody.request("GET", "").error.code, ErrorCode::badArgument);
}

// Calls that are right go to the whole service in zephonctl's own test.
TEST(ClientHostile, AnythingMayStandInAPathAndAQuery) {
    const ScriptedHost host({{{jsonAnswer("{}"), jsonAnswer("{}")}, End::close}});
    Client client(host.url(), patient());
    (void)client.removeVoice("a/b c?d");
    (void)client.selfTest(lineOf("登 & gate=4\r\n"));
    ASSERT_EQ(host.requests().size(), 2U);
    EXPECT_EQ(host.requests()[0].find("DELETE /v1/voices/a%2Fb%20c%3Fd HTTP/1.1\r\n"), 0U)
        << host.requests()[0];
    EXPECT_NE(host.requests()[1].find("text=%E7%99%BB%20%26%20gate%3D4%0D%0A"), std::string::npos)
        << host.requests()[1];
}

TEST(ClientKeepAlive, ADeadConnectionIsReplacedOnce) {
    // A client that broke here would take the whole program with it.
    const auto before = std::signal(SIGPIPE, SIG_DFL);
    for (const End end : {End::close, End::reset}) {
        // Ended while it was idle.
        const ScriptedHost host({{{goodClip(), goodClip()}, end}, {{goodClip()}, end}});
        Client client(host.url());
        for (int i = 0; i < 2; ++i) EXPECT_TRUE(client.speak(lineOf("4")));
        host.waitForEnd(0);
        EXPECT_TRUE(client.speak(lineOf("4")));
        EXPECT_EQ(host.requests().size(), 3U);
    }
    {
        // Ended in the middle: the second request has arrived and is sent again.
        const ScriptedHost host({{{goodClip()}, End::read}, {{goodClip()}, End::close}});
        Client client(host.url());
        EXPECT_TRUE(client.speak(lineOf("3")));
        EXPECT_TRUE(client.speak(lineOf("4")));
        const std::vector<std::string> seen = host.requests();
        ASSERT_EQ(seen.size(), 3U);
        EXPECT_EQ(seen[1], seen[2]);
        EXPECT_NE(seen[1], seen[0]);
    }
    {
        // But once only.
        const ScriptedHost host({{{goodClip()}, End::read}, {{}, End::read}, {{goodClip()}, {}}});
        Client client(host.url());
        EXPECT_TRUE(client.speak(lineOf("4")));
        EXPECT_EQ(client.speak(lineOf("4")).error.code, ErrorCode::connectionLost);
        EXPECT_EQ(host.requests().size(), 3U);
    }
    std::signal(SIGPIPE, before);
}

TEST(ClientKeepAlive, NothingIsRepeatedThatMayHaveBeenDone) {
    {
        // A fresh connection is no kept one.
        const ScriptedHost host({{{}, End::read}, {{goodClip()}, End::close}});
        Client client(host.url());
        EXPECT_EQ(client.speak(lineOf("4")).error.code, ErrorCode::connectionLost);
        EXPECT_EQ(host.requests().size(), 1U);
    }
    {
        // A byte of an answer has come.
        const ScriptedHost host({{{goodClip(), "H"}, End::close}, {{goodClip()}, End::close}});
        Client client(host.url());
        EXPECT_TRUE(client.speak(lineOf("4")));
        EXPECT_EQ(client.speak(lineOf("4")).error.code, ErrorCode::connectionLost);
    }
    {
        // A second voice of the same recordings would be a fault.
        const ScriptedHost host({{{goodClip()}, End::read}, {{goodClip()}, End::close}});
        Client client(host.url());
        EXPECT_TRUE(client.speak(lineOf("4")));
        EXPECT_EQ(client.clone({}).error.code, ErrorCode::connectionLost);
        EXPECT_EQ(host.requests().size(), 2U);
    }
}

// After these the rest of the stream cannot be trusted, or there is none.
TEST(ClientKeepAlive, ASpoiltConnectionIsNotUsedAgain) {
    const std::string closing =
        answer("200 OK\r\nConnection: Close\r\n" + clipHeaders + "Content-Length: 16", wav);
    const std::string old =
        "HTTP/1.0 200 OK\r\n" + clipHeaders + "Content-Length: 16\r\n\r\n" + wav;
    for (const std::string& first :
         {closing, old, goodClip() + "HTTP/1.1 200 OK\r\n", std::string("?\n\n")}) {
        const ScriptedHost host({{{first}, End::hold}, {{goodClip()}, End::close}});
        Client client(host.url());
        const Result<Clip> clip = client.speak(lineOf("3"));
        EXPECT_EQ(clip.ok(), first != "?\n\n");
        EXPECT_TRUE(client.speak(lineOf("4"))) << first;
        EXPECT_EQ(host.requests().size(), 2U);
    }
}

}  // namespace
}  // namespace zephon
