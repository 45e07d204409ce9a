// An engine that speaks a tone at once, and can be told to wait, to fail or to stay silent.
//
// Any thread. Waiting happens at a gate that the test opens, so no test needs a sleep.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/engine/TtsEngine.h"

namespace zepho::test {

class ScriptedEngine final : public TtsEngine {
public:
    [[nodiscard]] std::string name() const override { return "scripted"; }
    [[nodiscard]] bool ready() const override { return true; }
    [[nodiscard]] bool supportsNativeSpeed() const override { return false; }
    void configure(const EngineOptions& options) override;
    [[nodiscard]] EngineOptions options() const override;
    [[nodiscard]] EngineHealth checkHealth() override;
    [[nodiscard]] PcmBuffer synthesize(const S2Params& params, const VoiceHint& hint) override;

    // Closed, the next lines wait inside the engine.
    void closeGate();
    void openGate();
    // Lets so many lines out of the closed gate.
    void letOut(int count);
    // Blocks until `count` lines have come into the engine.
    void waitForCalls(std::size_t count);

    [[nodiscard]] std::vector<S2Params> calls() const;
    [[nodiscard]] std::vector<VoiceHint> hints() const;

    std::atomic<int> toneMs{1200};
    std::atomic<float> peak{0.5F};
    std::atomic<int> rate{44100};     // that it says its audio has
    std::atomic<bool> silent{false};  // empty audio
    std::atomic<bool> failing{false};

private:
    // Guarded by lock.
    mutable std::mutex lock;
    std::condition_variable changed;
    bool gateOpen = true;
    int permits = 0;
    EngineOptions opts;
    std::vector<S2Params> seen;
    std::vector<VoiceHint> seenHints;
};

// A sine of 440 Hz at 44.1 kHz.
PcmBuffer toneOf(int ms, float peak);

}  // namespace zepho::test
