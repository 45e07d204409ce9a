// A downloader in an empty data root, whose main thread is the test's.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/config/ZEPHOPaths.h"
#include "core/models/ModelDownloader.h"
#include "core/platform/FileSize.h"
#include "core/platform/Files.h"
#include "core/platform/MainThread.h"
#include "tests/models/ModelHost.h"
#include "tests/support/Watching.h"

namespace zepho::test {

// Runs what is posted to the main thread while a test waits for something.
class MainQueue {
public:
    MainQueue() {
        setMainThreadDispatcher([this](std::function<void()> run) {
            const std::lock_guard guard(lock);
            waiting.push_back(std::move(run));
        });
    }
    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;
    ~MainQueue() { setMainThreadDispatcher({}); }

    [[nodiscard]] std::size_t size() {
        const std::lock_guard guard(lock);
        return waiting.size();
    }
    // False when it does not come true in half a minute.
    bool runUntil(const std::function<bool()>& holds) {
        return eventually([&] {
            std::deque<std::function<void()>> posted;
            {
                const std::lock_guard guard(lock);
                posted.swap(waiting);
            }
            for (const std::function<void()>& run : posted) run();
            return holds();
        });
    }

private:
    std::mutex lock;
    std::deque<std::function<void()>> waiting;
};

// No byte like its neighbours, so that a piece in the wrong place shows.
inline std::string bodyOf(std::size_t size) {
    std::string body(size, '\0');
    std::minstd_rand random;
    for (char& byte : body) byte = static_cast<char>(random() >> 8);
    return body;
}

inline ModelVariant variantOf(std::int64_t sizeBytes) {
    ModelVariant variant;
    variant.fileName = "m.gguf";
    variant.sizeBytes = sizeBytes;
    return variant;
}

class Download : public testing::Test {
protected:
    using Stage = DownloadStage;

    Download() {
        ::setenv("no_proxy", "*", 1);
        std::filesystem::remove_all(ZEPHOPaths::dataRoot());
        std::filesystem::create_directories(ZEPHOPaths::modelsDir());
        AppLog::clear();
        use({});
    }
    void use(HttpLimits limits) {
        downloader = ModelDownloader::make(std::move(limits));
        downloader->setOnProgress([this](const auto& report) { reports.push_back(report); });
    }

    static std::string inModels(const std::string& name) { return ZEPHOPaths::modelsDir() + name; }
    static void put(const std::string& name, const std::string& text) {
        saveFileBytes(inModels(name), asBytes(text));
    }
    static std::string contentOf(const std::string& name) {
        const std::optional<Bytes> bytes = loadFileBytes(inModels(name));
        return bytes ? std::string(asText(*bytes)) : "(missing)";
    }

    // Runs a job for a file of about 4000 bytes to its end.
    void run(Stage end, const std::string& host, std::size_t times = 1) {
        reports.clear();
        downloader->start(variantOf(4000), host, false);
        awaitEnd(end, times);
    }
    // Waits until the job has ended and its last report has come to the main thread.
    void awaitEnd(Stage end, std::size_t times = 1) {
        ASSERT_TRUE(main.runUntil([&] {
            const std::size_t ends =
                count(Stage::done) + count(Stage::failed) + count(Stage::cancelled);
            return !downloader->busy() && main.size() == 0 && ends >= times;
        })) << "the last report was: "
            << downloader->snapshot().describe();
        EXPECT_EQ(count(Stage::done), end == Stage::done ? times : 0);
        EXPECT_EQ(count(Stage::failed), end == Stage::failed ? times : 0);
        EXPECT_EQ(reports.back().stage, end);
        EXPECT_EQ(downloader->snapshot().stage, end);
        EXPECT_EQ(downloader->snapshot().error, error());
    }
    [[nodiscard]] std::size_t count(Stage stage) const {
        return static_cast<std::size_t>(
            std::count_if(reports.begin(), reports.end(),
                          [stage](const auto& report) { return report.stage == stage; }));
    }
    [[nodiscard]] std::string error() const { return reports.back().error; }

    MainQueue main;
    std::shared_ptr<ModelDownloader> downloader;
    std::vector<DownloadProgress> reports;
};

}  // namespace zepho::test
