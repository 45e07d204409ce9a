// The only path to the engine: one worker thread speaks one line at a time, high priority first.
//
// Callers on any thread hand in a line and block on it. One who cannot wait any longer leaves with a
// time-out; the line is spoken all the same and its audio goes to the late callback.
//
// Owned by the service through a std::shared_ptr. The worker, "Zephon synth", shares only the inner
// state, so dropping the last reference shuts the queue down, on whatever thread that happens, and
// never waits for a line inside the engine: the worker finishes that one by itself and ends.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

#include "core/engine/TtsEngine.h"
#include "core/service/SynthJob.h"

namespace zepho {

class SynthQueue {
public:
    // Asked anew for every line, on the worker; may give nothing.
    using EngineSource = std::function<std::shared_ptr<TtsEngine>()>;

    SynthQueue(std::int64_t longest, EngineSource getEngine);
    SynthQueue(const SynthQueue&) = delete;
    SynthQueue& operator=(const SynthQueue&) = delete;
    ~SynthQueue();

    // Blocks until the line is spoken, at most `timeoutMs` from now, waiting in the queue included.
    // Throws TtsError. `onLate` may be empty; it runs on the worker, outside all locks, if and only
    // if this call ended in a time-out and the line gave audio afterwards. After shutdown() nothing
    // is refused: a line then waits out its time.
    [[nodiscard]] SynthOutcome submit(S2Params params, VoiceHint hint, TtsPriority priority,
                                      std::int64_t timeoutMs, LateCallback onLate = {});

    // Throws what submit() would throw now for want of room, before a caller prepares a line in vain.
    void requireRoom() const;

    // Lines that wait; the one inside the engine is not counted.
    [[nodiscard]] std::int64_t depth() const;
    // The worker is inside a line.
    [[nodiscard]] bool busy() const;

    // Fails all waiting lines and lets the worker end after the one it is at. Does not wait for it.
    void shutdown();

    // The longest allowed depth(), for both priorities together. May be written at any time; holds
    // from the next submit() on.
    std::atomic<std::int64_t> limit;

private:
    struct State;

    // Constant after construction; the state guards itself.
    const std::shared_ptr<State> state;
    std::thread worker;
};

}  // namespace zepho
