// Any bytes as config.json: every setting comes out within its bounds, and what was loaded and saved
// is loaded and saved the same for ever after.
#include <cmath>
#include <optional>

#include "core/config/AppConfig.h"
#include "core/diag/AppLog.h"
#include "core/platform/Files.h"
#include "core/platform/Require.h"
#include "fuzz/ScratchFile.h"
#include "fuzz/Slices.h"

namespace {

using namespace zepho;

// What a file of these bytes leads to, checked, and how it is written.
Bytes loadedAndSaved(const fuzz::ScratchDirectory& directory, ByteView bytes) {
    const std::string path = directory.file("config.json");
    saveFileBytes(path, bytes);
    AppConfig config;
    config.load(path);

    const auto within = [](std::int64_t value, std::int64_t low, std::int64_t high) {
        require(value >= low && value <= high, "a setting out of its bounds");
    };
    within(config.port, 1, 65535);
    within(config.rateLimitPerMinute, 0, INT64_MAX);
    within(config.maxTextLength, 1, 100000);
    within(config.queueLimit, 1, 4096);
    within(config.requestTimeoutMs, 1000, AppConfig::maxRequestTimeoutMs);
    within(config.outputSampleRate, 0, INT64_MAX);
    within(config.cacheBudgetMB, 0, 8192);
    const EngineOptions engine = config.engine;
    within(engine.timeoutMs, 5000,
           AppConfig::maxRequestTimeoutMs + AppConfig::engineTimeoutMarginMs);
    require(engine.timeoutMs >= config.requestTimeoutMs,
            "an engine that gives up before the request does");
    within(engine.topK, 0, 1000);
    within(engine.threads, 0, 256);
    for (const float value : {engine.temperature, engine.topP, engine.repetitionPenalty})
        require(std::isfinite(value), "a number without end");
    for (const auto& [key, voice] : config.airlinesSnapshot())
        require(!key.empty() && !voice.empty(), "a binding to nothing");
    for (const HubShare& share : config.hubSharesSnapshot())
        require(config.hubDeleteKey(share.id) != "", "a share that cannot be deleted");

    config.save(path);
    const std::optional<Bytes> saved = loadFileBytes(path);
    require(saved.has_value(), "nothing was saved");
    return *saved;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const fuzz::ScratchDirectory directory;
    const Bytes once = loadedAndSaved(directory, {data, size});
    const Bytes twice = loadedAndSaved(directory, once);
    require(once == twice, "a setting changes by loading and saving");
    AppLog::clear();  // what is kept looks like a leak, and the search for it takes its time
    return 0;
}
