// Many clients, slow handlers, peers that vanish, and the end of the server in the middle of it.
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include "core/diag/AppLog.h"
#include "core/platform/SealedBytes.h"
#include "core/platform/Tcp.h"
#include "tests/http/ServerFixture.h"

namespace zepho::test {
namespace {

// Larger than what the system takes at once, and nowhere the same.
const SharedBytes& largeBody() {
    static const SharedBytes body = [] {
        Bytes pattern(8 * 1024 * 1024 + 123);
        for (std::size_t i = 0; i < pattern.size(); ++i)
            pattern[i] = static_cast<std::uint8_t>(i * 7919 >> 8U);
        return SharedBytes(std::move(pattern));
    }();
    return body;
}

// Lets the process have so many descriptors only, and tells how many it could have before.
rlim_t allowDescriptors(rlim_t count) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t before = std::exchange(limit.rlim_cur, count);
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    return before;
}

// Keeps all threads that there are on these processors, and tells where they were before.
cpu_set_t keepThreadsOn(const cpu_set_t& processors) {
    cpu_set_t before;
    ::sched_getaffinity(0, sizeof before, &before);
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task"))
        ::sched_setaffinity(std::stoi(thread.path().filename()), sizeof processors, &processors);
    return before;
}

HttpResponse echoPath(const HttpRequest& request) {
    return HttpResponse::text(200, request.path);
}

TEST(HttpServerLoadTest, AnyNumberOfHandlersMayBlock) {
    constexpr int count = 200;
    Gate gate;
    const auto server = startServer([&](const HttpRequest& request) {
        if (request.path == "/slow") gate.wait();
        return echoPath(request);
    });
    std::vector<HttpClient> clients;
    for (int i = 0; i < count; ++i) {
        clients.emplace_back(server->port());
        ASSERT_TRUE(clients.back().send("GET /slow HTTP/1.1\r\n\r\n"));
    }
    ASSERT_TRUE(gate.awaitInside(count));
    EXPECT_EQ(HttpClient(server->port()).request("GET", "/quick")->body, "/quick");
    gate.open();
    for (HttpClient& client : clients) EXPECT_EQ(client.read()->body, "/slow");
    // What was too much ends again.
    EXPECT_TRUE(eventually([] { return serverThreads() <= 16; })) << serverThreads();
    EXPECT_EQ(clients.front().request("GET", "/again")->body, "/again");
}

TEST(HttpServerLoadTest, TheQueueWaitsAtItsThreadLimitAndRecovers) {
    Gate gate;
    std::atomic<int> done{0};
    TaskQueue queue("zepho.http", {.idleThreads = 1, .maxThreads = 4});
    for (int i = 0; i < 12; ++i)
        queue.post([&] {
            const TaskQueue::Blocking blocking;
            gate.wait();
            ++done;
        });
    ASSERT_TRUE(gate.awaitInside(4));
    EXPECT_EQ(queue.threadCount(), 4U);
    gate.open();
    EXPECT_TRUE(eventually([&] { return done == 12; }));
}

// Answers each receive; one of "slow" only when the gate opens.
void serveAt(const std::shared_ptr<TcpConnection>& connection, std::atomic<Gate*>& gate) {
    connection->receive([connection, &gate](const TcpReceived& received) {
        if (received.complete || received.error) return connection->cancel();
        const TaskQueue::Blocking blocking;
        if (asText(received.bytes) == "slow") gate.load()->wait();
        connection->send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", {});
        serveAt(connection, gate);
    });
}

TEST(HttpServerLoadTest, NobodyWaitsBehindAHandlerThatBlocks) {
    // Requests of one moment may be brought to one thread, which then blocks in the first of them
    // while the others sleep: on one processor that is what happens nearly every time.
    std::atomic<Gate*> gate{nullptr};
    TaskQueue queue("zepho.http", {.idleThreads = 3});
    TcpListener listener(queue, "127.0.0.1", 0);
    listener.start({.onState = [](const std::error_code&) {},
                    .onConnection =
                        [&](TcpConnection made) {
                            serveAt(std::make_shared<TcpConnection>(std::move(made)), gate);
                        },
                    .onTrouble = [](const std::error_code&) {}});
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(::sched_getcpu(), &one);
    const cpu_set_t all = keepThreadsOn(one);
    HttpClient slow(listener.port());
    std::vector<HttpClient> quick;
    for (int i = 0; i < 3; ++i) quick.emplace_back(listener.port());
    for (int round = 0; round < 50; ++round) {
        Gate closed;
        gate = &closed;
        ASSERT_TRUE(slow.send("slow"));
        for (HttpClient& client : quick) ASSERT_TRUE(client.send("quick"));
        for (HttpClient& client : quick) ASSERT_TRUE(client.read()) << round;
        closed.open();
        ASSERT_TRUE(slow.read());
    }
    keepThreadsOn(all);
}

TEST(HttpServerLoadTest, IdleAndHalfConnectionsCostNoThread) {
    const auto server = startServer(echoPath);
    std::vector<HttpClient> idle;
    for (int i = 0; i < 2000; ++i) {
        idle.emplace_back(server->port());
        if (i % 2 == 0) {
            ASSERT_TRUE(idle.back().send("POST / HTTP/1.1\r\nContent-Length: 9\r\n\r\nx"));
        }
    }
    EXPECT_TRUE(HttpClient(server->port()).request("GET", "/"));
    // One for each core, one that watches, and one or two that a moment's need has brought.
    EXPECT_LE(serverThreads(), static_cast<int>(std::thread::hardware_concurrency()) + 3);
    for (int i = 0; i < 2000; i += 100) {
        ASSERT_TRUE(idle[i].send("12345678"));
        EXPECT_TRUE(idle[i].read());
    }
}

TEST(HttpServerLoadTest, PeersThatVanishOrReadSlowlyDisturbNobody) {
    std::atomic<int> asked{0};
    const std::optional<SharedBytes> sealed = sealedCopy(largeBody());
    ASSERT_TRUE(sealed);
    ASSERT_GE(sealed->file(), 0);
    const auto server = startServer([&](const HttpRequest& request) {
        if (request.path == "/counted") ++asked;
        if (request.query == "sealed") return HttpResponse{200, {}, *sealed};
        // Nobody but the answer holds this one.
        if (request.query == "own") return HttpResponse{200, {}, *sealedCopy(largeBody())};
        return HttpResponse{200, {}, largeBody()};
    });
    const std::string targets[] = {"/counted", "/counted?sealed", "/counted?own"};
    // To a peer that is gone: an error of the connection, and no signal.
    for (int i = 0; i < 18; ++i) {
        HttpClient client(server->port(), "127.0.0.1", 4096);
        ASSERT_TRUE(client.send("GET " + targets[i % 3] + " HTTP/1.1\r\n\r\n"));
        ASSERT_TRUE(eventually([&] { return asked > i; }));
        client.reset();
    }
    // A reader that does not read gets one answer prepared, however many requests it sends.
    HttpClient reader(server->port(), "127.0.0.1", 4096);
    std::string many;
    for (int i = 0; i < 9; ++i) many += "GET " + targets[i % 3] + " HTTP/1.1\r\n\r\n";
    ASSERT_TRUE(reader.send(many + "HEAD / HTTP/1.1\r\nConnection: close\r\n\r\n"));
    ASSERT_TRUE(eventually([&] { return asked > 18; }));
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(HttpClient(server->port()).request("GET", "/"));
        EXPECT_EQ(asked, 19);
    }
    // Once it reads, it gets them all, and whole, before the end that it asked for.
    for (int i = 0; i < 10; ++i) ASSERT_EQ(reader.read().value().body, asText(largeBody())) << i;
    EXPECT_TRUE(reader.endsWithin(std::chrono::seconds(30)));
}

