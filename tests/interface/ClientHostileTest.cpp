// The client against hosts that are no service, or one that breaks in the middle.
#include <atomic>
#include <chrono>
#include <csignal>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/HttpClient.h"
#include "zephon_client.h"

namespace zephon {
namespace {

using namespace std::chrono_literals;

enum class End {
    close,    // after the last answer
    reset,    // the same with a reset
    read,     // reads one more request, and ends without a word
    hold,     // stays open and silent until the peer ends
    trickle,  // sends a byte of a header now and then until the peer ends
    deaf,     // reads nothing at all until the host is destroyed
};

// What one connection goes through: for each answer a whole request is read before it is sent.
struct Script {
    std::vector<std::string> answers;
    End end = End::close;
};

// A listener on this machine that answers as the test tells, byte by byte, right or wrong. A thread
// of its own serves one connection after the other.
class ScriptedHost {
public:
    explicit ScriptedHost(std::vector<Script> connections) : scripts(std::move(connections)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
            ::listen(listener, 16) != 0 ||
            ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0)
            throw std::runtime_error("no listener");
        url = "http://127.0.0.1:" + std::to_string(::ntohs(address.sin_port));
        thread = std::thread([this] { serve(); });
    }
    ScriptedHost(const ScriptedHost&) = delete;
    ScriptedHost& operator=(const ScriptedHost&) = delete;
    // Its clients have gone before, which ends their connections.
    ~ScriptedHost() {
        stopping = true;
        ::shutdown(listener, SHUT_RDWR);
        thread.join();
        ::close(listener);
    }

    // Whole requests, in order.
    [[nodiscard]] std::vector<std::string> requests() const {
        const std::lock_guard guard(lock);
        return seen;
    }
    // Waits until the first connection is through.
    void waitForEnd() const {
        while (ended == 0) std::this_thread::sleep_for(1ms);
    }

    std::string url;

private:
    void serve() {
        for (const Script& script : scripts) {
            const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0) return;
            play(script, connection);
            ::close(connection);
            ++ended;
        }
    }
    void play(const Script& script, int connection) {
        std::string received;
        for (const std::string& answer : script.answers)
            if (!readRequest(connection, received) || !sendAll(connection, answer)) return;
        const linger now{1, 0};
        switch (script.end) {
            case End::close:
                break;
            case End::reset:
                ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &now, sizeof now);
                break;
            case End::read:
                readRequest(connection, received);
                break;
            case End::hold:
                while (readRequest(connection, received)) {
                }
                break;
            case End::trickle:
                while (sendAll(connection, "x")) std::this_thread::sleep_for(2ms);
                break;
            case End::deaf:
                while (!stopping) std::this_thread::sleep_for(2ms);
                break;
        }
    }
    static bool sendAll(int connection, std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t sent = ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0) return false;
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }
    bool readRequest(int connection, std::string& received) {
        constexpr std::string_view name = "\r\nContent-Length: ";
        std::size_t size = std::string::npos;
        while (received.size() < size) {
            char portion[65536];
            const ssize_t got = ::recv(connection, portion, sizeof portion, 0);
            if (got <= 0) return false;
            received.append(portion, static_cast<std::size_t>(got));
            const std::size_t end = received.find("\r\n\r\n");
            if (end == std::string::npos) continue;
            size = end + 4 + std::stoul(received.substr(received.find(name) + name.size()));
        }
        const std::lock_guard guard(lock);
        seen.push_back(received.substr(0, size));
        received.erase(0, size);
        return true;
    }

    const std::vector<Script> scripts;
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::atomic<int> ended{0};
    std::atomic<bool> stopping{false};
    mutable std::mutex lock;
    std::vector<std::string> seen;  // guarded by lock
    std::thread thread;
};

Line lineOf(const std::string& text) {
    Line line;
    line.text = text;
    return line;
}

const std::string wav = "RIFF....WAVEfmt ";
const std::string clipHead =
    "200 OK\r\nX-ZEPHO-Sample-Rate: 24000\r\nX-ZEPHO-Duration-Ms: 10\r\nX-ZEPHO-Synth-Ms: 5\r\n";

