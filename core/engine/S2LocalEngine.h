// The real engine: supervises the external inference process `s2` and speaks lines through it.
//
// Finds the program and a model, starts it on a free port, waits until it accepts connections,
// restarts it a limited number of times, stops it with its whole group, and at construction kills
// what a crashed run left behind. The death of the child always ends in a state and a sentence, and
// never harms the service.
//
// Owned by the service for its whole life; any thread. start(), stop(), unload() and the watchdog's
// restarts happen one at a time in the order of the calls. Each of the first three begins a new
// run; whatever belongs to an older run (a watchdog, a sleep, a wait) ends when it notices.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "core/engine/EngineDiscovery.h"
#include "core/engine/S2Tuning.h"
#include "core/engine/TtsEngine.h"
#include "core/platform/PortClaim.h"
#include "core/platform/Process.h"

namespace zepho {

enum class S2EngineState {
    missing,   // nothing started: stopped, or files are not there
    loading,   // the child runs and loads the model
    ready,     // the child accepts connections
    failed,    // it could not be brought up; the detail says why
    unloaded,  // stopped on purpose to free memory
};

class S2LocalEngine final : public TtsEngine {
public:
    explicit S2LocalEngine(const EngineOptions& options, const S2Tuning& tuning = {});
    // Does what stop() does, and waits for the watchdog.
    ~S2LocalEngine() override;

    // (Re)starts. Blocks for an old child's end, the search and the spawn, not for the model.
    void start();
    // All return when the child is gone.
    void stop();
    void unload();
    // No later start() starts anything: the program ends, and would leave the child behind.
    void stopForGood();

    [[nodiscard]] S2EngineState currentState() const;
    [[nodiscard]] bool isUnloaded() const { return currentState() == S2EngineState::unloaded; }
    [[nodiscard]] int port() const;  // 0 before the first start
    [[nodiscard]] std::string modelPath() const;
    [[nodiscard]] std::string enginePath() const;
    [[nodiscard]] static std::string logPath();
    // The files that the last search did not find, for people.
    [[nodiscard]] std::string missingWhat() const;
    // The directory that the next start() searches; the data root at first.
    void setSearchRoot(const std::string& path);

    [[nodiscard]] static std::optional<std::string> engineDirectory();
    [[nodiscard]] static std::optional<std::string> executablePath();
    [[nodiscard]] static bool backendAvailable(ComputeBackend backend);

    [[nodiscard]] std::string name() const override;
    [[nodiscard]] bool ready() const override { return currentState() == S2EngineState::ready; }
    [[nodiscard]] bool supportsNativeSpeed() const override { return false; }
    // Takes effect at the next start of the child; the time-out at the next line.
    void configure(const EngineOptions& options) override;
    [[nodiscard]] EngineOptions options() const override;
    [[nodiscard]] EngineHealth checkHealth() override;
    [[nodiscard]] PcmBuffer synthesize(const S2Params& params, const VoiceHint& hint) override;

private:
    using Steady = std::chrono::steady_clock;
    using Run = std::uint64_t;
    class Turn;
    struct Line;

    [[nodiscard]] bool isClosed() const;
    // Only within a turn.
    void stopInternal(S2EngineState end, const std::string& sentence);
    bool spawnChild();
    void startWatchdog(Run mine);

    // The watchdog's; false when its thread is to end.
    void watchLoop(Run mine);
    bool waitReady(Run mine);
    bool restartChild(Run mine);
    bool sleepFor(Run mine, std::chrono::milliseconds time);
    void failLoad(Run mine, const ProcessExit& exit);

    // Nothing happens when the run is over. Whether it is not.
    bool setState(Run mine, S2EngineState next, const std::string& sentence);
    Line lineOrThrow() const;
    void noteGone(const std::shared_ptr<Process>& gone);

    // Constant after construction.
    const S2Tuning tuning;
    const std::int64_t attemptLimitMs;  // of one request, as the options were at construction

    // Guards everything below.
    mutable std::mutex lock;
    std::condition_variable changed;  // a new run, or the end of a turn
    EngineOptions opts;
    S2EngineState state = S2EngineState::missing;
    std::string detail;
    S2Files files;
    std::string searchRoot;
    int childPort = 0;
    PortClaim childClaim;  // of the port that the child was given
    std::shared_ptr<Process> child;
    Steady::time_point loadStart;
    int restarts = 0;
    std::thread watchThread;
    Run run = 0;
    bool closed = false;
    std::uint64_t turnsAsked = 0;
    std::uint64_t turnsDone = 0;
};

}  // namespace zepho