TEST(HttpServerLoadTest, FilesOfMemoryTakeAFewDescriptorsOnly) {
    const rlim_t usual = allowDescriptors(64);
    std::vector<SharedBytes> kept;
    while (auto made = sealedCopy(largeBody().view().first(worthSealing))) kept.push_back(*made);
    allowDescriptors(usual);
    EXPECT_EQ(kept.size(), 8U);
    kept.clear();
    EXPECT_TRUE(sealedCopy(asBytes("x")));
}

TEST(HttpServerLoadTest, ABudgetIsKeptToTheByte) {
    const auto budget = std::make_shared<BufferBudget>(16);
    AppLog::clear();
    for (int shortage = 0; shortage < 2; ++shortage) {
        BufferBudget::Share one(budget);
        BufferBudget::Share other(budget);
        EXPECT_TRUE(one.grow(10) && other.grow(6));
        EXPECT_FALSE(other.grow(7) || other.grow(8));
        EXPECT_EQ(budget->used(), 16U);
    }
    // Once each, also when those who took it all have gone.
    EXPECT_EQ(AppLog::snapshot().size(), 2U);
}

TEST(HttpServerLoadTest, AllRequestsTogetherStayWithinTheirBudget) {
    constexpr std::size_t mb = 1024 * 1024;
    const auto budget = std::make_shared<BufferBudget>(32 * mb);
    Gate gate;
    const auto server = std::make_shared<HttpServer>(
        "127.0.0.1", 0,
        [&](const HttpRequest& request) {
            if (request.path == "/wait") gate.wait();
            return HttpResponse::text(200, std::to_string(request.body.size()));
        },
        budget);
    server->start();
    // The head of a request, and so much of its body.
    const auto post = [](std::size_t length, std::size_t sent) {
        return "POST / HTTP/1.1\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n" +
               std::string(sent, 'x');
    };
    HttpClient patient(server->port());
    ASSERT_TRUE(patient.send(post(4 * mb, 3 * mb)));
    ASSERT_TRUE(eventually([&] { return budget->used() >= 3 * mb; }));
    // One that would take all is closed on the way.
    HttpClient greedy(server->port());
    bool sent = greedy.send(post(1024 * mb, 0));
    for (int sentMb = 0; sent && sentMb < 1024; ++sentMb) sent = greedy.send(std::string(mb, 'x'));
    EXPECT_FALSE(sent);
    // Others are served meanwhile, and what was given back can be taken again.
    EXPECT_EQ(HttpClient(server->port()).request("GET", "/")->body, "0");
    EXPECT_TRUE(eventually([&] { return budget->used() <= 5 * mb; }));
    ASSERT_TRUE(patient.send(std::string(mb, 'x')));
    EXPECT_EQ(patient.read()->body, std::to_string(4 * mb));
    ASSERT_TRUE(eventually([&] { return budget->used() == 0; }));
    // One that arrives whole, but would be too much for its handler.
    HttpClient heavy(server->port());
    ASSERT_TRUE(heavy.send(post(5 * mb, 5 * mb)));
    EXPECT_FALSE(heavy.read());
    // While its handler runs, a body counts with what is made of it.
    HttpClient waiting(server->port());
    ASSERT_TRUE(waiting.send("POST /wait HTTP/1.1\r\nContent-Length: 500000\r\n\r\n" +
                             std::string(500000, 'x')));
    ASSERT_TRUE(gate.awaitInside(1));
    EXPECT_TRUE(eventually([&] { return budget->used() == std::size_t{7} * 500000; }));
    gate.open();
    EXPECT_EQ(waiting.read()->body, "500000");
    EXPECT_TRUE(eventually([&] { return budget->used() == 0; }));
}

