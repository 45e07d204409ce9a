// The part of S2LocalEngine that runs on its watchdog thread.
#include <exception>
#include <system_error>
#include <utility>

#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/engine/S2EngineTurn.h"
#include "core/engine/S2ExitPolicy.h"
#include "core/engine/S2LocalEngine.h"
#include "core/engine/S2Process.h"
#include "core/platform/Errors.h"
#include "core/platform/Files.h"
#include "core/platform/TcpProbe.h"
#include "core/platform/Thread.h"

namespace zepho {
namespace {

bool answers(int port, const S2Tuning& tuning) {
    return probeLoopbackPort(port, tuning.probeLimit) == TcpProbe::answered;
}

}  // namespace

void S2LocalEngine::startWatchdog(Run mine) {
    std::thread made;
    try {
        made = startThread("ZEPHO engine watchdog", [this, mine] { watchLoop(mine); });
    } catch (const std::system_error& error) {
        // A child that nobody watches would never become ready.
        const std::string words = describeError(error);
        AppLog::error("s2", "cannot start the inference process: " + words);
        stopInternal(S2EngineState::failed, TF("推理进程起不来:%@(%@)", enginePath(), words));
        return;
    }
    const std::lock_guard guard(lock);
    watchThread = std::move(made);
}

void S2LocalEngine::watchLoop(Run mine) {
    if (!waitReady(mine)) return;
    while (sleepFor(mine, tuning.watchPoll)) {
        std::shared_ptr<Process> watched;
        {
            const std::lock_guard guard(lock);
            if (run != mine) return;
            watched = child;
        }
        if (watched && watched->running()) continue;
        watched.reset();
        if (!restartChild(mine) || !waitReady(mine)) return;
        int count = 0;
        {
            const std::lock_guard guard(lock);
            count = restarts;
        }
        AppLog::info("s2", formatText("inference process restarted and ready (attempt %d)", count));
    }
}

bool S2LocalEngine::restartChild(Run mine) {
    const Turn turn(*this, Turn::withinMine);
    int before = 0;
    {
        const std::lock_guard guard(lock);
        if (run != mine) return false;
        before = restarts;
    }
    AppLog::warn("s2", formatText("inference process gone (auto-restarted %d time(s))", before));
    const AfterExit next = afterExit(S2ChildPhase::ready, before, tuning.maxRestarts);
    if (next.action == AfterExit::Action::fail) {
        setState(mine, S2EngineState::failed,
                 TF("推理进程反复退出(%d 次),不再自动重启 —— 看 %@", before, logPath()));
        return false;
    }
    const std::string sentence = TF("推理进程没了,正在第 %d 次重启…", next.restarts);
    {
        const std::lock_guard guard(lock);
        if (run != mine) return false;
        restarts = next.restarts;
        loadStart = Steady::now();
        state = S2EngineState::loading;
        detail = sentence;
    }
    return spawnChild();
}

bool S2LocalEngine::waitReady(Run mine) {
    for (;;) {
        std::shared_ptr<Process> watched;
        int port = 0;
        Steady::time_point since;
        std::string model;
        {
            const std::lock_guard guard(lock);
            if (run != mine) return false;
            watched = child;
            port = childPort;
            since = loadStart;
            model = files.model;
        }
        if (Steady::now() - since >= tuning.loadLimit) break;
        if (watched) {
            if (const std::optional<ProcessExit> exit = watched->exitStatus()) {
                failLoad(mine, *exit);
                return false;
            }
        }
        if (!answers(port, tuning) && answers(tuning.ownPort, tuning)) {
            const std::lock_guard guard(lock);
            if (run != mine) return false;
            port = childPort = tuning.ownPort;
        }
        if (answers(port, tuning)) {
            const double took = std::chrono::duration<double>(Steady::now() - since).count();
            if (!setState(mine, S2EngineState::ready,
                          TF("%@,端口 %d,加载用了 %.1f 秒", lastPathComponent(model), port, took)))
                return false;
            AppLog::info("s2", formatText("engine ready, loaded in %.1f s", took));
            return true;
        }
        if (!sleepFor(mine, tuning.readyPoll)) return false;
    }
    const auto limit = std::chrono::duration_cast<std::chrono::seconds>(tuning.loadLimit).count();
    setState(mine, S2EngineState::failed, TF("等了 %d 秒模型还没加载完,看 %@", limit, logPath()));
    return false;
}

void S2LocalEngine::failLoad(Run mine, const ProcessExit& exit) {
    if (!setState(mine, S2EngineState::failed, loadExitSentence(exit, logPath()))) return;
    AppLog::error(
        "s2", formatText("inference process exited with status %d; %@", exit.number, logPath()));
}

bool S2LocalEngine::sleepFor(Run mine, std::chrono::milliseconds time) {
    std::unique_lock guard(lock);
    return !changed.wait_for(guard, time, [this, mine] { return run != mine; });
}

bool S2LocalEngine::setState(Run mine, S2EngineState next, const std::string& sentence) {
    const std::lock_guard guard(lock);
    if (run != mine) return false;
    state = next;
    detail = sentence;
    return true;
}

}  // namespace zepho
