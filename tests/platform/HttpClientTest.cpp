// The client against a server that is not ours.
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>
#include <httplib.h>

#include "core/platform/HttpClient.h"
#include "tests/models/ModelHost.h"

namespace zepho {
namespace {

using std::chrono::milliseconds;

class HttpClient : public testing::Test {
protected:
    HttpClient() {
        const auto answer = [this](const httplib::Request& request, httplib::Response& response) {
            seen = request;
            response.status = 404;
            response.body = "not here";
        };
        server.Get(".*", answer).Post(".*", answer);
        port = server.bind_to_any_port("127.0.0.1");
        thread = std::thread([this] { server.listen_after_bind(); });
        while (!server.is_running()) std::this_thread::yield();
    }
    ~HttpClient() override {
        server.stop();
        thread.join();
    }
    [[nodiscard]] HttpCall request(const std::string& method) const {
        HttpCall made;
        made.method = method;
        made.url = "http://127.0.0.1:" + std::to_string(port) + "/x";
        made.direct = true;
        return made;
    }

    httplib::Server server;
    std::thread thread;
    int port = 0;
    httplib::Request seen;  // the last one, answered when it is looked at
};

TEST_F(HttpClient, sendsARequestAndGivesWhateverStatusComes) {
    HttpCall post = request("POST");
    post.headers = {"X-Test: one", "Content-Type: text/plain"};
    const Bytes body = toBytes(std::string(3'000'000, 'b'));
    post.body = body;
    const HttpReply response = httpSend(post);
    EXPECT_EQ(response.failure, HttpFailure::none);
    EXPECT_EQ(response.status, 404);
    EXPECT_EQ(asText(response.body), "not here");
    EXPECT_EQ(seen.method, "POST");
    EXPECT_EQ(seen.get_header_value("X-Test"), "one");
    EXPECT_FALSE(seen.has_header("Expect"));
    EXPECT_EQ(seen.body, asText(body));
    EXPECT_EQ(httpSend(request("GET")).status, 404);
    EXPECT_EQ(seen.method, "GET");
    EXPECT_EQ(httpSend(request("POST")).status, 404);
    EXPECT_EQ(seen.get_header_value("Content-Length"), "0");
}

TEST_F(HttpClient, saysWhyThereIsNoResponse) {
    HttpCall capped = request("GET");
    capped.maxResponseBytes = 7;
    EXPECT_EQ(httpSend(capped).failure, HttpFailure::tooLarge);
    capped.maxResponseBytes = 8;
    EXPECT_EQ(httpSend(capped).body.size(), 8U);
    const test::RawHost rude([](test::RawPeer&) {});
    HttpCall unanswered = request("GET");
    unanswered.url = rude.address();
    const HttpReply torn = httpSend(unanswered);
    EXPECT_EQ(torn.failure, HttpFailure::transport);
    EXPECT_NE(torn.error, "");
    test::RawHost silent([](test::RawPeer& peer) { peer.waitUntilGone(); });
    HttpCall hasty = request("GET");
    hasty.url = silent.address();
    hasty.timeout = milliseconds(50);
    EXPECT_EQ(httpSend(hasty).failure, HttpFailure::timedOut);
    HttpCall file = request("GET");
    file.url = "file:///etc/hostname";
    EXPECT_EQ(httpSend(file).failure, HttpFailure::transport);
}

TEST_F(HttpClient, goesPastAProxyWhereItIsToldTo) {
    ::setenv("http_proxy", "http://127.0.0.1:1", 1);
    const HttpReply direct = httpSend(request("GET"));
    HttpCall proxied = request("GET");
    proxied.direct = false;
    const HttpReply refused = httpSend(proxied);
    ::unsetenv("http_proxy");
    EXPECT_EQ(direct.status, 404);
    EXPECT_EQ(refused.failure, HttpFailure::transport);
}

}  // namespace
}  // namespace zepho
