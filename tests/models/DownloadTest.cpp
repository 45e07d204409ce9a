// Downloads that come to their end, and those that are stopped on the way.
#include <csignal>

#include <gtest/gtest.h>
#include <httplib.h>

#include "core/platform/Process.h"
#include "core/platform/Sha256.h"
#include "tests/models/DownloadFixture.h"

namespace zepho {
namespace {

using namespace zepho::test;
using Stage = DownloadStage;

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
        while (peer.send("x")) std::this_thread::sleep_for(std::chrono::milliseconds(1));
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
    while (downloader->busy()) std::this_thread::sleep_for(std::chrono::milliseconds(2));
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
    EXPECT_TRUE(first->waitForExit(std::chrono::seconds(30), std::chrono::milliseconds(2)));
    ASSERT_EQ(first->exitStatus()->cause, ExitCause::killed);
    const std::int64_t left = fileSizeOf(part);
    EXPECT_FALSE(fileExists(inModels("m.gguf")));
    holding = false;
    goOn.open();

    const std::shared_ptr<Process> second = run();
    EXPECT_TRUE(second->waitForExit(std::chrono::seconds(30), std::chrono::milliseconds(2)));
    EXPECT_EQ(second->exitStatus()->number, 0) << contentOf("output");
    ASSERT_EQ(host.seen().size(), 2U);
    EXPECT_EQ(host.seen()[1].range, "bytes=" + std::to_string(left) + "-");
    EXPECT_EQ(sha256Digest(asBytes(contentOf("m.gguf"))), sha256Digest(asBytes(body)));
    EXPECT_FALSE(fileExists(part));
}

}  // namespace
}  // namespace zepho
