// Plays one clip at a time on this machine, for the preview buttons of the window.
//
// The window owns it. play() and stop() may come from any thread, and block while the system opens
// or gives back the sound device; the end of a clip is told on the main thread. `lock` is not held
// while a device is opened, started or stopped.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <semaphore>
#include <thread>

#include "core/audio/ClipPlayback.h"
#include "core/platform/Bytes.h"

namespace zepho {

class WavPlayer {
public:
    explicit WavPlayer(SoundOutput where = SoundOutput::card);
    ~WavPlayer();
    WavPlayer(const WavPlayer&) = delete;
    WavPlayer& operator=(const WavPlayer&) = delete;

    // Cuts off the clip that plays and starts this one, a complete WAV file. `durationMs` is its
    // length where the caller knows it, else 0. Tells whether playing began; why a clip does not is
    // in the log. Without a sound card nothing plays, and nothing at all leaves the old one alone.
    bool play(ByteView wav, std::int64_t durationMs);
    void stop();

    [[nodiscard]] bool isPlaying() const;
    // The length of the last clip that was started, also after its end.
    [[nodiscard]] std::int64_t durationMs() const;
    // How much of the clip has been heard; 0 when there is none.
    [[nodiscard]] std::int64_t positionMs() const;

    // Called on the main thread after a clip has played to its end. Not for a clip that is cut off,
    // and not once another one or a stop has followed.
    void setOnFinished(std::function<void()> run);

private:
    void watchEnds();
    std::shared_ptr<ClipPlayback> takePlayer();

    // Constant after construction.
    const SoundOutput output;
    std::thread watcher;

    // Guarding themselves.
    std::counting_semaphore<> ends{0};  // raised where a device is fed: no lock may be taken there
    // Counts plays and stops. A callback on its way to the main thread compares it, and outlives us.
    const std::shared_ptr<std::atomic<std::uint64_t>> turns;

    // Guarded by lock.
    mutable std::mutex lock;
    std::shared_ptr<ClipPlayback> player;
    std::int64_t durationMsValue = 0;
    std::function<void()> onFinished;
    bool closing = false;
};

}  // namespace zepho