std::string answer(const std::string& head, const std::string& body) {
    return "HTTP/1.1 " + head + "\r\n\r\n" + body;
}
const std::string goodClip = answer(clipHead + "Content-Length: 16", wav);

// What a call says to one answer that comes on a fresh connection.
template <class Call>
Error errorOf(const std::string& bytes, const Call& call) {
    const ScriptedHost host({{{bytes}, End::close}});
    Client client(host.url);
    return call(client).error;
}
ErrorCode speakError(const Script& script, const Options& options = {}) {
    const ScriptedHost host({script});
    Client client(host.url, options);
    return client.speak(lineOf("4")).error.code;
}

TEST(ClientHostile, CutAndDamagedAnswersAreErrors) {
    for (const std::size_t cut :
         {std::size_t{0}, std::size_t{20}, goodClip.size() - 17, goodClip.size() - 1})
        for (const End end : {End::close, End::reset})
            EXPECT_EQ(speakError({{goodClip.substr(0, cut)}, end}), ErrorCode::connectionLost);

    const std::string chunked = clipHead + "Transfer-Encoding: chunked";
    for (const std::string& bytes : {
             std::string("garbage\r\n\r\n"),
             "HTTP/2.0 " + clipHead + "\r\n",
             std::string("HTTP/1.1 20 OK\r\n\r\n"),
             std::string("HTTP/1.1 +20 OK\r\n\r\n"),
             std::string("SSH-2.0-OpenSSH_9.2p1\r\n"),
             answer(clipHead, wav),  // without a length
             answer(clipHead + "Content-Length: -16", wav),
             answer(clipHead + "Content-Length: 16 16", wav),
             answer(clipHead + "Content-Length: 99999999999999999999", wav),
             answer(clipHead + "Content-Length: 16\r\nContent-Length: 17", wav),
             answer(chunked + "\r\nContent-Length: 16", wav),
             answer(clipHead + "Transfer-Encoding: gzip", wav),
             answer(chunked, "-1\r\n"),
             answer(chunked, "\r\n"),
             answer(chunked, "4\r\nRIFFxx\r\n"),
             answer(clipHead + "Content-Length : 16", wav),
             answer(clipHead + "no colon\r\nContent-Length: 16", wav),
             answer(clipHead + " folded: 1\r\nContent-Length: 16", wav),
             answer("101 Upgrade", ""),
             // A good frame around something that is no clip.
             answer("200 OK\r\nContent-Length: 16", wav),
             answer(clipHead + "Content-Length: 4", "RIFF"),
         })
        EXPECT_EQ(speakError({{bytes}}), ErrorCode::badReply) << bytes;
    // Nobody asked whether it has changed.
    EXPECT_EQ(speakError({{answer("304 Not Modified", "")}}), ErrorCode::refused);
}

TEST(ClientHostile, WhatIsReadIsBounded) {
    Options options;
    options.maxReplyBytes = 1000;
    const std::string chunked = clipHead + "Transfer-Encoding: chunked";
    std::string chunks;
    for (int i = 0; i < 11; ++i) chunks += "64\r\n" + std::string(100, 'x') + "\r\n";
    for (const std::string& bytes :
         {answer(clipHead + "Content-Length: 1001", ""), answer(chunked, chunks),
          answer(chunked, "fffffffffffffff\r\n")})
        EXPECT_EQ(speakError({{bytes}, End::hold}, options), ErrorCode::replyTooLarge) << bytes;
    // A claim costs no memory: the end shows first.
    EXPECT_EQ(speakError({{answer(clipHead + "Content-Length: 1000000000", "RIFF")}}),
              ErrorCode::connectionLost);

    std::string headers;
    while (headers.size() < 90000) headers += "X-A: b\r\n";
    std::string interim;
    for (int i = 0; i < 20; ++i) interim += answer("100 Continue", "");
    for (const std::string& bytes :
         {std::string(100000, 'x'), "HTTP/1.1 200 " + std::string(100000, 'x'),
          "HTTP/1.1 200 OK\r\n" + headers, answer(chunked, "0\r\n" + headers), interim})
        EXPECT_EQ(speakError({{bytes}, End::hold}), ErrorCode::badReply);
}

