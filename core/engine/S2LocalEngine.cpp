#include "core/engine/S2LocalEngine.h"

#include <system_error>
#include <utility>

#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/engine/S2EngineTurn.h"
#include "core/engine/S2Exchange.h"
#include "core/engine/S2Orphans.h"
#include "core/engine/S2Process.h"
#include "core/platform/Errors.h"
#include "core/platform/Files.h"
#include "core/platform/Thread.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

constexpr const char* engineName = "fish-s2-pro (s2.cpp)";

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

S2LocalEngine::S2LocalEngine(const EngineOptions& options, const S2Tuning& values)
    : tuning(values),
      attemptLimitMs(options.timeoutMs),
      opts(options),
      searchRoot(ZEPHOPaths::dataRoot()) {
    sweepOrphans();
}

S2LocalEngine::~S2LocalEngine() {
    stop();
    std::thread last;
    {
        const std::lock_guard guard(lock);
        last = std::exchange(watchThread, {});
    }
    if (last.joinable()) last.join();
}

void S2LocalEngine::start() {
    std::thread old;
    {
        const Turn turn(*this, Turn::newRun);
        stopInternal(S2EngineState::missing, T("已停止"));
        if (turn.isOver() || isClosed()) return;
        std::string root;
        std::string modelFile;
        {
            const std::lock_guard guard(lock);
            root = searchRoot;
            modelFile = opts.modelFile;
        }
        S2Files found = findS2Files(root, modelFile);
        const std::string missing = found.missing();
        const std::string sentence =
            found.complete() ? T("正在加载模型…") : TF("bin 里缺 %@", missing);
        {
            const std::lock_guard guard(lock);
            files = std::move(found);
            state = missing.empty() ? S2EngineState::loading : S2EngineState::missing;
            detail = sentence;
            restarts = 0;
            loadStart = Steady::now();
            old = std::exchange(watchThread, {});
        }
        if (!missing.empty())
            AppLog::warn("s2", "model files incomplete (missing " + missing +
                                   "); falling back to placeholder audio");
        else if (spawnChild())
            startWatchdog(turn.run());
    }
    // It belongs to an older run, so it is about to end.
    if (old.joinable()) old.join();
}

void S2LocalEngine::stop() {
    const Turn turn(*this, Turn::newRun);
    stopInternal(S2EngineState::missing, T("已停止"));
}

void S2LocalEngine::stopForGood() {
    {
        const std::lock_guard guard(lock);
        closed = true;
    }
    stop();
}

bool S2LocalEngine::isClosed() const {
    const std::lock_guard guard(lock);
    return closed;
}

void S2LocalEngine::unload() {
    const Turn turn(*this, Turn::newRun);
    stopInternal(S2EngineState::unloaded, T("模型已卸载,内存已释放"));
}

void S2LocalEngine::stopInternal(S2EngineState end, const std::string& sentence) {
    std::shared_ptr<Process> taken;
    PortClaim given;  // until the child is gone
    {
        const std::lock_guard guard(lock);
        taken = std::exchange(child, nullptr);
        given = std::exchange(childClaim, {});
    }
    endS2(taken.get(), tuning);
    removeS2PidFile();
    const std::lock_guard guard(lock);
    state = end;
    detail = sentence;
}

bool S2LocalEngine::spawnChild() {
    S2Files what;
    EngineOptions with;
    {
        // The claim of a child that is gone would be in our own way.
        PortClaim former;
        const std::lock_guard guard(lock);
        former = std::exchange(childClaim, {});
        what = files;
        with = opts;
    }
    std::optional<S2Port> port = pickS2Port(tuning);
    if (!port) {
        const std::string sentence =
            TF("本机 %d..%d 全被占用,推理进程无处可放", tuning.firstPort, tuning.lastPort);
        const std::lock_guard guard(lock);
        state = S2EngineState::failed;
        detail = sentence;
        return false;
    }
    const bool gpu = backendAvailable(ComputeBackend::metal);
    try {
        std::shared_ptr<Process> made = launchS2(what, s2Arguments(what, with, port->number, gpu));
        const std::int32_t pid = made->pid();
        {
            const std::lock_guard guard(lock);
            childPort = port->number;
            childClaim = std::move(port->claim);
            child = std::move(made);
        }
        AppLog::info("s2", formatText("inference process started (pid %d, port %d): %@%@", pid,
                                      port->number, lastPathComponent(what.model),
                                      s2UsesGpu(with, gpu) ? " [metal]" : " [cpu]"));
        return true;
    } catch (const std::system_error& error) {
        const std::string words = describeError(error);
        const std::string sentence = TF("推理进程起不来:%@(%@)", what.executable, words);
        {
            const std::lock_guard guard(lock);
            childPort = port->number;
            state = S2EngineState::failed;
            detail = sentence;
        }
        AppLog::error("s2", "cannot start the inference process: " + words);
        return false;
    }
}

S2EngineState S2LocalEngine::currentState() const {
    const std::lock_guard guard(lock);
    return state;
}

