// Downloads that come to their end, those that are stopped on the way, and every way in which one
// can fail: what is told, and what stays on disk.
#include <atomic>
#include <cerrno>
#include <csignal>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <unistd.h>

#include "core/platform/Process.h"
#include "tests/models/DownloadFixture.h"
#include "tests/support/HttpClient.h"
#include "tests/support/TempDir.h"

namespace {

std::mutex syncLock;
std::vector<std::string> synced;  // guarded by syncLock
std::atomic<int> syncError{0};    // of every call, if it is not 0

std::vector<std::string> takeSynced() {
    const std::lock_guard guard(syncLock);
    return std::exchange(synced, {});
}

}  // namespace

// Stands in front of the C library's for the whole program.
extern "C" int fsync(int fd) {
    {
        std::error_code error;
        const std::lock_guard guard(syncLock);
        synced.push_back(
            std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), error));
    }
    if (syncError != 0) {
        errno = syncError;
        return -1;
    }
    static auto* const real = reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, "fsync"));
    return real(fd);
}

namespace zepho {
namespace {

using namespace zepho::test;
using std::chrono::milliseconds;

// Sends these bytes and ends the connection.
std::function<void(RawPeer&)> saying(const std::string& bytes) {
    return [bytes](RawPeer& peer) { peer.send(bytes); };
}

TEST_F(Download, fetchesTheTokenizerAndThenTheModel) {
    const std::string model = bodyOf(3'000'000);
    const std::string tokenizer = bodyOf(70'000);
    ModelHost host([&](const httplib::Request& request, httplib::Response& response) {
        const bool first = request.path.find("tokenizer") != std::string::npos;
        response.set_content(first ? tokenizer : model, "application/octet-stream");
    });
    put("m.gguf", "");
    downloader->start(variantOf(2'900'000), host.address() + "/", true);
    // While a job runs, another one is not even begun.
    downloader->start(variantOf(1), "elsewhere", true);
    awaitEnd(Stage::done, 2);
    EXPECT_EQ(count(Stage::connecting), 2U);
    EXPECT_EQ(count(Stage::verifying), 2U);
    EXPECT_EQ(reports.front().fileName, "tokenizer.json");
    EXPECT_EQ(reports.front().total, tokenizerVariant().sizeBytes);
    EXPECT_EQ(reports.back().total, 3'000'000);
    EXPECT_EQ(contentOf("m.gguf"), model);
    EXPECT_EQ(contentOf("tokenizer.json"), tokenizer);
    EXPECT_FALSE(fileExists(inModels("m.gguf.part")));
    const std::vector<SeenRequest> seen = host.seen();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[1].path, "/tessmarin/s2-pro-gguf/resolve/main/m.gguf?download=true");
    EXPECT_EQ(seen[1].range, "");
    EXPECT_EQ(seen[1].userAgent, "Zephon/0.3.26220");

    reports.clear();
    downloader->start(variantOf(2'900'000), host.address(), true);
    awaitEnd(Stage::done);
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(host.seen().size(), 2U) << "it is there already";
}

TEST_F(Download, keepsWhatHasComeWhenItIsCancelledAndBeginsAnewWhereTheRangeIsIgnored) {
    const std::string body = bodyOf(4000);
    std::atomic<bool> first{true};
    RawHost host([&](RawPeer& peer) {
        const bool cut = first.exchange(false);
        EXPECT_EQ(peer.request().find("Range: bytes=3000-") == std::string::npos, cut);
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 4000\r\n\r\n" +
                  body.substr(0, cut ? 3000 : 4000));
        if (cut) peer.waitUntilGone();
    });
    downloader->start(variantOf(4000), host.address(), false);
    ASSERT_TRUE(main.runUntil([&] { return downloader->snapshot().received == 3000; }));
    downloader->cancel();
    awaitEnd(Stage::cancelled);
    EXPECT_EQ(reports.back().received, 3000);
    EXPECT_EQ(error(), "");
    EXPECT_EQ(countLogLines("m.gguf not fetched: cancelled"), 1);
    EXPECT_EQ(contentOf("m.gguf.part"), body.substr(0, 3000));
    run(Stage::done, host.address());
    EXPECT_EQ(contentOf("m.gguf"), body);
}

TEST_F(Download, startsNoModelWithoutATokenizerAndEndsQuietlyWithItsObject) {
    const std::string part = inModels("tokenizer.json.part");
    std::atomic<int> connections{0};
    std::atomic<int> ended{0};
    RawHost host([&](RawPeer& peer) {
        ++connections;
        // Byte by byte, for as long as somebody listens.
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 12582912\r\n\r\n");
        while (peer.send("x")) std::this_thread::sleep_for(milliseconds(1));
        ++ended;
    });
    downloader->start(variantOf(4000), host.address(), true);
    ASSERT_TRUE(main.runUntil([&] { return downloader->snapshot().received > 3; }));
    downloader->cancel();
    awaitEnd(Stage::cancelled);
    EXPECT_EQ(reports.back().received, fileSizeOf(part));
    EXPECT_EQ(connections, 1);

    reports.clear();
    downloader->start(variantOf(4000), host.address(), true);
    ASSERT_TRUE(main.runUntil([&] { return count(Stage::downloading) > 0; }));
    reports.clear();
    downloader.reset();
    ASSERT_TRUE(main.runUntil([&] { return ended == 2; }));
    EXPECT_EQ(reports.size(), 0U) << "what was on its way is dropped";
    EXPECT_GT(fileSizeOf(part), 0);
    EXPECT_FALSE(fileExists(inModels("m.gguf.part")));
}

TEST_F(Download, doesNotFillTheQueueOfABusyMainThread) {
    ModelHost host(ModelHost::serving(bodyOf(8'000'000)));
    downloader->start(variantOf(8'000'000), host.address(), false);
    ASSERT_TRUE(eventually([&] { return !downloader->busy(); }));
    EXPECT_EQ(main.size(), 1U);
    awaitEnd(Stage::done);
    // Of the hundreds of chunks the last one has stayed.
    EXPECT_EQ(reports.size(), 4U);
    EXPECT_EQ(reports[1].received, 8'000'000);
    EXPECT_GT(reports[1].bytesPerSec, 0.0);

    // A dispatcher that drops what it gets does not stop the reports for good.
    reports.clear();
    setMainThreadDispatcher({});
    downloader->start(variantOf(8'000'000), host.address(), false);
    EXPECT_EQ(downloader->snapshot().stage, Stage::done);
    MainQueue again;
    downloader->start(variantOf(8'000'000), host.address(), false);
    EXPECT_TRUE(again.runUntil([&] { return reports.size() == 1; }));
}

TEST(HttpSession, mayEndWithinAnEvent) {
    ::setenv("no_proxy", "*", 1);
    RawHost host([](RawPeer& peer) {
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 4000\r\n\r\nabc");
        peer.waitUntilGone();
    });
    Gate ended;
    std::vector<HttpFailure> ends;
    auto session = std::make_unique<HttpSession>();
    HttpEvents events;
    events.headers = [](const HttpHead& head) { return head.length == 4000; };
    events.completed = [&](const HttpOutcome& outcome) {
        ends.push_back(outcome.failure);
        if (ends.size() == 2) ended.open();
    };
    // The second one has only been handed over when the session ends.
    const auto waiting = HttpSession::transfer(host.address(), {}, events);
    events.data = [&](ByteView) {
        session->start(waiting);
        session.reset();
        return true;
    };
    session->start(HttpSession::transfer(host.address(), {}, events));
    ended.wait();
    EXPECT_EQ(ends, (std::vector{HttpFailure::cancelled, HttpFailure::cancelled}));
}

// A program that downloads is killed in the middle, and started again.
TEST_F(Download, survivesAKilledProgram) {
    const std::string body = bodyOf(24'000'000);
    Gate goOn;
    std::atomic<bool> holding{true};
    ModelHost content([&](const httplib::Request&, httplib::Response& response) {
        response.set_content_provider(
            body.size(), "application/octet-stream",
            [&](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                // The first attempt gets no further than half of it.
                if (holding && offset >= body.size() / 2) goOn.wait();
                return sink.write(body.data() + offset, std::min<std::size_t>(length, 60'000));
            });
    });
    ModelHost front([&](const httplib::Request&, httplib::Response& response) {
        response.set_redirect(content.address() + "/blob/1");
    });
    const OpenAtEnd whateverHappens{goOn};
    const auto spawn = [&] {
        const std::string size = std::to_string(body.size());
        return Process::spawn(
            {DOWNLOAD_FILE, {front.address(), "m.gguf", size}, "/", inModels("output")});
    };
    const std::string part = inModels("m.gguf.part");
    const std::shared_ptr<Process> first = spawn();
    ASSERT_TRUE(eventually([&] { return fileSizeOf(part) >= 4'000'000; }));
    first->killGroup();
    ASSERT_TRUE(first->waitForExit(std::chrono::seconds(30), milliseconds(2)));
    const std::int64_t left = fileSizeOf(part);
    EXPECT_FALSE(fileExists(inModels("m.gguf")));
    holding = false;
    goOn.open();

    const std::shared_ptr<Process> second = spawn();
    ASSERT_TRUE(second->waitForExit(std::chrono::seconds(30), milliseconds(2)));
    EXPECT_EQ(second->exitStatus()->number, 0) << contentOf("output");
    ASSERT_EQ(content.seen().size(), 2U);
    EXPECT_EQ(content.seen()[1].range, "bytes=" + std::to_string(left) + "-");
    EXPECT_TRUE(contentOf("m.gguf") == body) << "too long to be shown";
    EXPECT_FALSE(fileExists(part));
}

TEST_F(Download, tellsABadStatusAndThenTheEndOfTheRequest) {
    put("m.gguf.part", "12345");
    const std::pair<std::string, std::string> rows[] = {
        {"404", "Not Found"}, {"416", "Range Not Satisfiable"}, {"204", "No Content"}, {"599", ""}};
    for (const auto& [number, phrase] : rows) {
        RawHost host(saying("HTTP/1.1 " + number + " Whatever\r\nContent-Length: 2\r\n\r\nno"));
        run(Stage::failed, host.address(), 2);
        EXPECT_EQ(reports[1].error, "HTTP " + number + " " + phrase +
                                        "(源:" + downloadUrl(host.address(), "m.gguf") + ")");
        EXPECT_EQ(reports[1].received, 5);
        EXPECT_EQ(error(), "cancelled");
        EXPECT_EQ(countLogLines("m.gguf not fetched: http " + number), 1);
        EXPECT_EQ(contentOf("m.gguf.part"), "12345");
    }
}

TEST_F(Download, keepsAPartThatIsOfUseWhenItFails) {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string partial = "HTTP/1.1 206 Partial\r\n";
    const std::string moved = "HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: ";
    const struct {
        std::string answer;
        std::string part;   // what is left of it, 12345 at first
        std::string error;  // or any
    } rows[] = {
        {"", "12345", ""},
        {"What?\r\n\r\n", "12345", ""},
        {partial + "Content-Length: 9\r\n", "12345", ""},
        {moved + "/for/ever\r\n\r\n", "12345", ""},
        {moved + "file:///etc/hostname\r\n\r\n", "12345", ""},
        {partial + "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\nzz\r\n", "12345abc", ""},
        {ok + "Content-Length: 0\r\n\r\n", "", "the download came back empty"},
        {ok + "Content-Length: 4096\r\n\r\n" + bodyOf(2048), bodyOf(2048),
         "收到 2 KB,服务器说应该是 4 KB —— 传输不完整,残件留着可续传"},
        // No length, and not the size that was to be expected: the page of some gateway.
        {ok + "Content-Type: text/html\r\n\r\n" + std::string(3 << 20, 'h'), "(missing)",
         "大小对不上(3.0 MB,估计应为 3 KB),多半是被网关塞了个错误页,已删除"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.answer.substr(0, 100));
        put("m.gguf.part", "12345");
        RawHost host(saying(row.answer));
        run(Stage::failed, host.address());
        EXPECT_EQ(contentOf("m.gguf.part"), row.part);
        EXPECT_FALSE(fileExists(inModels("m.gguf")));
        if (row.error.empty())
            EXPECT_GE(countLogLines("m.gguf not fetched: " + error()), 1);
        else
            EXPECT_EQ(error(), row.error);
    }
    run(Stage::failed, "http://127.0.0.1:" + std::to_string(freePort()));
    run(Stage::failed, "no address at all");
    EXPECT_EQ(error().find("bad url: no address at all/tessmarin/"), 0U);

    // A length beside a coding of the transfer means nothing; near the estimate is near enough.
    RawHost coded(saying(ok + "Content-Length: 7\r\nTransfer-Encoding: chunked\r\n\r\n"
                              "3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n"));
    run(Stage::done, coded.address());
    EXPECT_EQ(contentOf("m.gguf"), "abcde");
}

TEST_F(Download, givesUpOnASilentHost) {
    const milliseconds ample(60'000);
    const milliseconds little(150);
    const HttpLimits silence{little, ample, ample, milliseconds(1), {}};
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const struct {
        HttpLimits limits;
        std::string start;
        bool endless;  // never silent for long, but the head does not end, or the body
    } rows[] = {
        {silence, "", false},
        {silence, ok, false},
        {{ample, little, ample, milliseconds(1), {}}, ok, true},
        {{ample, ample, little, milliseconds(1), {}}, ok + "\r\n", true},
        {silence, ok + "Content-Length: 4000\r\n\r\nabc", false},
    };
    for (const auto& row : rows) {
        use(row.limits);
        RawHost host([&](RawPeer& peer) {
            peer.send(row.start);
            while (row.endless && peer.send("X: 1\r\n"))
                std::this_thread::sleep_for(milliseconds(10));
            peer.waitUntilGone();
        });
        run(Stage::failed, host.address());
        EXPECT_EQ(error(), "Timeout was reached") << row.start;
    }
    EXPECT_EQ(contentOf("m.gguf.part"), "abc");
}

TEST_F(Download, trustsNoCertificateThatDoesNotVerify) {
    const TempDir directory;
    const std::string key = directory.file("key");
    const std::string certificate = directory.file("certificate");
    const std::string command =
        "openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 -keyout " + key +
        " -out " + certificate + " 2>/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    ModelHost host(ModelHost::serving("secret"), certificate, key);
    run(Stage::failed, host.address());
    EXPECT_NE(error().find("certificate"), std::string::npos) << error();
    EXPECT_TRUE(host.seen().empty());
    EXPECT_EQ(contentOf("m.gguf.part"), "");
}

TEST_F(Download, isOnTheDiskBeforeItHasItsNameOrTellsWhyNot) {
    std::atomic<bool> nameTaken{false};  // while it is fetched
    ModelHost host([&](const httplib::Request&, httplib::Response& response) {
        if (nameTaken) std::filesystem::create_directories(inModels("m.gguf/inside"));
        response.set_content(bodyOf(4000), "application/octet-stream");
    });
    const std::string models = std::filesystem::canonical(ZEPHOPaths::modelsDir());
    takeSynced();
    run(Stage::done, host.address());
    EXPECT_EQ(takeSynced(), (std::vector{models + "/m.gguf.part", models}));
    std::filesystem::remove(inModels("m.gguf"));

    const std::string part = inModels("m.gguf.part");
    std::filesystem::create_symlink("/dev/full", part);
    run(Stage::failed, host.address());
    EXPECT_EQ(error(), "No space left on device (" + part + ")");
    EXPECT_TRUE(std::filesystem::is_symlink(part));
    std::filesystem::remove(part);

    syncError = EIO;
    run(Stage::failed, host.address());
    syncError = 0;
    EXPECT_EQ(error().find("Input/output error"), 0U) << error();
    EXPECT_EQ(contentOf("m.gguf"), "(missing)");
    EXPECT_EQ(contentOf("m.gguf.part"), "(missing)") << "nobody knows which bytes were lost";

    nameTaken = true;
    run(Stage::failed, host.address());
    EXPECT_EQ(error(), "rename failed (the engine may still hold the file): Is a directory");
    EXPECT_EQ(contentOf("m.gguf.part"), bodyOf(4000));

    std::filesystem::remove_all(models);
    saveFileBytes(models, asBytes("a file"));
    nameTaken = false;
    run(Stage::failed, host.address());
    EXPECT_EQ(error(), "the download came back empty");
}

TEST_F(Download, waitsForANetworkThatIsDown) {
    // No look-up leaves this machine for a name that cannot exist.
    const std::string nowhere = "http://" + std::string(80, 'a');
    std::atomic<int> looks{0};
    HttpLimits limits;
    limits.reconnect = milliseconds(1);
    limits.networkUp = [&] { return ++looks > 3; };
    use(limits);
    run(Stage::failed, nowhere);
    EXPECT_EQ(looks, 4);
    EXPECT_EQ(count(Stage::connecting), 1U);

    limits.networkUp = [&] { return ++looks < 0; };
    use(limits);
    reports.clear();
    downloader->start(variantOf(4000), nowhere, false);
    ASSERT_TRUE(main.runUntil([&] { return looks > 5; }));
    downloader->cancel();
    awaitEnd(Stage::cancelled);
}

}  // namespace
}  // namespace zepho
