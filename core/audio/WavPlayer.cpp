#include "core/audio/WavPlayer.h"

#include <optional>
#include <string>
#include <utility>

#include "core/audio/WavReader.h"
#include "core/diag/AppLog.h"
#include "core/platform/MainThread.h"
#include "core/platform/Thread.h"

namespace zepho {
namespace {

void raise(void* semaphore) noexcept {
    static_cast<std::counting_semaphore<>*>(semaphore)->release();
}

std::shared_ptr<ClipPlayback> openClip(ByteView wav, SoundOutput output,
                                       std::counting_semaphore<>& ends) {
    std::string failure = "no readable WAV data";
    std::shared_ptr<ClipPlayback> opened;
    if (std::optional<PcmBuffer> clip = parseWav(wav))
        opened = ClipPlayback::open(std::move(*clip), output, raise, &ends, failure);
    if (!opened) AppLog::warn("player", "cannot play this clip: " + failure);
    return opened;
}

}  // namespace

WavPlayer::WavPlayer(SoundOutput where)
    : output(where), turns(std::make_shared<std::atomic<std::uint64_t>>(0)) {
    // Last of all: the thread uses everything else.
    watcher = startThread("clip-end", [this] { watchEnds(); });
}

WavPlayer::~WavPlayer() {
    stop();
    {
        const std::lock_guard guard(lock);
        closing = true;
    }
    ends.release();
    watcher.join();
}

bool WavPlayer::play(ByteView wav, std::int64_t durationMs) {
    if (wav.empty()) return false;
    if (const auto cutOff = takePlayer()) cutOff->close();
    const std::shared_ptr<ClipPlayback> opened = openClip(wav, output, ends);
    if (!opened) return false;

    std::shared_ptr<ClipPlayback> overtaken = opened;
    {
        const std::lock_guard guard(lock);
        player.swap(overtaken);
        durationMsValue = durationMs >= 1 ? durationMs : opened->durationMs();
    }
    // Another thread has stored its clip since ours began to open.
    if (overtaken) overtaken->close();
    if (opened->start()) return true;

    bool refused = false;  // and not cut off by another thread
    {
        const std::lock_guard guard(lock);
        refused = player == opened;
        if (refused) player.reset();
    }
    opened->close();
    if (refused) AppLog::warn("player", "cannot play this clip: the sound device does not start");
    return false;
}

void WavPlayer::stop() {
    if (const auto stopped = takePlayer()) stopped->close();
}

bool WavPlayer::isPlaying() const {
    const std::lock_guard guard(lock);
    return player && player->isPlaying();
}

std::int64_t WavPlayer::durationMs() const {
    const std::lock_guard guard(lock);
    return durationMsValue;
}

std::int64_t WavPlayer::positionMs() const {
    const std::lock_guard guard(lock);
    return player ? player->positionMs() : 0;
}

void WavPlayer::setOnFinished(std::function<void()> run) {
    // The old one ends after the lock: what it holds may end with it.
    const std::lock_guard guard(lock);
    onFinished.swap(run);
}

std::shared_ptr<ClipPlayback> WavPlayer::takePlayer() {
    const std::lock_guard guard(lock);
    turns->fetch_add(1);
    return std::exchange(player, nullptr);
}

void WavPlayer::watchEnds() {
    for (;;) {
        ends.acquire();
        std::shared_ptr<ClipPlayback> finished;
        std::function<void()> run;
        std::uint64_t turn = 0;
        {
            const std::lock_guard guard(lock);
            if (closing) return;
            // The clip that ended may have been cut off at the same moment.
            if (!player || !player->hasEnded()) continue;
            finished = std::exchange(player, nullptr);
            run = onFinished;
            turn = *turns;
        }
        finished->close();
        if (!run) continue;
        onMainThread([run = std::move(run), counted = turns, turn] {
            if (*counted == turn) run();
        });
    }
}

}  // namespace zepho
