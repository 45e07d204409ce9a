// The service as the owner of its parts: start, settings, engines, stop.
#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/engine/PlaceholderEngine.h"
#include "core/service/TtsService.h"

namespace zepho {
namespace {

std::int64_t budgetBytes(const AppConfig& config) {
    return config.cacheBudgetMB * 1048576;
}

}  // namespace

TtsService::TtsService(std::shared_ptr<AppConfig> settings, std::shared_ptr<TtsEngine> standIn)
    : config(std::move(settings)),
      voices(*config),
      cache(ZEPHOPaths::cacheDir(), budgetBytes(*config)),
      placeholder(standIn ? std::move(standIn)
                          : std::make_shared<PlaceholderEngine>(config->engine)),
      s2(std::make_shared<S2LocalEngine>(config->engine)) {}

std::shared_ptr<TtsService> TtsService::make(std::shared_ptr<AppConfig> config,
                                             std::shared_ptr<TtsEngine> standIn) {
    std::shared_ptr<TtsService> service(new TtsService(std::move(config), std::move(standIn)));
    service->startParts();
    return service;
}

// What needs a weak reference to the finished object.
void TtsService::startParts() {
    voices.load();
    cache.enabled = config->cacheEnabled;
    queue = std::make_shared<SynthQueue>(config->queueLimit,
                                         [weak = weak_from_this()]() -> std::shared_ptr<TtsEngine> {
                                             const auto self = weak.lock();
                                             return self ? self->activeEngine() : nullptr;
                                         });
    prewarm = std::make_shared<PrewarmWorker>(weak_from_this());
    prewarm->start();
    s2->start();
}

TtsService::~TtsService() {
    shutdown();
}

void TtsService::shutdown() {
    if (isShutDown.exchange(true)) return;
    // The start may have failed for want of a thread.
    if (prewarm) prewarm->terminate();
    if (queue) queue->shutdown();
    s2->stopForGood();
    cache.flush();
}

void TtsService::applyConfig() {
    cache.enabled = config->cacheEnabled;
    cache.setBudget(budgetBytes(*config));
    queue->limit = config->queueLimit;
    placeholder->configure(config->engine);
    s2->configure(config->engine);
    s2->start();
}

// A model that is loading, failed or unloaded reports its own errors: fake audio stands in only
// where no engine is installed.
std::shared_ptr<TtsEngine> TtsService::activeEngine() {
    const bool missing = s2->currentState() == S2EngineState::missing;
    {
        const std::lock_guard guard(lock);
        usingPlaceholder = missing;
    }
    if (missing) return placeholder;
    return s2;
}

EngineHealth TtsService::engineHealth() {
    EngineHealth health = activeEngine()->checkHealth();
    if (s2->currentState() == S2EngineState::missing) {
        const EngineHealth real = s2->checkHealth();
        health.exePath = real.exePath;
        health.detail = real.detail + T(";现在出的是占位波形");
    }
    return health;
}

VoiceInfo TtsService::cloneVoice(const VoiceCloneSpec& spec) {
    VoiceInfo voice = voices.addClone(spec);
    if (std::string registered = activeEngine()->registerReference(spec); !registered.empty()) {
        voice.kind = VoiceKind::profile;
        voice.profileFile = std::move(registered);
        voices.update(voice);
    }
    return voice;
}

SharedBytes TtsService::synthesizeWav(std::string text, std::string language, TtsGender gender,
                                      float speed) {
    return synthesize(TtsRequest::make(std::move(text), std::move(language), gender, speed)).wav;
}

void TtsService::clearCache() {
    cache.clear();
}

void TtsService::prewarmRequests(const std::vector<TtsRequest>& requests) {
    const std::size_t taken = prewarm->add(requests);
    if (taken == 0) return;
    AppLog::info("service", "queued " + std::to_string(taken) + " entries to pre-bake, " +
                                std::to_string(prewarm->pending()) + " in the queue now");
}

std::size_t TtsService::prewarmPending() const {
    return prewarm->pending();
}

void TtsService::unloadModel() {
    s2->unload();
}

bool TtsService::modelUnloaded() const {
    return s2->currentState() == S2EngineState::unloaded;
}

void TtsService::loadModel() {
    s2->configure(config->engine);
    s2->start();
}

S2EngineState TtsService::engineState() const {
    return s2->currentState();
}

std::string TtsService::engineLogPath() const {
    return ZEPHOPaths::engineLog();
}

std::string TtsService::engineModelPath() const {
    return s2->modelPath();
}

}  // namespace zepho
