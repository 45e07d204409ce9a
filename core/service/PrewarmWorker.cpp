#include "core/service/PrewarmWorker.h"

#include <chrono>
#include <exception>
#include <optional>
#include <utility>

#include "core/base/TtsError.h"
#include "core/diag/AppLog.h"
#include "core/diag/FormatText.h"
#include "core/platform/Errors.h"
#include "core/platform/Thread.h"
#include "core/platform/Unicode.h"
#include "core/service/TtsService.h"

namespace zepho {
namespace {

constexpr std::size_t logPrefix = 40;  // characters of a line that stand in the log

}  // namespace

void PrewarmWorker::start() {
    // The thread holds the worker only for one turn, so that it ends with its owner.
    startThread("ZEPHO prewarm", [weak = weak_from_this()] {
        for (;;) {
            const std::shared_ptr<PrewarmWorker> self = weak.lock();
            if (!self || !self->turn()) return;
        }
    }).detach();
}

std::size_t PrewarmWorker::add(const std::vector<TtsRequest>& requests) {
    std::size_t taken = 0;
    {
        const std::lock_guard guard(lock);
        for (const TtsRequest& request : requests) {
            if (trimmedView(request.text).empty()) continue;
            items.push_back(request);
            items.back().priority = TtsPriority::normal;
            ++taken;
        }
    }
    if (taken > 0) signal.notify_one();
    return taken;
}

std::size_t PrewarmWorker::pending() const {
    const std::lock_guard guard(lock);
    return items.size();
}

void PrewarmWorker::terminate() {
    {
        const std::lock_guard guard(lock);
        terminated = true;
    }
    signal.notify_one();
}

bool PrewarmWorker::turn() {
    std::optional<TtsRequest> line;
    {
        std::unique_lock guard(lock);
        if (terminated) return false;
        if (items.empty()) {
            signal.wait_for(guard, std::chrono::seconds(1),
                            [this] { return terminated || !items.empty(); });
            return !terminated;
        }
        line = std::move(items.front());
        items.pop_front();
    }
    const std::shared_ptr<TtsService> owner = service.lock();
    if (!owner) return false;
    bake(*owner, *line);
    return true;
}

void PrewarmWorker::bake(TtsService& owner, const TtsRequest& line) {
    std::string head;
    try {
        head = graphemePrefix(line.text, logPrefix);
        if (owner.isCached(line)) return;
        const TtsResult result = owner.synthesize(line);
        AppLog::info("service",
                     formatText("pre-baked one entry (%.1f s of audio), %d left: %@",
                                static_cast<double>(result.durationMs) / 1000, pending(), head));
    } catch (const TtsError& failure) {
        AppLog::warn("service", "pre-bake failed (" + failure.message + "): " + head);
    } catch (const std::exception& failure) {
        AppLog::error("service", "pre-bake crashed (" + describeError(failure) + "): " + head);
    }
}

}  // namespace zepho
