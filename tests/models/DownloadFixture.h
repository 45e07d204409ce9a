// A downloader in an empty data root, whose main thread is the test's.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/models/ModelDownloader.h"
#include "core/platform/FileSize.h"
#include "core/platform/Files.h"
#include "core/platform/MainThread.h"
#include "tests/models/ModelHost.h"

namespace zepho::test {

// Runs what is posted to the main thread while a test waits for something.
class MainQueue {
public:
    MainQueue() {
        setMainThreadDispatcher([this](std::function<void()> run) {
            const std::lock_guard guard(lock);
            waiting.push_back(std::move(run));
            changed.notify_one();
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
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!holds()) {
            std::function<void()> next;
            {
                std::unique_lock guard(lock);
                changed.wait_for(guard, std::chrono::milliseconds(5),
                                 [this] { return !waiting.empty(); });
                if (!waiting.empty()) {
                    next = std::move(waiting.front());
                    waiting.pop_front();
                }
            }
            if (next) next();
            if (std::chrono::steady_clock::now() > deadline) return false;
        }
        return true;
    }

private:
    std::mutex lock;
    std::condition_variable changed;
    std::deque<std::function<void()>> waiting;
};

// No byte like its neighbours, so that a piece in the wrong place shows.
inline std::string bodyOf(std::size_t size) {
    std::string body(size, '\0');
    std::uint32_t state = 12345;
    for (char& byte : body) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return body;
}

inline ModelVariant variantOf(std::int64_t sizeBytes, const std::string& fileName = "m.gguf") {
    ModelVariant variant;
    variant.id = "m";
    variant.fileName = fileName;
    variant.sizeBytes = sizeBytes;
    return variant;
}

class Download : public testing::Test {
protected:
    void SetUp() override {
        ::setenv("no_proxy", "*", 1);
        std::filesystem::remove_all(ZEPHOPaths::dataRoot());
        std::filesystem::create_directories(ZEPHOPaths::modelsDir());
        AppLog::clear();
        use({});
    }

    void use(HttpLimits limits) {
        downloader = ModelDownloader::make(std::move(limits));
        downloader->setOnProgress(
            [this](const DownloadProgress& progress) { reports.push_back(progress); });
    }

    static std::string inModels(const std::string& name) { return ZEPHOPaths::modelsDir() + name; }
    static void put(const std::string& name, const std::string& text) {
        saveFileBytes(inModels(name), asBytes(text));
    }
    static std::string contentOf(const std::string& name) {
        const std::optional<Bytes> bytes = loadFileBytes(inModels(name));
        return bytes ? std::string(asText(*bytes)) : "(missing)";
    }
    static bool wasLogged(const std::string& text) {
        for (const LogEntry& line : AppLog::snapshot())
            if (line.text.find(text) != std::string::npos) return true;
        return false;
    }
    [[nodiscard]] std::size_t count(DownloadStage stage) const {
        std::size_t found = 0;
        for (const DownloadProgress& report : reports) found += report.stage == stage ? 1 : 0;
        return found;
    }
    // Waits until the job has ended and its last report has come to the main thread.
    void awaitEnd(DownloadStage stage, std::size_t times = 1) {
        ASSERT_TRUE(main.runUntil([&] {
            return !downloader->busy() && main.size() == 0 && count(stage) >= times;
        })) << "the last report was: "
            << downloader->snapshot().describe();
    }

    MainQueue main;
    std::shared_ptr<ModelDownloader> downloader;
    std::vector<DownloadProgress> reports;
};

}  // namespace zepho::test
