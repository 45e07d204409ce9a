#include "core/service/SynthJob.h"

#include <utility>

namespace zepho {

SynthJob::SynthJob(S2Params lineParams, VoiceHint lineHint, TtsPriority linePriority,
                   LateCallback lateCallback)
    : params(std::move(lineParams)),
      hint(std::move(lineHint)),
      priority(linePriority),
      onLate(std::move(lateCallback)) {}

bool SynthJob::waitUntil(std::chrono::steady_clock::time_point deadline) {
    return done.tryAcquireUntil(deadline);
}

bool SynthJob::abandon() {
    const std::lock_guard guard(lock);
    if (settled) return false;
    abandoned = true;
    return true;
}

SynthOutcome SynthJob::takeOutcome() {
    const std::lock_guard guard(lock);
    if (error) throw TtsError(*error);
    return {std::move(pcm), elapsedMs};
}

void SynthJob::succeed(PcmBuffer audio, std::int64_t tookMs) {
    LateCallback late;
    PcmBuffer lateAudio;
    bool callerLeft = false;
    {
        const std::lock_guard guard(lock);
        callerLeft = abandoned;
        (callerLeft ? lateAudio : pcm) = std::move(audio);
        elapsedMs = tookMs;
        settled = true;
        late.swap(onLate);
    }
    done.raise();
    if (callerLeft && late) late(std::move(lateAudio), tookMs);
}

void SynthJob::fail(TtsErrorCode code, std::string message, std::int64_t tookMs) {
    LateCallback dropped;
    {
        const std::lock_guard guard(lock);
        error.emplace(code, std::move(message));
        elapsedMs = tookMs;
        settled = true;
        dropped.swap(onLate);
    }
    done.raise();
}

}  // namespace zepho
