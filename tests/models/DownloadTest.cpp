// Downloads that come to their end, those that are stopped on the way, and every way in which one
// can fail: what is told, and what stays on disk.
#include <csignal>

#include <gtest/gtest.h>
#include <httplib.h>

#include "core/platform/Process.h"
#include "core/platform/Sha256.h"
#include "tests/models/DownloadFixture.h"
#include "tests/support/HttpClient.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

using namespace zepho::test;
using Stage = DownloadStage;
using std::chrono::milliseconds;

// What came in, each run of `downloading` as one.
std::vector<Stage> stagesOf(const std::vector<DownloadProgress>& reports) {
    std::vector<Stage> stages;
    for (const DownloadProgress& report : reports)
        if (stages.empty() || report.stage != Stage::downloading ||
            stages.back() != Stage::downloading)
            stages.push_back(report.stage);
    return stages;
}

const std::vector<Stage> wholeWay{Stage::connecting, Stage::downloading, Stage::verifying,
                                  Stage::done};

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
    downloader->start(variantOf(1, "other.gguf"), host.address(), true);
    EXPECT_TRUE(downloader->busy());
    awaitEnd(Stage::done, 2);

    std::vector<Stage> expected = wholeWay;
    expected.insert(expected.end(), wholeWay.begin(), wholeWay.end());
    EXPECT_EQ(stagesOf(reports), expected);
    EXPECT_EQ(reports.front().fileName, "tokenizer.json");
    EXPECT_EQ(reports.front().total, tokenizerVariant().sizeBytes);
    EXPECT_EQ(reports.back().fileName, "m.gguf");
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
    EXPECT_EQ(stagesOf(reports), std::vector{Stage::done});
    EXPECT_EQ(host.seen().size(), 2U) << "it is there already";
}

TEST_F(Download, goesOnWhereAnEarlierAttemptStoppedThroughRedirects) {
    const std::string body = bodyOf(1500);
    ModelHost content(ModelHost::serving(body));
    ModelHost front([&](const httplib::Request&, httplib::Response& response) {
        response.set_redirect(content.address() + "/blob/1");
    });
    put("m.gguf.part", body.substr(0, 1000));
    downloader->start(variantOf(9999), front.address(), false);
    awaitEnd(Stage::done);
    EXPECT_EQ(contentOf("m.gguf"), body);
    ASSERT_EQ(content.seen().size(), 1U);
    EXPECT_EQ(content.seen()[0].range, "bytes=1000-");
    EXPECT_EQ(reports[0].received, 1000);
    EXPECT_EQ(reports[1].total, 1500);
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
    EXPECT_TRUE(downloader->busy());
    downloader->cancel();
    awaitEnd(Stage::cancelled);
    EXPECT_EQ(reports.back().stage, Stage::cancelled);
    EXPECT_EQ(reports.back().received, 3000);
    EXPECT_EQ(reports.back().error, "");
    EXPECT_TRUE(wasLogged("m.gguf not fetched: cancelled"));
    EXPECT_EQ(contentOf("m.gguf.part"), body.substr(0, 3000));

    downloader->start(variantOf(4000), host.address(), false);
    awaitEnd(Stage::done);
    EXPECT_EQ(contentOf("m.gguf"), body);
    EXPECT_EQ(reports.back().received, 4000);
}

TEST_F(Download, startsNoModelWhenTheTokenizerIsCancelled) {
    std::atomic<int> connections{0};
    RawHost host([&](RawPeer& peer) {
        ++connections;
        // Byte by byte, for as long as somebody listens.
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 12582912\r\n\r\n");
        while (peer.send("x")) std::this_thread::sleep_for(milliseconds(1));
    });
    downloader->start(variantOf(4000), host.address(), true);
    ASSERT_TRUE(main.runUntil([&] { return downloader->snapshot().received > 3; }));
    downloader->cancel();
    awaitEnd(Stage::cancelled);
    EXPECT_EQ(reports.back().fileName, "tokenizer.json");
    EXPECT_EQ(reports.back().received, fileSizeOf(inModels("tokenizer.json.part")));
    EXPECT_EQ(connections, 1);
    EXPECT_FALSE(fileExists(inModels("m.gguf.part")));
}

