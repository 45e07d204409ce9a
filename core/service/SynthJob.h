// One line on its way through the synthesis queue, shared by the caller that waits for it and the
// worker that runs it.
//
// A job is settled exactly once, by the worker or by the queue's end. Whether the caller takes the
// outcome or has left before is decided under `lock`: either the caller gets it, or the late callback
// does. No lock is held while `done` is raised or a callback is run or destroyed.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "core/audio/PcmBuffer.h"
#include "core/base/TtsError.h"
#include "core/base/VoiceInfo.h"
#include "core/platform/Semaphore.h"

namespace zepho {

// What became of a line: its audio, and the time the engine took.
struct SynthOutcome {
    PcmBuffer pcm;
    std::int64_t elapsedMs = 0;
};

// Gets the audio of a line whose caller has stopped waiting, and the time the engine took.
using LateCallback = std::function<void(PcmBuffer pcm, std::int64_t elapsedMs)>;

class SynthJob {
public:
    SynthJob(S2Params lineParams, VoiceHint lineHint, TtsPriority linePriority,
             LateCallback lateCallback);

    // The caller's side. Waits until the job is settled; false when the deadline passed before.
    [[nodiscard]] bool waitUntil(std::chrono::steady_clock::time_point deadline);
    // Stops waiting for good; false when the outcome came first and is there to be taken.
    [[nodiscard]] bool abandon();
    // The outcome of a settled job, to be taken once. Throws the TtsError that the job failed with.
    [[nodiscard]] SynthOutcome takeOutcome();

    // The worker's side. Hands the audio to the waiting caller, or else to the late callback, which
    // runs on this thread before the call returns; what it throws comes out of here.
    void succeed(PcmBuffer audio, std::int64_t tookMs);
    // An abandoned job that fails tells nobody.
    void fail(TtsErrorCode code, std::string message, std::int64_t tookMs);

    // Constant after construction.
    const S2Params params;
    const VoiceHint hint;
    const TtsPriority priority;

private:
    // Guards itself: raised once, when the job is settled.
    Semaphore done;

    // Guarded by lock.
    std::mutex lock;
    PcmBuffer pcm;
    std::optional<TtsError> error;
    std::int64_t elapsedMs = 0;
    bool settled = false;    // the outcome is in place
    bool abandoned = false;  // the caller has left
    LateCallback onLate;     // empty once the job is settled
};

}  // namespace zepho
