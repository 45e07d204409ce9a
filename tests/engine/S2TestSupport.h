// A data root with an engine in it that is really tests/tools/FakeS2.cpp, and what tests of the
// supervision ask of it.
#pragma once

#include <filesystem>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "core/config/ZEPHOPaths.h"
#include "core/engine/S2LocalEngine.h"
#include "core/platform/Files.h"
#include "core/platform/ProcessList.h"
#include "core/platform/TcpProbe.h"
#include "tests/support/Watching.h"

namespace zepho::test {

// Whether the process is there and not a zombie.
inline bool processLives(int pid) {
    return programOfProcess(pid).has_value();
}

inline bool portAnswers(int port) {
    return probeLoopbackPort(port, std::chrono::seconds(1)) == TcpProbe::answered;
}

inline void writeText(const std::string& path, const std::string& text) {
    saveFileBytes(path, asBytes(text));
}

inline std::string readText(const std::string& path) {
    const auto bytes = loadFileBytes(path);
    return bytes ? std::string(asText(*bytes)) : std::string();
}

// The first of `count` silent ports in a row, below those of outgoing connections.
inline int findFreePorts(int count) {
    std::random_device random;
    for (;;) {
        const int first = 18000 + static_cast<int>(random() % 14000);
        int port = first + count;
        while (port > first && !portAnswers(port - 1)) --port;
        if (port == first) return first;
    }
}

class S2Test : public testing::Test {
protected:
    S2Test() {
        std::filesystem::remove_all(root);
        ZEPHOPaths::ensureDirectories();
        std::filesystem::create_symlink(FAKE_S2, root + "engine/s2");
        writeText(root + "models/voice.gguf", "a model");
        writeText(root + "models/tokenizer.json", "{}");
        // One more port than the range, which stays silent unless a test uses it.
        tuning.firstPort = findFreePorts(5);
        tuning.lastPort = tuning.firstPort + 3;
        tuning.ownPort = tuning.firstPort + 4;
        tuning.readyPoll = tuning.watchPoll = std::chrono::milliseconds(10);
        // A death shows at once, or on a crowded machine much later.
        tuning.exitGrace = std::chrono::seconds(30);
        AppLog::clear();
    }

    [[nodiscard]] std::string fakeFile(const std::string& name) const {
        return root + "engine/" + name;
    }
    // The behaviour of the fake from now on; see there.
    void behave(const std::string& lines) const { writeText(fakeFile("fake-s2.conf"), lines); }
    // What the fake that started last tells of its start under this key.
    [[nodiscard]] std::vector<std::string> reported(const std::string& key) const {
        std::vector<std::string> values;
        std::istringstream text(readText(fakeFile("fake-s2.report")));
        for (std::string line; std::getline(text, line);)
            if (line.starts_with(key + "=")) values.push_back(line.substr(key.size() + 1));
        return values;
    }
    [[nodiscard]] int reportedNumber(const std::string& key) const {
        const std::vector<std::string> values = reported(key);
        return values.empty() ? 0 : std::stoi(values[0]);
    }

    static bool waitForState(const S2LocalEngine& engine, S2EngineState state) {
        return eventually([&] { return engine.currentState() == state; });
    }
    static void startAndWait(S2LocalEngine& engine) {
        engine.start();
        EXPECT_TRUE(waitForState(engine, S2EngineState::ready)) << engine.checkHealth().detail;
    }
    [[nodiscard]] std::unique_ptr<S2LocalEngine> readyEngine(
        const EngineOptions& options = {}) const {
        auto engine = std::make_unique<S2LocalEngine>(options, tuning);
        startAndWait(*engine);
        return engine;
    }
    // The code and message that the line is refused with.
    static std::pair<TtsErrorCode, std::string> refusal(S2LocalEngine& engine,
                                                        const std::string& text = "hello") {
        S2Params params;
        params.text = text;
        try {
            (void)engine.synthesize(params, VoiceHint());
        } catch (const TtsError& error) {
            return {error.code, error.message};
        }
        return {TtsErrorCode::none, "it was spoken"};
    }

    const std::string root = ZEPHOPaths::dataRoot();
    S2Tuning tuning;  // short waits, ports of this test's own
};

}  // namespace zepho::test
