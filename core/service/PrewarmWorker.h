// The background worker that bakes queued lines into the cache, one at a time.
//
// Owned by the service, which it knows only weakly; its thread "ZEPHO prewarm" ends within a second
// of terminate(), after the running line. All operations may be called from any thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "core/base/TtsTypes.h"

namespace zepho {

class TtsService;

class PrewarmWorker : public std::enable_shared_from_this<PrewarmWorker> {
public:
    explicit PrewarmWorker(std::weak_ptr<TtsService> owner) : service(std::move(owner)) {}
    PrewarmWorker(const PrewarmWorker&) = delete;
    PrewarmWorker& operator=(const PrewarmWorker&) = delete;

    // Starts the thread; once.
    void start();
    // Takes the lines that hold text, at normal priority, and returns how many.
    std::size_t add(const std::vector<TtsRequest>& requests);
    // Lines still to be baked; the one in progress is not counted.
    [[nodiscard]] std::size_t pending() const;
    // The waiting lines are lost.
    void terminate();

private:
    // One turn of the thread: bakes a line or waits for one. False ends the thread.
    bool turn();
    void bake(TtsService& owner, const TtsRequest& line);

    // Constant after construction.
    const std::weak_ptr<TtsService> service;
    // Guarded by lock.
    mutable std::mutex lock;
    std::condition_variable signal;
    std::deque<TtsRequest> items;
    bool terminated = false;
};

}  // namespace zepho
