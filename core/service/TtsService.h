// The heart of the system: turns a TtsRequest into a finished TtsResult.
//
// Owns the voice library, the clip cache, the queue, both engines and the pre-bake worker for its
// whole life; everything that wants audio calls synthesize() and blocks until it returns. Made by
// make(), held by shared_ptr, as background threads know it only weakly. Any thread may call every
// operation. `lock` guards counters only and is never held across a call into another object.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/config/AppConfig.h"
#include "core/engine/S2LocalEngine.h"
#include "core/service/PrewarmWorker.h"
#include "core/service/ServiceStats.h"
#include "core/service/SynthQueue.h"
#include "core/store/VoiceLibrary.h"
#include "core/store/WavCache.h"

namespace zepho {

class TtsService : public std::enable_shared_from_this<TtsService> {
public:
    // Builds everything and starts the engine without waiting for its model. `standIn` replaces the
    // placeholder engine, the one that speaks while no real engine is installed.
    static std::shared_ptr<TtsService> make(std::shared_ptr<AppConfig> config,
                                            std::shared_ptr<TtsEngine> standIn = nullptr);
    TtsService(const TtsService&) = delete;
    TtsService& operator=(const TtsService&) = delete;
    ~TtsService();

    // Ends the background work, fails waiting jobs, stops the engine, saves the cache's index. Does
    // not wait for a running job. Once; the end of the object does the same.
    void shutdown();
    // Pushes changed settings into the parts.
    void applyConfig();

    // The pipeline. Throws TtsError; other exceptions are internal faults.
    TtsResult synthesize(const TtsRequest& request);
    SharedBytes synthesizeWav(std::string text, std::string language, TtsGender gender,
                              float speed);
    // Whether synthesize() would answer from the cache now. Creates nothing, never throws.
    bool isCached(const TtsRequest& request);
    void clearCache();

    // Hands lines to the pre-bake worker and returns at once.
    void prewarmRequests(const std::vector<TtsRequest>& requests);
    [[nodiscard]] std::size_t prewarmPending() const;

    // Stores a voice and registers it with the active engine. Throws TtsError.
    VoiceInfo cloneVoice(const VoiceCloneSpec& spec);
    // A usable voice for language and gender, made now if there is none. Throws TtsError.
    VoiceInfo ensureDefaultVoice(const std::string& language, TtsGender gender);

    ServiceStats stats();
    // Four lines in a fixed order: engine, voices, synthesize, cache. Never throws; may take as long
    // as two syntheses.
    std::vector<CheckResult> selfTest(const std::string& text, const std::string& language,
                                      TtsGender gender, const std::string& airline);
    EngineHealth engineHealth();
    // Whether the engine chosen last makes fake audio.
    [[nodiscard]] bool speaksPlaceholder() const;

    void unloadModel();
    [[nodiscard]] bool modelUnloaded() const;
    void loadModel();
    void restartEngine() { loadModel(); }
    [[nodiscard]] S2EngineState engineState() const;
    [[nodiscard]] std::string engineLogPath() const;
    [[nodiscard]] std::string engineModelPath() const;

    // Constant after construction; each guards itself.
    const std::shared_ptr<AppConfig> config;
    VoiceLibrary voices;
    WavCache cache;

private:
    // Everything that settles how one line is spoken and stored.
    struct Line {
        TtsRequest request;
        VoiceInfo voice;
        std::shared_ptr<TtsEngine> engine;
        std::string engineName;
        std::int64_t targetRate = 0;  // hertz; below 1 means the engine's own
        bool nativeSpeed = false;     // the engine itself speaks at the request's speed
        TtsSpeedMode speedMode = TtsSpeedMode::localStretch;
        std::string key;
        std::string etag;
    };

    TtsService(std::shared_ptr<AppConfig> settings, std::shared_ptr<TtsEngine> standIn);
    void startParts();

    std::shared_ptr<TtsEngine> activeEngine();
    Line settleLine(TtsRequest request, VoiceInfo voice);
    VoiceInfo voiceFor(const TtsRequest& request);
    [[nodiscard]] std::string noVoiceMessage(const TtsRequest& request) const;
    VoiceInfo bootstrapDefaultVoice(const std::string& language, TtsGender gender);
    [[nodiscard]] S2Params samplingParams() const;
    S2Params buildParams(const TtsRequest& request, const VoiceInfo& voice);
    void keepLate(const Line& line, PcmBuffer pcm, std::int64_t elapsedMs);
    TtsResult finishAndStore(const Line& line, PcmBuffer& pcm, std::int64_t elapsedMs);

    void countAnswered();
    void countFailed();
    void recordDuration(std::int64_t ms);

    // Constant after construction; each guards itself.
    const std::shared_ptr<TtsEngine> placeholder;
    const std::shared_ptr<S2LocalEngine> s2;
    std::shared_ptr<SynthQueue> queue;
    std::shared_ptr<PrewarmWorker> prewarm;
    std::atomic<bool> isShutDown{false};

    // Guarded by lock.
    mutable std::mutex lock;
    bool usingPlaceholder = false;       // the last choice of activeEngine()
    std::deque<std::int64_t> durations;  // the last engine times in milliseconds, oldest first
    std::int64_t totalCount = 0;
    std::int64_t failedCount = 0;
    std::int64_t totalAudioMs = 0;
    std::int64_t totalSynthMs = 0;
};

}  // namespace zepho
