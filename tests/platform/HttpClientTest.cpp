// The client against tests/tools/FakeS2.cpp, which answers as its configuration says.
#include <cstdlib>
#include <filesystem>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "core/platform/Files.h"
#include "core/platform/HttpClient.h"
#include "core/platform/Process.h"
#include "core/platform/TcpProbe.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

using std::chrono::milliseconds;

class HttpClient : public testing::Test {
protected:
    HttpClient() {
        std::filesystem::create_symlink(FAKE_S2, directory.file("s2"));
        std::random_device random;
        // The port may be taken; the server then ends at once.
        while (port == 0) {
            const int wanted = 18000 + static_cast<int>(random() % 14000);
            if (probe(wanted) == TcpProbe::answered) continue;
            server = Process::spawn(
                {directory.file("s2"), {"--port", std::to_string(wanted)}, directory.path(), ""});
            while (server->running() && probe(wanted) != TcpProbe::answered)
                std::this_thread::sleep_for(milliseconds(5));
            if (server->running()) port = wanted;
        }
    }
    ~HttpClient() override {
        server->killGroup();
        EXPECT_TRUE(server->waitForExit(std::chrono::seconds(30), milliseconds(5)));
    }

    static TcpProbe probe(int number) { return probeLoopbackPort(number, milliseconds(500)); }

    void behave(const std::string& lines) const {
        saveFileBytes(directory.file("fake-s2.conf"), asBytes(lines));
    }
    HttpCall request(const std::string& method = "GET") const {
        HttpCall made;
        made.method = method;
        made.url = "http://127.0.0.1:" + std::to_string(port) + "/x";
        made.direct = true;
        return made;
    }
    std::string received() const {
        return std::string(asText(*loadFileBytes(directory.file("fake-s2.request"))));
    }

    const test::TempDir directory;
    std::shared_ptr<Process> server;
    int port = 0;
};

TEST_F(HttpClient, sendsARequestAndGivesWhateverStatusComes) {
    HttpCall post = request("POST");
    post.headers = {"X-Test: one"};
    const Bytes body = toBytes(std::string(3'000'000, 'b'));
    post.body = body;
    const HttpReply response = httpSend(post);
    EXPECT_EQ(response.failure, HttpFailure::none);
    EXPECT_EQ(response.status, 404);
    EXPECT_EQ(asText(response.body), "not here");
    const std::string head = received().substr(0, received().find("\r\n\r\n"));
    EXPECT_EQ(head.find("POST /x HTTP/1.1\r\n"), 0U);
    EXPECT_NE(head.find("X-Test: one"), std::string::npos);
    EXPECT_NE(head.find("Content-Length: 3000000"), std::string::npos);
    EXPECT_EQ(head.find("Expect"), std::string::npos);
    EXPECT_EQ(received().size(), head.size() + 4 + body.size());

    EXPECT_EQ(httpSend(request()).status, 404);
    EXPECT_EQ(received().find("GET /x"), 0U);
    EXPECT_EQ(httpSend(request("POST")).status, 404);
    EXPECT_NE(received().find("Content-Length: 0"), std::string::npos);
}

TEST_F(HttpClient, saysWhyThereIsNoResponse) {
    behave("body=" + std::string(1000, 'x'));
    HttpCall capped = request();
    capped.maxResponseBytes = 999;
    EXPECT_EQ(httpSend(capped).failure, HttpFailure::tooLarge);
    capped.maxResponseBytes = 1000;
    EXPECT_EQ(httpSend(capped).body.size(), 1000U);

    behave("hang-up=1");
    const HttpReply hungUp = httpSend(request());
    EXPECT_EQ(hungUp.failure, HttpFailure::transport);
    EXPECT_NE(hungUp.error, "");

    behave("delay-ms=60000");
    HttpCall hasty = request();
    hasty.timeout = milliseconds(50);
    EXPECT_EQ(httpSend(hasty).failure, HttpFailure::timedOut);

    HttpCall file = request();
    file.url = "file:///etc/hostname";
    EXPECT_EQ(httpSend(file).failure, HttpFailure::transport);
}

TEST_F(HttpClient, goesPastAProxyWhereItIsToldTo) {
    ::setenv("http_proxy", "http://127.0.0.1:1", 1);
    const HttpReply direct = httpSend(request());
    HttpCall proxied = request();
    proxied.direct = false;
    const HttpReply refused = httpSend(proxied);
    ::unsetenv("http_proxy");
    EXPECT_EQ(direct.status, 404);
    EXPECT_EQ(refused.failure, HttpFailure::transport);
}

}  // namespace
}  // namespace zepho
