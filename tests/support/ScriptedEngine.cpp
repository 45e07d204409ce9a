#include "tests/support/ScriptedEngine.h"

#include <cmath>

namespace zepho::test {

PcmBuffer toneOf(int ms, float peak) {
    PcmBuffer pcm = PcmBuffer::silence(44100, ms);
    for (std::size_t i = 0; i < pcm.data.size(); ++i)
        pcm.data[i] = peak * std::sin(static_cast<float>(i) * 0.0626893F);
    return pcm;
}

void ScriptedEngine::configure(const EngineOptions& options) {
    const std::lock_guard guard(lock);
    opts = options;
}

EngineOptions ScriptedEngine::options() const {
    const std::lock_guard guard(lock);
    return opts;
}

EngineHealth ScriptedEngine::checkHealth() {
    EngineHealth health;
    health.ready = true;
    health.backend = "scripted";
    health.detail = "as told";
    return health;
}

PcmBuffer ScriptedEngine::synthesize(const S2Params& params, const VoiceHint& hint) {
    {
        std::unique_lock guard(lock);
        seen.push_back(params);
        seenHints.push_back(hint);
        changed.notify_all();
        changed.wait(guard, [this] { return gateOpen || permits > 0; });
        if (!gateOpen) --permits;
    }
    if (failing) throw TtsError(TtsErrorCode::engineFailed, "told to fail");
    PcmBuffer spoken = silent ? PcmBuffer() : toneOf(toneMs, peak);
    spoken.sampleRate = rate;
    return spoken;
}

void ScriptedEngine::closeGate() {
    const std::lock_guard guard(lock);
    gateOpen = false;
}

void ScriptedEngine::openGate() {
    const std::lock_guard guard(lock);
    gateOpen = true;
    changed.notify_all();
}

void ScriptedEngine::letOut(int count) {
    const std::lock_guard guard(lock);
    permits += count;
    changed.notify_all();
}

void ScriptedEngine::waitForCalls(std::size_t count) {
    std::unique_lock guard(lock);
    changed.wait(guard, [&] { return seen.size() >= count; });
}

std::vector<S2Params> ScriptedEngine::calls() const {
    const std::lock_guard guard(lock);
    return seen;
}

std::vector<VoiceHint> ScriptedEngine::hints() const {
    const std::lock_guard guard(lock);
    return seenHints;
}

}  // namespace zepho::test
