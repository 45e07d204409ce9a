#include "core/service/SynthQueue.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <mutex>
#include <utility>

#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/platform/Clock.h"
#include "core/platform/Errors.h"
#include "core/platform/Thread.h"

namespace zepho {

using JobPointer = std::shared_ptr<SynthJob>;

// What the worker shares with the queue object, so that it outlives the queue by one line.
struct SynthQueue::State {
    explicit State(EngineSource source) : getEngine(std::move(source)) {}

    void run();
    // False when `limit` jobs wait already.
    bool add(const JobPointer& job, std::int64_t limit);
    JobPointer takeToRun();
    JobPointer takeToDrop();
    void speak(SynthJob& job) const;
    // Ends the worker's time inside a line; gives whether the queue has been terminated.
    bool leaveJob();
    bool isTerminated();
    bool isBusy();
    // Gives false when somebody has terminated the queue before.
    bool terminate();

    // Constant after construction.
    const EngineSource getEngine;

    // Guards itself: a job may have come.
    Semaphore signal;

    // Guarded by lock.
    std::mutex lock;
    std::deque<JobPointer> high;
    std::deque<JobPointer> normal;
    bool terminated = false;
    std::int64_t depthValue = 0;
    bool busyValue = false;

private:
    JobPointer takeFirstLocked();
};

namespace {

// How long a stop may go unnoticed by a worker that nobody wakes.
constexpr std::chrono::milliseconds idleTick{200};
// The longest wait that is told apart from an endless one; keeps the deadline within its type.
constexpr std::int64_t longestWaitMs = std::int64_t{100} * 365 * 24 * 3600 * 1000;

[[noreturn]] void throwFull(std::int64_t limit) {
    throw TtsError(TtsErrorCode::queueFull, TF("合成队列已满(%d 条在排),稍后再试", limit));
}

// The exception that is being handled, as "type: description".
std::string describeUnexpected() {
    try {
        throw;
    } catch (const std::exception& error) {
        return typeName(error) + ": " + error.what();
    } catch (...) {
        return "unknown type: not a standard exception";
    }
}

}  // namespace

void SynthQueue::State::run() {
    if (isTerminated()) return;
    for (;;) {
        // Woken or not, there may be a job, and there may be an end.
        static_cast<void>(signal.tryAcquireFor(idleTick));
        while (JobPointer job = takeToRun()) {
            speak(*job);
            // Whatever the job still holds goes while the worker counts as busy.
            job.reset();
            if (leaveJob()) return;
        }
        if (isTerminated()) return;
    }
}

bool SynthQueue::State::add(const JobPointer& job, std::int64_t limit) {
    {
        const std::lock_guard guard(lock);
        if (depthValue >= limit) return false;
        (job->priority == TtsPriority::high ? high : normal).push_back(job);
        ++depthValue;
    }
    signal.raise();
    return true;
}

JobPointer SynthQueue::State::takeFirstLocked() {
    std::deque<JobPointer>& from = high.empty() ? normal : high;
    if (from.empty()) return nullptr;
    JobPointer job = std::move(from.front());
    from.pop_front();
    --depthValue;
    return job;
}

// A job that comes after the end is left where it is: its caller waits out its time.
JobPointer SynthQueue::State::takeToRun() {
    const std::lock_guard guard(lock);
    if (terminated) return nullptr;
    JobPointer job = takeFirstLocked();
    // In the same breath as the take, so that nobody sees a job that neither waits nor runs.
    busyValue = job != nullptr;
    return job;
}

JobPointer SynthQueue::State::takeToDrop() {
    const std::lock_guard guard(lock);
    return takeFirstLocked();
}

void SynthQueue::State::speak(SynthJob& job) const {
    const Stopwatch watch;
    PcmBuffer pcm;
    std::shared_ptr<TtsEngine> engine;
    try {
        engine = getEngine();
        if (!engine) throw TtsError(TtsErrorCode::engineNotConnected, T("没有可用的引擎"));
        pcm = engine->synthesize(job.params, job.hint);
    } catch (const TtsError& error) {
        job.fail(error.code, error.message, watch.elapsedMs());
        return;
    } catch (...) {
        const std::string what = describeUnexpected();
        AppLog::error("queue", "unexpected exception on the synthesis thread: " + what);
        job.fail(TtsErrorCode::engineFailed, what, watch.elapsedMs());
        return;
    }
    try {
        job.succeed(std::move(pcm), watch.elapsedMs());
    } catch (...) {
        AppLog::error("queue", "the callback of a late synthesis failed: " + describeUnexpected());
    }
}

bool SynthQueue::State::leaveJob() {
    const std::lock_guard guard(lock);
    busyValue = false;
    return terminated;
}

bool SynthQueue::State::isTerminated() {
    const std::lock_guard guard(lock);
    return terminated;
}

bool SynthQueue::State::isBusy() {
    const std::lock_guard guard(lock);
    return busyValue;
}

bool SynthQueue::State::terminate() {
    const std::lock_guard guard(lock);
    return !std::exchange(terminated, true);
}

SynthQueue::SynthQueue(std::int64_t longest, EngineSource getEngine)
    : limit(longest),
      state(std::make_shared<State>(std::move(getEngine))),
      worker(startThread("Zephon synth", [shared = state] { shared->run(); })) {}

SynthQueue::~SynthQueue() {
    shutdown();
    // A terminated worker that is not inside a line never enters one again and ends at once. One
    // that is may take minutes, or may be this very thread, dropping the queue in a callback.
    if (state->isBusy() || worker.get_id() == std::this_thread::get_id())
        worker.detach();
    else
        worker.join();
}

SynthOutcome SynthQueue::submit(S2Params params, VoiceHint hint, TtsPriority priority,
                                std::int64_t timeoutMs, LateCallback onLate) {
    const auto job =
        std::make_shared<SynthJob>(std::move(params), std::move(hint), priority, std::move(onLate));
    const std::int64_t longest = limit.load();
    if (!state->add(job, longest)) throwFull(longest);
    const auto wait =
        std::chrono::milliseconds(std::clamp<std::int64_t>(timeoutMs, 0, longestWaitMs));
    if (!job->waitUntil(std::chrono::steady_clock::now() + wait) && job->abandon())
        throw TtsError(TtsErrorCode::timeout, TF("等了 %d 毫秒后端还没出声音", timeoutMs));
    return job->takeOutcome();
}

void SynthQueue::requireRoom() const {
    const std::int64_t longest = limit.load();
    if (depth() >= longest) throwFull(longest);
}

std::int64_t SynthQueue::depth() const {
    const std::lock_guard guard(state->lock);
    return state->depthValue;
}

bool SynthQueue::busy() const {
    return state->isBusy();
}

void SynthQueue::shutdown() {
    if (!state->terminate()) return;
    state->signal.raise();
    while (const JobPointer job = state->takeToDrop())
        job->fail(TtsErrorCode::engineNotConnected, T("服务正在停止,这条请求被丢弃"), 0);
}

}  // namespace zepho