TEST_F(Download, doesNotFillTheQueueOfABusyMainThread) {
    const std::string body = bodyOf(8'000'000);
    ModelHost host(ModelHost::serving(body));
    downloader->start(variantOf(8'000'000), host.address(), false);
    while (downloader->busy()) std::this_thread::sleep_for(milliseconds(2));
    EXPECT_EQ(main.size(), 1U);
    awaitEnd(Stage::done);
    // Of the hundreds of chunks the last one has stayed.
    EXPECT_EQ(reports.size(), 4U);
    EXPECT_EQ(stagesOf(reports), wholeWay);
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

TEST_F(Download, endsQuietlyWithItsObject) {
    Gate gone;
    RawHost host([&](RawPeer& peer) {
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 4000\r\n\r\n" + bodyOf(100));
        peer.waitUntilGone();
        gone.open();
    });
    downloader->start(variantOf(4000), host.address(), false);
    ASSERT_TRUE(main.runUntil([&] { return count(Stage::downloading) == 1; }));
    downloader.reset();
    gone.wait();
    EXPECT_EQ(main.size(), 0U);
    EXPECT_EQ(fileSizeOf(inModels("m.gguf.part")), 100);
}

TEST(HttpSession, mayEndWithinAnEvent) {
    ::setenv("no_proxy", "*", 1);
    RawHost host([](RawPeer& peer) {
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 4000\r\n\r\nabc");
        peer.waitUntilGone();
    });
    Gate ended;
    std::vector<HttpOutcome> outcomes;
    auto session = std::make_unique<HttpSession>();
    const auto countEnd = [&](const HttpOutcome& outcome) {
        outcomes.push_back(outcome);
        if (outcomes.size() == 2) ended.open();
    };
    // The second one has only been handed over when the session ends.
    const auto waiting = HttpSession::transfer(
        host.address(), {}, {[](const HttpHead&) { return true; }, {}, countEnd});
    const auto ending =
        HttpSession::transfer(host.address(), {},
                              {[](const HttpHead& head) { return head.length == 4000; },
                               [&](ByteView) {
                                   session->start(waiting);
                                   session.reset();
                                   return true;
                               },
                               countEnd});
    session->start(ending);
    ended.wait();
    for (const HttpOutcome& outcome : outcomes) EXPECT_EQ(outcome.failure, HttpFailure::cancelled);
}

// A program that downloads is killed in the middle, and started again.
TEST_F(Download, survivesAKilledProgram) {
    const std::string body = bodyOf(24'000'000);
    Gate goOn;
    std::atomic<bool> holding{true};
    ModelHost host([&](const httplib::Request&, httplib::Response& response) {
        response.set_content_provider(
            body.size(), "application/octet-stream",
            [&](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                // The first attempt gets no further than half of it.
                if (holding && offset >= body.size() / 2) goOn.wait();
                return sink.write(body.data() + offset, std::min<std::size_t>(length, 60'000));
            });
    });
    const OpenAtEnd whateverHappens{goOn};
    const auto run = [&] {
        return Process::spawn({DOWNLOAD_FILE,
                               {host.address(), "m.gguf", std::to_string(body.size())},
                               "/",
                               inModels("output")});
    };
    const std::string part = inModels("m.gguf.part");
    const std::shared_ptr<Process> first = run();
    ASSERT_TRUE(main.runUntil([&] { return fileSizeOf(part) >= 4'000'000; }));
    first->killGroup();
    EXPECT_TRUE(first->waitForExit(std::chrono::seconds(30), milliseconds(2)));
    ASSERT_EQ(first->exitStatus()->cause, ExitCause::killed);
    const std::int64_t left = fileSizeOf(part);
    EXPECT_FALSE(fileExists(inModels("m.gguf")));
    holding = false;
    goOn.open();

    const std::shared_ptr<Process> second = run();
    EXPECT_TRUE(second->waitForExit(std::chrono::seconds(30), milliseconds(2)));
    EXPECT_EQ(second->exitStatus()->number, 0) << contentOf("output");
    ASSERT_EQ(host.seen().size(), 2U);
    EXPECT_EQ(host.seen()[1].range, "bytes=" + std::to_string(left) + "-");
    EXPECT_EQ(sha256Digest(asBytes(contentOf("m.gguf"))), sha256Digest(asBytes(body)));
    EXPECT_FALSE(fileExists(part));
}

// Sends these bytes and ends the connection.
std::function<void(RawPeer&)> saying(const std::string& bytes) {
    return [bytes](RawPeer& peer) { peer.send(bytes); };
}

class FailedDownload : public Download {
protected:
    // Runs a job that fails, `times` reports of it included.
    void fail(const ModelVariant& variant, const std::string& host, std::size_t times = 1) {
        reports.clear();
        downloader->start(variant, host, false);
        awaitEnd(Stage::failed, times);
        EXPECT_EQ(count(Stage::failed), times);
        EXPECT_EQ(count(Stage::done), 0U);
        EXPECT_EQ(downloader->snapshot().stage, Stage::failed);
        EXPECT_EQ(downloader->snapshot().error, error());
    }
    [[nodiscard]] std::string error() const { return reports.back().error; }
};

TEST_F(FailedDownload, tellsABadStatusAndThenTheEndOfTheRequest) {
    put("m.gguf.part", "12345");
    const std::pair<int, std::string> rows[] = {
        {404, "Not Found"}, {416, "Range Not Satisfiable"}, {204, "No Content"}, {599, ""}};
    for (const auto& [status, phrase] : rows) {
        const std::string number = std::to_string(status);
        RawHost host(saying("HTTP/1.1 " + number + " Whatever\r\nContent-Length: 2\r\n\r\nno"));
        fail(variantOf(4000), host.address(), 2);
        EXPECT_EQ(reports[1].error, "HTTP " + number + " " + phrase +
                                        "(源:" + downloadUrl(host.address(), "m.gguf") + ")");
        EXPECT_EQ(reports[1].received, 5);
        EXPECT_EQ(error(), "cancelled");
        EXPECT_TRUE(wasLogged("m.gguf not fetched: http " + number));
        EXPECT_EQ(contentOf("m.gguf.part"), "12345");
    }
}

TEST_F(FailedDownload, keepsThePartWhenTheLineBreaks) {
    put("m.gguf.part", "12345");
    fail(variantOf(4000), "no address at all");
    EXPECT_EQ(error().find("bad url: no address at all/tessmarin/"), 0U);
    fail(variantOf(4000), "http://127.0.0.1:" + std::to_string(freePort()));
    EXPECT_TRUE(wasLogged("m.gguf not fetched: " + error()));
    EXPECT_EQ(contentOf("m.gguf.part"), "12345");

    for (const char* answer : {
             "",                                                                 // no response
             "HTTP/1.1 206 Partial\r\nContent-Length: 9\r\n",                    // half a head
             "What?\r\n\r\n",                                                    // no HTTP
             "HTTP/1.1 302 Found\r\nLocation: /x\r\nContent-Length: 0\r\n\r\n",  // for ever
             "HTTP/1.1 302 Found\r\nLocation: file:///etc/hostname\r\n\r\n",     // elsewhere
             "HTTP/1.1 206 Partial\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"  // no chunk
         }) {
        RawHost host(saying(answer));
        fail(variantOf(4000), host.address());
        EXPECT_NE(error(), "") << answer;
        EXPECT_EQ(contentOf("m.gguf.part"), "12345") << answer;
    }

    Gate reported;
    RawHost resetting([&](RawPeer& peer) {
        peer.send("HTTP/1.1 206 Partial Content\r\nContent-Length: 4000\r\n\r\nabc");
        reported.wait();
        peer.resetOnClose();
    });
    const OpenAtEnd whateverHappens{reported};
    reports.clear();
    downloader->start(variantOf(4000), resetting.address(), false);
    ASSERT_TRUE(main.runUntil([&] { return count(Stage::downloading) > 0; }));
    reported.open();
    awaitEnd(Stage::failed);
    EXPECT_EQ(reports.back().received, 8);
    EXPECT_EQ(contentOf("m.gguf.part"), "12345abc");
}

TEST_F(FailedDownload, givesUpOnASilentHost) {
    const milliseconds ample(60'000);
    const milliseconds little(150);
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    use({little, ample, ample, milliseconds(1), {}});
    for (const std::string& start : {std::string(), ok, ok + "Content-Length: 4000\r\n\r\nabc"}) {
        std::filesystem::remove(inModels("m.gguf.part"));
        RawHost host([&](RawPeer& peer) {
            peer.send(start);
            peer.waitUntilGone();
        });
        fail(variantOf(4000), host.address());
        EXPECT_EQ(error(), "Timeout was reached");
    }
    EXPECT_EQ(contentOf("m.gguf.part"), "abc");

    // Never silent for long, but the head does not end, or the body.
    for (const bool inHead : {true, false}) {
        use({ample, inHead ? little : ample, inHead ? ample : little, milliseconds(1), {}});
        RawHost endless([&](RawPeer& peer) {
            peer.send(inHead ? ok : ok + "\r\n");
            while (peer.send("X: 1\r\n")) std::this_thread::sleep_for(milliseconds(10));
        });
        fail(variantOf(4000), endless.address());
        EXPECT_EQ(error(), "Timeout was reached");
    }
}

TEST_F(FailedDownload, trustsNoCertificateThatDoesNotVerify) {
    const TempDir directory;
    const std::string command =
        "openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "
        "/CN=127.0.0.1 -keyout " +
        directory.file("key") + " -out " + directory.file("certificate") + " 2>/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    ModelHost host(ModelHost::serving("secret"), directory.file("certificate"),
                   directory.file("key"));
    fail(variantOf(6), host.address());
    EXPECT_NE(error().find("certificate"), std::string::npos) << error();
    EXPECT_TRUE(host.seen().empty());
    EXPECT_EQ(contentOf("m.gguf.part"), "");
}

TEST_F(FailedDownload, checksTheSizeOfWhatHasCome) {
    RawHost nothing(saying("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"));
    fail(variantOf(4000), nothing.address());
    EXPECT_EQ(error(), "the download came back empty");
    RawHost tooShort(saying("HTTP/1.1 200 OK\r\nContent-Length: 4096\r\n\r\n" + bodyOf(2048)));
    fail(variantOf(4000), tooShort.address());
    EXPECT_EQ(error(), "收到 2 KB,服务器说应该是 4 KB —— 传输不完整,残件留着可续传");
    EXPECT_EQ(contentOf("m.gguf.part"), bodyOf(2048));
    EXPECT_FALSE(fileExists(inModels("m.gguf")));

    // No length, and not the size that was to be expected: the page of some gateway.
    std::filesystem::remove(inModels("m.gguf.part"));
    const std::string page(3072, 'h');
    RawHost gateway(saying("HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n\r\n" + page));
    fail(variantOf(12582912), gateway.address());
    EXPECT_EQ(error(), "大小对不上(3 KB,估计应为 12.0 MB),多半是被网关塞了个错误页,已删除");
    EXPECT_FALSE(fileExists(inModels("m.gguf.part")));

    // A length beside a coding of the transfer means nothing; near the estimate is near enough.
    RawHost coded(
        saying("HTTP/1.1 200 OK\r\nContent-Length: 7\r\nTransfer-Encoding: chunked\r\n\r\n"
               "3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n"));
    downloader->start(variantOf(1048576), coded.address(), false);
    awaitEnd(Stage::done);
    EXPECT_EQ(contentOf("m.gguf"), "abcde");
}

TEST_F(FailedDownload, stopsWhenTheDiskIsFull) {
    std::filesystem::create_symlink("/dev/full", inModels("m.gguf.part"));
    Gate gone;
    RawHost host([&](RawPeer& peer) {
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 4000\r\n\r\n" + bodyOf(100));
        peer.waitUntilGone();
        gone.open();
    });
    fail(variantOf(4000), host.address());
    EXPECT_EQ(error(), "No space left on device (" + inModels("m.gguf.part") + ")");
    EXPECT_TRUE(std::filesystem::is_symlink(inModels("m.gguf.part")));
    gone.wait();
}

TEST_F(FailedDownload, findsNothingWhereTheDirectoryCannotBeMade) {
    std::filesystem::remove(ZEPHOPaths::modelsDir());
    saveFileBytes(ZEPHOPaths::dataRoot() + "models", asBytes("a file"));
    ModelHost host(ModelHost::serving(bodyOf(4000)));
    fail(variantOf(4000), host.address());
    EXPECT_EQ(error(), "the download came back empty");
}

TEST_F(FailedDownload, keepsThePartWhenTheNameIsTaken) {
    Gate taken;
    RawHost host([&](RawPeer& peer) {
        taken.wait();
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 4000\r\n\r\n" + bodyOf(4000));
    });
    const OpenAtEnd whateverHappens{taken};
    downloader->start(variantOf(4000), host.address(), false);
    std::filesystem::create_directories(inModels("m.gguf/inside"));
    taken.open();
    awaitEnd(Stage::failed);
    EXPECT_EQ(error(), "rename failed (the engine may still hold the file): Is a directory");
    EXPECT_EQ(contentOf("m.gguf.part"), bodyOf(4000));
}

TEST_F(FailedDownload, waitsForANetworkThatIsDown) {
    std::atomic<int> looks{0};
    HttpLimits limits;
    limits.reconnect = milliseconds(1);
    limits.networkUp = [&] { return ++looks > 3; };
    use(limits);
    // No look-up leaves this machine for a name that cannot exist.
    fail(variantOf(4000), "http://" + std::string(80, 'a'));
    EXPECT_EQ(looks, 4);
    EXPECT_EQ(count(Stage::connecting), 1U);

    limits.networkUp = [&] {
        ++looks;
        return false;
    };
    looks = 0;
    use(limits);
    reports.clear();
    downloader->start(variantOf(4000), "http://" + std::string(80, 'a'), false);
    ASSERT_TRUE(main.runUntil([&] { return looks > 1; }));
    downloader->cancel();
    awaitEnd(Stage::cancelled);
}

}  // namespace
}  // namespace zepho
