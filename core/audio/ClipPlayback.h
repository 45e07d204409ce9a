// One clip on its way to one sound device, opened for it and given back after it.
//
// WavPlayer owns it. The sound library asks for samples on a thread of its own, which touches
// atomics only; the device is started and given back under `lock`, by any other thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "core/audio/PcmBuffer.h"

namespace zepho {

// Where clips sound: at the system's standard device, or nowhere, though as slowly as there.
enum class SoundOutput { card, silent };

// What is told of a playback from the thread that feeds the device: raised at most once each.
using ClipEndSignal = void (*)(void* receiver) noexcept;

class ClipPlayback {
public:
    // Opens the device and does not start it. No value leaves the reason in `failure`. `signal` is
    // called with `receiver` when the clip has sounded to its end or the device has gone away; it
    // must neither block nor touch the playback's device.
    [[nodiscard]] static std::shared_ptr<ClipPlayback> open(PcmBuffer clip, SoundOutput output,
                                                            ClipEndSignal signal, void* receiver,
                                                            std::string& failure);
    ~ClipPlayback();
    ClipPlayback(const ClipPlayback&) = delete;
    ClipPlayback& operator=(const ClipPlayback&) = delete;

    // False if the device refuses, or was given back before.
    [[nodiscard]] bool start();
    // Falls silent and gives the device back; the signal does not come any more once it returns.
    // Never on the thread that feeds the device.
    void close();

    [[nodiscard]] bool isPlaying() const { return started && !ended; }
    [[nodiscard]] bool hasEnded() const { return ended; }
    // The clip's length in milliseconds, truncated.
    [[nodiscard]] std::int64_t durationMs() const;
    // What has been heard of it.
    [[nodiscard]] std::int64_t positionMs() const;

private:
    struct Device;

    ClipPlayback(PcmBuffer samples, ClipEndSignal atEnd, void* receiver);
    void feed(float* into, std::size_t count);
    void end();

    // Constant after open().
    const PcmBuffer clip;
    const ClipEndSignal signal;
    void* const signalReceiver;
    std::size_t buffered = 0;  // frames that are fed before they are heard

    // Guarding themselves.
    std::atomic<std::size_t> fed{0};  // frames, with the silence behind the clip
    std::atomic<bool> started{false};
    std::atomic<bool> cut{false};
    std::atomic<bool> ended{false};

    // Guarded by lock.
    std::mutex lock;
    std::unique_ptr<Device> device;
};

}  // namespace zepho