TEST(ClientHostile, UnusualButRightAnswersAreTaken) {
    for (const std::string& bytes : {
             answer("100 Continue", answer("103 Early Hints\r\nLink: x", goodClip)),
             "HTTP/1.0 200\nx-zepho-sample-rate:24000\nX-ZEPHO-DURATION-MS:  10 \n"
             "X-Zepho-Synth-Ms:5\ncontent-length: 16\n\n" +
                 wav,
             answer(clipHead + "Content-Length: 16\r\nContent-Length: 16", wav),
             answer(clipHead + "Transfer-Encoding: Chunked",
                    "4\r\nRIFF\r\n00A;x=\"y\"\r\n....WAVEfm\r\n2\r\nt \r\n0\r\nX-Sum: 1\r\n\r\n"),
         }) {
        const ScriptedHost host({{{bytes}}});
        Client client(host.url);
        const Result<Clip> clip = client.speak(lineOf("4"));
        ASSERT_TRUE(clip) << clip.error.message << '\n' << bytes;
        EXPECT_EQ(std::string(clip.value.wav.begin(), clip.value.wav.end()), wav);
        EXPECT_EQ(clip.value.sampleRate, 24000);
        EXPECT_EQ(clip.value.durationMs, 10);
    }
}

TEST(ClientHostile, WrongJsonIsAnError) {
    const auto json = [](const std::string& body, const std::string& status = "200 OK") {
        return answer(status + "\r\nContent-Length: " + std::to_string(body.size()), body);
    };
    const auto health = [](Client& client) { return client.health(); };
    const auto voices = [](Client& client) { return client.voices(); };
    for (const std::string& body : {std::string(), std::string("{"), std::string("[]"),
                                    std::string("{}"), std::string(R"({"status":"ready"})")})
        EXPECT_EQ(errorOf(json(body), health).code, ErrorCode::badReply) << body;
    EXPECT_EQ(errorOf(json(R"({"voices":[{"id":"v"}],"count":1})"), voices).code,
              ErrorCode::badReply);

    // A refusal is one even where it is not told in the service's way.
    const Error proxy = errorOf(json("<html>", "503 Service Unavailable"), health);
    EXPECT_EQ(proxy.code, ErrorCode::refused);
    EXPECT_EQ(proxy.message, "HTTP status 503");
    const Error limited = errorOf(json(R"({"error":"rate_limited","message":"\u5fd9"})",
                                       "429 Too Many Requests\r\nRetry-After: 60"),
                                  health);
    EXPECT_EQ(limited.message, "忙");
    EXPECT_EQ(limited.retryAfterSeconds, 60);
}

TEST(ClientHostile, NothingIsWaitedForLongerThanTold) {
    Options options;
    options.timeout = 100ms;
    for (const Script& script :
         {Script{{""}, End::hold}, Script{{goodClip.substr(0, 30)}, End::hold},
          // The deadline is that of the whole answer, not of each byte.
          Script{{"HTTP/1.1 200 OK\r\nX: "}, End::trickle}})
        EXPECT_EQ(speakError(script, options), ErrorCode::timedOut);
    // More than any system's buffers take without a reader.
    const ScriptedHost host({{{}, End::deaf}});
    Client client(host.url, options);
    EXPECT_EQ(client.speak(lineOf(std::string(64000000, 'x'))).error.code, ErrorCode::timedOut);
}