TEST(HttpServerLoadTest, RecoversWhenDescriptorsRunOut) {
    const auto server = startServer(echoPath);
    HttpClient before(server->port());
    ASSERT_TRUE(before.request("GET", "/"));
    AppLog::clear();
    // The client's own descriptor is the last one there is.
    const int lowest = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::close(lowest);
    const rlim_t usual = allowDescriptors(static_cast<rlim_t>(lowest) + 1);
    HttpClient late(server->port());
    ASSERT_TRUE(late.send("GET / HTTP/1.1\r\n\r\n"));
    const auto warned = [] {
        const auto lines = AppLog::snapshot();
        return std::count_if(lines.begin(), lines.end(), [](const LogEntry& entry) {
            return entry.level == LogLevel::warn && entry.source == "http";
        });
    };
    EXPECT_TRUE(eventually([&] { return warned() == 1; }));
    // Who is connected is served; the next tries at accepting are not told again.
    for (int i = 0; i < 2000; ++i) ASSERT_TRUE(before.request("GET", "/"));
    EXPECT_FALSE(late.read(std::chrono::milliseconds(300)));
    allowDescriptors(usual);
    EXPECT_TRUE(late.read());
    EXPECT_EQ(warned(), 1);
    EXPECT_TRUE(server->isRunning());
}

TEST(HttpServerLoadTest, TheServerMayGoWhileItsHandlersBlock) {
    const auto gate = std::make_shared<Gate>();
    auto server = startServer([gate](const HttpRequest& request) {
        if (request.path == "/slow") gate->wait();
        return HttpResponse{200, {}, largeBody()};
    });
    HttpClient idle(server->port());
    ASSERT_TRUE(idle.request("GET", "/"));
    std::vector<HttpClient> slow;
    for (int i = 0; i < 10; ++i) {
        slow.emplace_back(server->port());
        ASSERT_TRUE(slow.back().send("GET /slow HTTP/1.1\r\n\r\nGET /slow HTTP/1.1\r\n\r\n"));
    }
    ASSERT_TRUE(gate->awaitInside(10));
    const int port = server->port();
    server.reset();
    EXPECT_THROW(HttpClient{port}, std::runtime_error);
    EXPECT_TRUE(idle.endsWithin(std::chrono::seconds(30)));
    // What was asked for is still answered, and the connections end with it.
    gate->open();
    for (HttpClient& client : slow)
        EXPECT_EQ(client.read().value().body.size(), largeBody().size());
    slow.clear();
    EXPECT_TRUE(eventually([] { return serverThreads() == 0; })) << serverThreads();
}

TEST(HttpServerLoadTest, ServersComeAndGoUnderLoad) {
    for (int round = 0; round < 20; ++round) {
        auto server = startServer(echoPath);
        std::vector<std::thread> clients;
        std::atomic<int> answered{0};
        for (int i = 0; i < 4; ++i)
            clients.emplace_back([&answered, port = server->port()] {
                try {
                    HttpClient client(port);
                    while (client.request("GET", "/")) ++answered;
                } catch (const std::runtime_error&) {
                    // The server was gone before this one got through.
                }
            });
        EXPECT_TRUE(eventually([&] { return answered > 20; }));
        server.reset();
        for (std::thread& client : clients) client.join();
        EXPECT_TRUE(eventually([] { return serverThreads() == 0; })) << serverThreads();
    }
}

}  // namespace
}  // namespace zepho::test