int S2LocalEngine::port() const {
    const std::lock_guard guard(lock);
    return childPort;
}

std::string S2LocalEngine::modelPath() const {
    const std::lock_guard guard(lock);
    return files.model;
}

std::string S2LocalEngine::enginePath() const {
    const std::lock_guard guard(lock);
    return files.executable;
}

std::string S2LocalEngine::logPath() {
    return ZEPHOPaths::engineLog();
}

std::string S2LocalEngine::missingWhat() const {
    const std::lock_guard guard(lock);
    return files.missing();
}

void S2LocalEngine::setSearchRoot(const std::string& path) {
    const std::lock_guard guard(lock);
    searchRoot = withTrailingSlash(path);
}

std::optional<std::string> S2LocalEngine::engineDirectory() {
    return zepho::engineDirectory();
}

std::optional<std::string> S2LocalEngine::executablePath() {
    return zepho::enginePath();
}

bool S2LocalEngine::backendAvailable(ComputeBackend backend) {
    return zepho::backendAvailable(backend);
}

std::string S2LocalEngine::name() const {
    return engineName;
}

void S2LocalEngine::configure(const EngineOptions& options) {
    const std::lock_guard guard(lock);
    opts = options;
}

EngineOptions S2LocalEngine::options() const {
    const std::lock_guard guard(lock);
    return opts;
}

EngineHealth S2LocalEngine::checkHealth() {
    EngineHealth health;
    health.backend = engineName;
    bool loading = false;
    Steady::time_point since;
    {
        const std::lock_guard guard(lock);
        health.ready = state == S2EngineState::ready;
        health.exePath = files.executable;
        health.detail = detail;
        loading = state == S2EngineState::loading;
        since = loadStart;
    }
    if (loading) health.detail = TF("模型加载中(已 %.0f 秒)…", secondsSince(since));
    return health;
}

// What one line needs of the engine, as it stood at one moment.
struct S2LocalEngine::Line {
    int port = 0;
    std::int64_t timeoutMs = 0;
    std::shared_ptr<Process> child;
};

S2LocalEngine::Line S2LocalEngine::lineOrThrow() const {
    Line line;
    S2EngineState now = S2EngineState::missing;
    std::string sentence;
    std::string missing;
    Steady::time_point since;
    {
        const std::lock_guard guard(lock);
        now = state;
        sentence = detail;
        missing = files.missing();
        since = loadStart;
        line = {childPort, opts.timeoutMs, child};
    }
    switch (now) {
        case S2EngineState::missing:
            throw TtsError(TtsErrorCode::engineNotConnected,
                           TF("引擎还没装齐:bin 里缺 %@", missing));
        case S2EngineState::loading:
            throw TtsError(TtsErrorCode::engineNotConnected,
                           TF("模型还在加载(已 %.0f 秒),稍后再试", secondsSince(since)));
        case S2EngineState::failed:
            throw TtsError(TtsErrorCode::engineFailed, sentence);
        case S2EngineState::unloaded:
            throw TtsError(
                TtsErrorCode::engineNotConnected,
                T("模型已卸载,这一句缓存里没有。\n要现合成的话,先在「模型」页点「载入模型」。"));
        case S2EngineState::ready:
            break;
    }
    return line;
}

PcmBuffer S2LocalEngine::synthesize(const S2Params& params, const VoiceHint& hint) {
    if (trimmedView(params.text).empty())
        throw TtsError(TtsErrorCode::emptyText, T("没有要合成的文本"));
    const Line line = lineOrThrow();
    if (params.referenceAudio.empty() && params.voiceProfile.empty())
        AppLog::warn("s2",
                     "no reference audio for this request; the model picks the voice itself "
                     "(voice: " +
                         hint.display + ")");
    // Only the process that gets the line counts; another may run by the time it has failed.
    const std::shared_ptr<Process>& process = line.child;
    S2ExchangeWorld world;
    world.send = httpSend;
    world.now = Steady::now;
    world.sleep = [](std::chrono::milliseconds time) { std::this_thread::sleep_for(time); };
    world.childRuns = [&process] { return process && process->running(); };
    world.childEnds = [this, &process](std::chrono::milliseconds within) {
        return !process || process->waitForExit(within, tuning.stopPoll);
    };
    world.childGone = [this, &process] { noteGone(process); };
    return exchangeLine(params, {line.port, line.timeoutMs, attemptLimitMs, logPath(), tuning},
                        world);
}

// Callers back off at once, before the watchdog looks again. A child that is being stopped, or that
// the watchdog has dealt with already, has its state from there.
void S2LocalEngine::noteGone(const std::shared_ptr<Process>& gone) {
    const std::string sentence = T("推理进程不在了,正在重启…");
    const std::lock_guard guard(lock);
    if (!gone || child != gone || state != S2EngineState::ready) return;
    state = S2EngineState::loading;
    detail = sentence;
}

}  // namespace zepho
