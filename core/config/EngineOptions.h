// The engine's settings: a plain value, copied whole on read and on write.
#pragma once

#include <cstdint>
#include <string>

#include "core/base/TtsTypes.h"

namespace zepho {

struct EngineOptions {
    std::string modelFile;  // empty means pick one
    ComputeBackend compute = ComputeBackend::auto_;
    std::int64_t gpuLayers = -1;      // -1 means the engine decides
    std::int64_t threads = 0;         // 0 means the engine decides
    bool useMirror = true;            // download from the mirror host
    std::string packageBaseUrl;       // override of the engine package location
    std::int64_t timeoutMs = 900000;  // of one exchange with the engine
    std::int64_t maxNewTokens = ZEPHO::s2DefMaxTokens;
    float temperature = ZEPHO::s2DefTemperature;
    float topP = ZEPHO::s2DefTopP;
    std::int64_t topK = ZEPHO::s2DefTopK;
    float repetitionPenalty = ZEPHO::s2DefRepPenalty;
    std::string extraArgs;  // further command-line arguments of the engine process

    // One line for the interface.
    [[nodiscard]] std::string describe() const;

    bool operator==(const EngineOptions&) const = default;
};

}  // namespace zepho
