// What the service tells of itself: statistics, and the self test that runs a real line twice.
#include <algorithm>
#include <cmath>

#include "core/diag/Language.h"
#include "core/platform/Clock.h"
#include "core/platform/Errors.h"
#include "core/platform/Unicode.h"
#include "core/service/TtsService.h"

namespace zepho {
namespace {

constexpr std::size_t bareHeader = 44;  // bytes of a WAV without samples

std::int64_t percentile(const std::vector<std::int64_t>& sorted, double p) {
    if (sorted.empty()) return 0;
    const auto last = static_cast<std::int64_t>(sorted.size()) - 1;
    const std::int64_t index = std::llround(p * static_cast<double>(last));
    return sorted[static_cast<std::size_t>(std::clamp<std::int64_t>(index, 0, last))];
}

}  // namespace

bool TtsService::speaksPlaceholder() const {
    const std::lock_guard guard(lock);
    return usingPlaceholder;
}

ServiceStats TtsService::stats() {
    ServiceStats result;
    const CacheStats cacheStats = cache.stats();
    result.cacheHits = cacheStats.hits;
    result.cacheHitRate = cacheStats.hitRate();
    result.cacheBytes = cacheStats.bytes;
    result.cacheCount = cacheStats.count;
    const EngineHealth health = engineHealth();
    result.engineName = health.backend;
    result.engineDetail = health.detail;
    result.engineReady = health.ready;
    std::vector<std::int64_t> sorted;
    {
        const std::lock_guard guard(lock);
        sorted.assign(durations.begin(), durations.end());
        result.total = totalCount;
        result.failed = failedCount;
        result.totalAudioMs = totalAudioMs;
        result.totalSynthMs = totalSynthMs;
    }
    result.placeholder = speaksPlaceholder();
    result.queueDepth = queue->depth();
    result.prewarmPending = static_cast<std::int64_t>(prewarm->pending());
    result.busy = queue->busy();
    std::sort(sorted.begin(), sorted.end());
    result.p50Ms = percentile(sorted, 0.5);
    result.p95Ms = percentile(sorted, 0.95);
    return result;
}

std::vector<CheckResult> TtsService::selfTest(const std::string& text, const std::string& language,
                                              TtsGender gender, const std::string& airline) {
    std::vector<CheckResult> lines;

    const EngineHealth health = engineHealth();
    if (speaksPlaceholder())
        lines.push_back({"engine", false, T("现在出的是占位波形,不是真声音 —— ") + health.detail});
    else
        lines.push_back({"engine", health.ready, health.backend + " · " + health.detail});

    const auto count = static_cast<std::int64_t>(voices.count());
    lines.push_back({"voices", count > 0,
                     count > 0 ? TF("音色库里有 %d 个", count)
                               : T("一个音色都没有 —— 首次合成会自动造一个默认音色,之后就有了")});

    TtsRequest request;
    request.text = trimmed(text);
    if (request.text.empty()) request.text = T("这是一次连通测试。");
    request.language = language;
    request.gender = gender;
    request.airline = airline;
    request.priority = TtsPriority::high;

    std::string failure;
    try {
        const Stopwatch watch;
        const TtsResult result = synthesize(request);
        const std::int64_t took = watch.elapsedMs();
        lines.push_back(
            {"synthesize", result.wav.size() > bareHeader && result.durationMs > 0,
             TF("%@ · %d Hz · %.2f 秒 · %d 字节 · 用了 %d 毫秒",
                result.voiceId.empty() ? T("(兜底音色)") : result.voiceId, result.sampleRate,
                static_cast<double>(result.durationMs) / 1000, result.wav.size(), took)});
    } catch (const TtsError& error) {
        failure = T("合成失败:") + error.message;
    } catch (const std::exception& error) {
        failure = T("合成时炸了:") + describeError(error);
    }
    if (!failure.empty()) {
        lines.push_back({"synthesize", false, failure});
        lines.push_back({"cache", false, T("前一步没过,这一步没测")});
        return lines;
    }

    try {
        const Stopwatch watch;
        const bool hit = synthesize(request).fromCache;
        const std::int64_t took = watch.elapsedMs();
        lines.push_back({"cache", hit,
                         hit ? TF("第二次命中缓存,%d 毫秒", took)
                             : TF("第二次没命中缓存(%d 毫秒)—— 缓存可能被关了", took)});
    } catch (const std::exception& error) {
        lines.push_back({"cache", false, T("第二次合成失败:") + describeError(error)});
    }
    return lines;
}

}  // namespace zepho
