// The contract of everything that makes sound.
//
// Engines are shared objects: the queue's worker calls synthesize(), any thread may ask the rest.
#pragma once

#include <string>

#include "core/audio/PcmBuffer.h"
#include "core/base/TtsError.h"
#include "core/base/VoiceInfo.h"
#include "core/config/EngineOptions.h"

namespace zepho {

// The snapshot that a health probe returns.
struct EngineHealth {
    bool ready = false;   // the engine can synthesise now
    std::string backend;  // what answers: a short text for people
    std::string detail;   // the state in a sentence, in the interface language
    std::string exePath;  // of the inference program, empty if none
    WallTime probedAt = std::chrono::system_clock::now();
};

class TtsEngine {
public:
    TtsEngine() = default;
    TtsEngine(const TtsEngine&) = delete;
    TtsEngine& operator=(const TtsEngine&) = delete;
    virtual ~TtsEngine() = default;

    // Short id of the engine; it enters cache keys.
    [[nodiscard]] virtual std::string name() const = 0;
    [[nodiscard]] virtual bool ready() const = 0;
    // The engine itself can speak at another speed.
    [[nodiscard]] virtual bool supportsNativeSpeed() const { return true; }
    // The engine clones a voice from a reference clip at each request.
    [[nodiscard]] virtual bool supportsInstantClone() const { return true; }
    virtual void configure(const EngineOptions& options) = 0;
    [[nodiscard]] virtual EngineOptions options() const = 0;
    [[nodiscard]] virtual EngineHealth checkHealth() = 0;
    // Makes the audio of one line; may take minutes. Throws TtsError.
    [[nodiscard]] virtual PcmBuffer synthesize(const S2Params& params, const VoiceHint& hint) = 0;
    // Registers a voice with the engine; an engine-side id, or empty where none is needed.
    virtual std::string registerReference(const VoiceCloneSpec& /*spec*/) { return {}; }
};

}  // namespace zepho
