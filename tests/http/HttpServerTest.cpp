// The server as one client sees it, over real sockets.
#include <atomic>
#include <cerrno>

#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/http/HttpServer.h"
#include "tests/http/ServerFixture.h"

namespace zepho::test {
namespace {

HttpResponse echo(const HttpRequest& request) {
    if (request.path == "/304") return {304, {}, {}};
    if (request.path == "/204") return {204, {}, toBytes("never sent")};
    if (request.path == "/throw") throw std::runtime_error("broken handler");
    HttpResponse response = HttpResponse::text(
        200, request.method + " " + request.path + " " + request.query + " " + request.bodyText());
    response.headers["X-Peer"] = request.peer;
    if (request.path == "/bye") response.headers["Connection"] = "close";
    return response;
}

TEST(HttpServerTest, KeepsTheConnectionUntilOneSideAsksForItsEnd) {
    const auto server = startServer(echo);
    HttpClient client(server->port());
    const auto first = client.request("get", "/a%20b?x=1", "body");
    ASSERT_TRUE(first);
    EXPECT_EQ(first->status, 200);
    EXPECT_EQ(first->body, "GET /a%20b x=1 body");
    EXPECT_EQ(first->headers.at("x-peer"), "127.0.0.1");
    EXPECT_EQ(first->headers.at("connection"), "keep-alive");
    for (const int status : {304, 204})
        EXPECT_EQ(client.request("GET", "/" + std::to_string(status)).value().status, status);
    EXPECT_EQ(client.request("GET", "/throw").value().status, 500);
    // The answers above had no stray body, or this one would not be framed.
    const auto last = client.request("GET", "/z", "", "connection:  CLOSE \r\n");
    ASSERT_TRUE(last);
    EXPECT_EQ(last->body, "GET /z  ");
    EXPECT_EQ(last->headers.at("connection"), "close");
    EXPECT_TRUE(client.endsWithin(std::chrono::seconds(30)));

    HttpClient dismissed(server->port());
    ASSERT_TRUE(dismissed.request("GET", "/bye"));
    EXPECT_TRUE(dismissed.endsWithin(std::chrono::seconds(30)));
}

TEST(HttpServerTest, FramesRequestsHoweverTheyArrive) {
    const auto server = startServer(echo);
    const std::string request = "POST /p HTTP/1.1\r\nContent-Length: 6\r\n\r\n\r\n\r\nab";
    HttpClient client(server->port());
    for (const char byte : request) ASSERT_TRUE(client.send({&byte, 1}));
    EXPECT_EQ(client.read()->body, "POST /p  \r\n\r\nab");
    // In one segment: answers in order, letters as a length count as none.
    ASSERT_TRUE(client.send("GET /1 HTTP/1.1\r\nContent-Length: abc\r\n\r\n" + request +
                            "GET /3 HTTP/1.1\r\n\r\nGET /half"));
    for (const char* body : {"GET /1  ", "POST /p  \r\n\r\nab", "GET /3  "})
        EXPECT_EQ(client.read()->body, body);
    // What was begun is dropped silently when the client ends.
    client.finishSending();
    EXPECT_TRUE(client.endsWithin(std::chrono::seconds(30)));
    // A request that arrives together with the end is answered.
    HttpClient parting(server->port());
    ASSERT_TRUE(parting.send("GET /last HTTP/1.1\r\n\r\n"));
    parting.finishSending();
    EXPECT_EQ(parting.read()->body, "GET /last  ");
    EXPECT_TRUE(parting.endsWithin(std::chrono::seconds(30)));
}

TEST(HttpServerTest, LeavesNonsenseUnansweredAndRefusesWhatCannotBe) {
    std::atomic<int> calls{0};
    const auto server = startServer([&](const HttpRequest&) {
        ++calls;
        return HttpResponse();
    });
    HttpClient nonsense(server->port());
    ASSERT_TRUE(
        nonsense.send("nonsense\r\n\r\nGET / HTTP/1.1\r\n\r\n" + std::string(3000000, 'x')));
    HttpClient negative(server->port());
    ASSERT_TRUE(
        negative.send("POST / HTTP/1.1\r\nContent-Length: -5\r\n\r\nGET / HTTP/1.1\r\n\r\n"));
    EXPECT_TRUE(negative.endsWithin(std::chrono::seconds(30)));
    // The first connection waits until the peer closes it.
    EXPECT_FALSE(nonsense.endsWithin(std::chrono::milliseconds(1)));
    nonsense.finishSending();
    EXPECT_TRUE(nonsense.endsWithin(std::chrono::seconds(30)));
    EXPECT_EQ(calls, 0);
}

TEST(HttpServerTest, PortsThatCannotBeUsedGiveAReason) {
    const auto server = startServer(echo);
    const auto failure = [](const std::string& address, int port) -> std::string {
        try {
            std::make_shared<HttpServer>(address, port, echo)->start();
        } catch (const TtsError& error) {
            EXPECT_EQ(error.code, TtsErrorCode::engineFailed);
            return error.message;
        }
        return "started";
    };
    const std::string begin = "port " + std::to_string(server->port()) +
                              " is already in use.\neither another Zephon is already";
    for (const char* address : {"127.0.0.1", "0.0.0.0"})
        EXPECT_TRUE(failure(address, server->port()).starts_with(begin)) << address;
    EXPECT_EQ(failure("", 65536), "bad port 65536");
    EXPECT_EQ(failure("", -1), "bad port -1");
    EXPECT_EQ(failure("no address", 0), "Invalid argument (no address)");
}

TEST(HttpServerTest, ListensOnAllInterfacesAndNamesPeersInIpv4) {
    for (const char* address : {"", "0.0.0.0"}) {
        const auto server = std::make_shared<HttpServer>(address, 0, echo);
        server->start();
        server->start();  // once more is nothing
        EXPECT_EQ(HttpClient(server->port()).request("GET", "/")->headers.at("x-peer"),
                  "127.0.0.1");
    }
    EXPECT_EQ(peerAddress({TcpHost::Kind::ipv6, "::ffff:10.1.2.3"}), "10.1.2.3");
    EXPECT_EQ(peerAddress({TcpHost::Kind::ipv6, "::1"}), "::1");
    EXPECT_EQ(peerAddress({TcpHost::Kind::other, "/a/socket"}), "?");
}

TEST(HttpServerTest, StopEndsTheListenerOnly) {
    AppLog::clear();
    const auto server = startServer(echo);
    const int port = server->port();
    HttpClient client(port);
    ASSERT_TRUE(client.request("GET", "/"));
    server->stop();
    EXPECT_FALSE(server->isRunning());
    EXPECT_THROW(HttpClient{port}, std::runtime_error);
    // The port is free for the next server while the connection still stands.
    const auto next = std::make_shared<HttpServer>("127.0.0.1", port, echo);
    next->start();
    EXPECT_TRUE(HttpClient(port).request("GET", "/"));
    EXPECT_TRUE(client.request("GET", "/"));
    std::vector<std::string> lines;
    for (const LogEntry& entry : AppLog::snapshot()) lines.push_back(entry.text);
    const std::string started = "service started on http://127.0.0.1:" + std::to_string(port);
    EXPECT_EQ(lines, (std::vector<std::string>{started, "service stopped", started}));
}

TEST(HttpServerTest, AddressesOfLocalNetworksComeFirst) {
    using enum AddressFamily;
    const std::vector<InterfaceAddress> interfaces{
        {ipv4, "127.0.0.1"}, {ipv4, "172.15.0.1"}, {ipv4, "8.8.8.8"},    {ipv6, "fe80::1"},
        {ipv4, "10.0.0.2"},  {ipv4, "172.31.0.1"}, {ipv4, "172.32.0.1"}, {ipv4, "192.168.1.9"},
        {ipv4, "10.0.0.10"}, {ipv4, ""},           {ipv4, "10.0.0.2"},
    };
    EXPECT_EQ(reachableUrls(interfaces, 80),
              (std::vector<std::string>{"http://192.168.1.9:80", "http://10.0.0.10:80",
                                        "http://10.0.0.2:80", "http://10.0.0.2:80",
                                        "http://172.31.0.1:80", "http://8.8.8.8:80",
                                        "http://172.15.0.1:80", "http://172.32.0.1:80"}));
    EXPECT_EQ(reachableUrls(std::vector<InterfaceAddress>{}, 7),
              std::vector<std::string>{"http://127.0.0.1:7"});
    EXPECT_EQ(reachableUrls("not checked", 7), std::vector<std::string>{"http://not checked:7"});
    EXPECT_EQ(lanRank("172.x.0.1"), 4);
}

TEST(HttpServerTest, ALastAnswerArrivesWholeThoughItsClientSendsOn) {
    const std::string closing = "GET / HTTP/1.1\r\nConnection: close\r\n\r\n";
    const std::string more(std::size_t{48} * 1024, 'x');
    Gate gate;
    const auto server = startServer([&gate](const HttpRequest&) {
        gate.wait();
        return HttpResponse::text(200, std::string(std::size_t{200} * 1024, 'a'));
    });
    HttpClient client(server->port(), "127.0.0.1", 4096);
    ASSERT_TRUE(client.send(closing));
    ASSERT_TRUE(gate.awaitInside(1));
    ASSERT_TRUE(client.send(more));
    gate.open();
    const auto whole = client.read();
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->body.size(), std::size_t{200} * 1024);
    EXPECT_TRUE(client.endsWithin(std::chrono::seconds(30)));
    // It is listened to, but not without end.
    EXPECT_TRUE(eventually([&] { return !client.send(more); }));

    // Nor are many waited for that never end.
    std::vector<std::unique_ptr<HttpClient>> others;
    for (int i = 0; i < 40; ++i) {
        others.push_back(std::make_unique<HttpClient>(server->port()));
        ASSERT_TRUE(others.back()->send(closing));
        ASSERT_TRUE(others.back()->read());
    }
    EXPECT_TRUE(eventually([&] { return !others.front()->send("x"); }));
}

}  // namespace
}  // namespace zepho::test
