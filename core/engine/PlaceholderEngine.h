// The engine of a machine on which no model lies yet: fake audio, so that the whole chain from the
// request to the loudspeaker can be proven.
//
// It has the rhythm and the pitch contour of speech but no words, and is fully determined by the
// text, the gender and the seed. synthesize() touches nothing shared and may run on any number of
// threads at once; `lock` guards the options alone.
#pragma once

#include <mutex>
#include <string>

#include "core/engine/TtsEngine.h"

namespace zepho {

class PlaceholderEngine : public TtsEngine {
public:
    explicit PlaceholderEngine(EngineOptions options);

    [[nodiscard]] std::string name() const override { return "placeholder"; }
    [[nodiscard]] bool ready() const override { return true; }
    [[nodiscard]] bool supportsNativeSpeed() const override { return false; }
    [[nodiscard]] bool supportsInstantClone() const override { return true; }
    // The options are kept for their owner; the sound does not depend on them.
    void configure(const EngineOptions& options) override;
    [[nodiscard]] EngineOptions options() const override;
    [[nodiscard]] EngineHealth checkHealth() override;
    // Reads the text, the gender and the seed, nothing else. Always 44100 Hz. Throws no TtsError;
    // the memory that it takes is four bytes for each sample.
    [[nodiscard]] PcmBuffer synthesize(const S2Params& params, const VoiceHint& hint) override;

private:
    mutable std::mutex lock;
    // Guarded by lock.
    EngineOptions opts;
};

}  // namespace zepho