TEST(ClientHostile, WrongCallsAreRefusedAtOnce) {
    EXPECT_EQ(Client("ftp://desk").health().error.code, ErrorCode::badArgument);
    Client nobody("http://127.0.0.1:" + std::to_string(zepho::test::freePort()));
    const Error error = nobody.health().error;
    EXPECT_EQ(error.code, ErrorCode::connectFailed);
    EXPECT_NE(error.message.find("127.0.0.1"), std::string::npos);
    Line line = lineOf("4");
    line.speed = std::nan("");
    // Nothing from a value begins a header or a request of its own.
    for (const Error& refused :
         {nobody.speak(line).error, nobody.prewarm({line}).error,
          nobody.speak(lineOf("4"), "a\r\nX: 1").error,
          nobody.request("GET", "/v1/log HTTP/1.1\r\n").error, nobody.request("GET", "").error})
        EXPECT_EQ(refused.code, ErrorCode::badArgument);

    // Calls that are right go to the whole service in zephonctl's own test.
    const ScriptedHost host({{{goodClip, goodClip}}});
    Client client(host.url);
    (void)client.removeVoice("a/b c?d");
    (void)client.selfTest(lineOf("登 & gate=4\r\n"));
    ASSERT_EQ(host.requests().size(), 2U);
    EXPECT_EQ(host.requests()[0].find("DELETE /v1/voices/a%2Fb%20c%3Fd HTTP/1.1\r\n"), 0U);
    EXPECT_EQ(host.requests()[1].find("GET /v1/selftest?text=%E7%99%BB%20%26%20gate%3D4%0D%0A "),
              0U);
}

TEST(ClientKeepAlive, ADeadConnectionIsReplacedOnce) {
    // A client that broke here would take the whole program with it.
    const auto before = std::signal(SIGPIPE, SIG_DFL);
    for (const End end : {End::close, End::reset}) {
        // Ended while it was idle.
        const ScriptedHost host({{{goodClip, goodClip}, end}, {{goodClip}}});
        Client client(host.url);
        for (int i = 0; i < 2; ++i) EXPECT_TRUE(client.speak(lineOf("4")));
        host.waitForEnd();
        EXPECT_TRUE(client.speak(lineOf("4")));
        EXPECT_EQ(host.requests().size(), 3U);
    }
    // Ended in the middle: the second request has arrived and is sent again. But once only.
    const ScriptedHost host(
        {{{goodClip}, End::read}, {{goodClip}, End::read}, {{}, End::read}, {{goodClip}}});
    Client client(host.url);
    EXPECT_TRUE(client.speak(lineOf("3")));
    EXPECT_TRUE(client.speak(lineOf("4")));
    EXPECT_EQ(client.speak(lineOf("5")).error.code, ErrorCode::connectionLost);
    const std::vector<std::string> seen = host.requests();
    ASSERT_EQ(seen.size(), 5U);
    EXPECT_TRUE(seen[0] != seen[1] && seen[1] == seen[2] && seen[3] == seen[4]);
    std::signal(SIGPIPE, before);
}

TEST(ClientKeepAlive, NothingIsRepeatedThatMayHaveBeenDone) {
    const struct {
        Script first;
        bool isKept, clones;
    } rows[] = {
        {{{}, End::read}, false, false},   // a fresh connection is no kept one
        {{{goodClip, "H"}}, true, false},  // a byte of an answer has come
        // A second voice of the same recordings would be a fault.
        {{{goodClip}, End::read}, true, true},
    };
    for (const auto& row : rows) {
        const ScriptedHost host({row.first, {{goodClip}}});
        Client client(host.url);
        if (row.isKept) {
            EXPECT_TRUE(client.speak(lineOf("3")));
        }
        const Error error = row.clones ? client.clone({}).error : client.speak(lineOf("4")).error;
        EXPECT_EQ(error.code, ErrorCode::connectionLost);
        EXPECT_EQ(host.requests().size(), row.isKept ? 2U : 1U);
    }
}

// After these the rest of the stream cannot be trusted, or there is none.
TEST(ClientKeepAlive, ASpoiltConnectionIsNotUsedAgain) {
    const std::string end = "Content-Length: 16\r\n\r\n" + wav;
    for (const std::string& first :
         {"HTTP/1.1 " + clipHead + "Connection: Close\r\n" + end, "HTTP/1.0 " + clipHead + end,
          goodClip + "HTTP/1.1 200 OK\r\n", std::string("?\n\n")}) {
        const ScriptedHost host({{{first}, End::hold}, {{goodClip}}});
        Client client(host.url);
        EXPECT_EQ(client.speak(lineOf("3")).ok(), first != "?\n\n");
        EXPECT_TRUE(client.speak(lineOf("4"))) << first;
        EXPECT_EQ(host.requests().size(), 2U);
    }
}

}  // namespace
}  // namespace zephon
