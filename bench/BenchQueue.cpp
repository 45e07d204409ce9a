// The hand-over of one line to the synthesis worker and back, with an engine that answers at once,
// against the least that two threads need for it: a mutex around the value and a semaphore each way.
//
// All of them look around before they sleep, so a round trip is about a microsecond on an idle
// machine, and two wake-ups, 10 to 50 microseconds, on a busy one. The queue is expected within 1.3
// times the pair with the library's semaphore.
#include <memory>
#include <mutex>
#include <semaphore>
#include <thread>

#include <benchmark/benchmark.h>

#include "core/platform/Semaphore.h"
#include "core/service/SynthQueue.h"

namespace zepho {
namespace {

class InstantEngine : public TtsEngine {
public:
    std::string name() const override { return "instant"; }
    bool ready() const override { return true; }
    void configure(const EngineOptions&) override {}
    EngineOptions options() const override { return {}; }
    EngineHealth checkHealth() override { return {}; }
    PcmBuffer synthesize(const S2Params&, const VoiceHint&) override { return {}; }
};

// A value that goes to another thread and comes back.
template <class Signal>
class PlainPair {
public:
    PlainPair() : echo([this] { answer(); }) {}
    ~PlainPair() {
        roundTrip(-1);
        echo.join();
    }
    int roundTrip(int value) {
        {
            const std::lock_guard guard(lock);
            mailbox = value;
        }
        asked.release();
        answered.acquire();
        const std::lock_guard guard(lock);
        return mailbox;
    }

private:
    void answer() {
        for (bool last = false; !last;) {
            asked.acquire();
            {
                const std::lock_guard guard(lock);
                last = mailbox < 0;
                ++mailbox;
            }
            answered.release();
        }
    }

    Signal asked{0};
    Signal answered{0};
    std::mutex lock;
    int mailbox = 0;
    std::thread echo;
};

// The project's own semaphore under the names of the library's.
class OwnSignal {
public:
    explicit OwnSignal(int initial) : inner(initial) {}
    void release() { inner.raise(); }
    void acquire() { static_cast<void>(inner.tryAcquireFor(std::chrono::hours(1))); }

private:
    Semaphore inner;
};

template <class Signal>
void plainPair(benchmark::State& state) {
    PlainPair<Signal> pair;
    for (auto _ : state) benchmark::DoNotOptimize(pair.roundTrip(1));
}
BENCHMARK(plainPair<std::counting_semaphore<>>)->UseRealTime();
BENCHMARK(plainPair<OwnSignal>)->UseRealTime();

void synthQueue(benchmark::State& state) {
    const auto engine = std::make_shared<InstantEngine>();
    SynthQueue queue(64, [engine] { return engine; });
    for (auto _ : state)
        benchmark::DoNotOptimize(queue.submit(S2Params(), VoiceHint(), TtsPriority::normal, 60000));
}
BENCHMARK(synthQueue)->UseRealTime();

}  // namespace
}  // namespace zepho

BENCHMARK_MAIN();
