#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "core/diag/AppLog.h"
#include "core/platform/MainThread.h"

namespace zepho {
namespace {

class AppLogTest : public testing::Test {
protected:
    AppLogTest() {
        AppLog::clear();
        setMainThreadDispatcher([this](std::function<void()> run) {
            const std::lock_guard guard(lock);
            scheduled.push_back(std::move(run));
        });
    }
    ~AppLogTest() override {
        AppLog::setLineHandler({});
        AppLog::setRequestHandler({});
        AppLog::setMaxLines(2000);
        AppLog::clear();
        setMainThreadDispatcher({});
    }

    // Runs what was handed to the main thread, on this one.
    void runScheduled() {
        std::vector<std::function<void()>> batch;
        {
            const std::lock_guard guard(lock);
            batch.swap(scheduled);
        }
        for (const auto& run : batch) run();
    }

    std::mutex lock;
    std::vector<std::function<void()>> scheduled;
};

TEST_F(AppLogTest, RingsKeepTheNewest) {
    for (int i = 0; i <= 2000; ++i) AppLog::debug("test", std::to_string(i));
    std::vector<LogEntry> lines = AppLog::snapshot();
    ASSERT_EQ(lines.size(), 2000U);
    EXPECT_EQ(lines.front().text, "1");
    EXPECT_EQ(lines.back().text, "2000");
    EXPECT_NE(lines[0].id, lines[1].id);

    AppLog::setMaxLines(3);
    EXPECT_EQ(AppLog::snapshot().size(), 2000U);
    AppLog::error("test", "last");
    lines = AppLog::snapshot();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines.front().text, "1999");
    EXPECT_EQ(lines.back().level, LogLevel::error);

    for (int status = 200; status < 210; ++status) {
        RequestLog record;
        record.status = status;
        AppLog::request(record);
    }
    const std::vector<RequestLog> requests = AppLog::requestSnapshot();
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(requests.front().status, 207);
    EXPECT_EQ(AppLog::snapshot().size(), 3U);
}

TEST_F(AppLogTest, HandlersGetCopiesLaterAndInOrder) {
    std::vector<std::string> seen;
    AppLog::setLineHandler([&seen](const LogEntry& entry) {
        seen.push_back(entry.text);
        (void)AppLog::snapshot();  // a handler may come back: no lock is held
    });
    AppLog::setRequestHandler(
        [&seen](const RequestLog& record) { seen.push_back(std::to_string(record.status)); });
    AppLog::info("test", "a");
    RequestLog record;
    record.status = 404;
    AppLog::request(record);
    AppLog::warn("test", "b");
    EXPECT_TRUE(seen.empty());
    AppLog::clear();
    runScheduled();
    EXPECT_EQ(seen, (std::vector<std::string>{"a", "404", "b"}));

    AppLog::info("test", "under way");
    AppLog::setLineHandler({});
    AppLog::info("test", "unheard");
    runScheduled();
    EXPECT_EQ(seen.back(), "under way");
}

TEST_F(AppLogTest, KeepsLittleOfATextHoweverLongItIs) {
    const std::size_t most = AppLog::maxTextBytes;
    LogEntry heard;
    AppLog::setLineHandler([&heard](const LogEntry& entry) { heard = entry; });
    // The cut falls on each byte of a scalar in turn, and into bytes that are none.
    for (std::size_t shift = 0; shift < 4; ++shift) {
        std::string text(shift, 'x');
        while (text.size() < 100'000) text += "👨";
        AppLog::info("test", text);
        const std::string kept = AppLog::snapshot().back().text;
        EXPECT_LE(kept.size(), most);
        EXPECT_GT(kept.size(), most - 8);
        EXPECT_TRUE(kept.ends_with("👨…"));
        EXPECT_TRUE(text.starts_with(kept.substr(0, kept.size() - 3)));
        runScheduled();
        EXPECT_EQ(heard.text, kept);
        EXPECT_LT(heard.text.capacity(), 2 * most);
    }
    AppLog::info("test", std::string(most, '\xBF'));
    EXPECT_EQ(AppLog::snapshot().back().text.size(), most);
    AppLog::info("test", std::string(most + 1, '\xBF'));
    EXPECT_LE(AppLog::snapshot().back().text.size(), most);

    RequestLog record;
    record.peer = record.route = record.language = record.voice = record.note =
        std::string(100'000, 'y');
    AppLog::request(record);
    const RequestLog kept = AppLog::requestSnapshot().back();
    for (const std::string& text : {kept.peer, kept.route, kept.language, kept.voice, kept.note})
        EXPECT_EQ(text, std::string(most - 3, 'y') + "…");
}

TEST_F(AppLogTest, NoTextCanPassForALineOfItsOwn) {
    LogEntry entry{Uuid::make(), WallTime{}, LogLevel::warn, "test",
                   "a\r\n12:00 [INFO] b\tc\x1B[2Jé\x7F"};
    EXPECT_TRUE(entry.formatted().ends_with(" [WARN] test: a  12:00 [INFO] b c [2Jé "));
}

// What a handler holds may log while it ends.
TEST_F(AppLogTest, ReplacingAHandlerEndsItOutsideTheLock) {
    const auto farewell = [] {
        return std::shared_ptr<void>(nullptr, [](void*) { AppLog::info("test", "farewell"); });
    };
    AppLog::setLineHandler([held = farewell()](const LogEntry&) {});
    AppLog::setRequestHandler([held = farewell()](const RequestLog&) {});
    AppLog::setLineHandler({});
    AppLog::setRequestHandler({});
    EXPECT_EQ(AppLog::snapshot().size(), 2U);
}

TEST_F(AppLogTest, ManyThreadsWriteAndRead) {
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 4; ++writer)
        writers.emplace_back([writer] {
            for (int i = 0; i < 400; ++i) {
                AppLog::info("w" + std::to_string(writer), std::to_string(i));
                AppLog::request(RequestLog());
                if (i % 50 == 0) AppLog::setLineHandler([](const LogEntry&) {});
                if (i % 40 == 0) (void)AppLog::snapshot();
            }
        });
    for (std::thread& writer : writers) writer.join();
    runScheduled();
    EXPECT_EQ(AppLog::requestSnapshot().size(), 1600U);
    // Each writer's lines stand in its own order.
    std::vector<int> next(4, 0);
    for (const LogEntry& entry : AppLog::snapshot())
        EXPECT_EQ(entry.text,
                  std::to_string(next[static_cast<std::size_t>(entry.source[1] - '0')]++));
    EXPECT_EQ(next, std::vector<int>(4, 400));
}

}  // namespace
}  // namespace zepho
