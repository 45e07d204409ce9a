#include "core/audio/ClipPlayback.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>
#include <vector>

// The library's playing half, private to this file so that it cannot clash with the decoders' copy.
#define MA_API static
#define MA_NO_DECODING
#define MA_NO_ENCODING
#define MA_NO_ENGINE
#define MA_NO_GENERATION
#define MA_NO_JACK  // its client library leaks, and talks to stderr, where no server runs
#define MA_NO_NODE_GRAPH
#define MA_NO_RESOURCE_MANAGER
#define MINIAUDIO_IMPLEMENTATION
#include <miniaudio.h>

namespace zepho {
namespace {

// Beyond these the library's resampler has filters without end, and no recorder works there.
constexpr int lowestRate = 1'000;
constexpr int highestRate = 384'000;

[[maybe_unused]] void saysNothing(const char*, int, const char*, int, const char*, ...) {}

// ALSA's library writes a page to stderr where there is no card. The log has a line for that.
void quieten([[maybe_unused]] ma_context& context) {
#ifdef MA_SUPPORT_ALSA
    if (context.backend != ma_backend_alsa) return;
    using Handler = void (*)(const char*, int, const char*, int, const char*, ...);
    const auto setHandler = reinterpret_cast<int (*)(Handler)>(
        ma_dlsym(ma_context_get_log(&context), context.alsa.asoundSO, "snd_lib_error_set_handler"));
    if (setHandler != nullptr) setHandler(saysNothing);
#endif
}

// Where nobody listens the library has a device too, that "plays" to nobody.
std::vector<ma_backend> backendsOf(SoundOutput output) {
    if (output == SoundOutput::silent) return {ma_backend_null};
    std::array<ma_backend, MA_BACKEND_COUNT> all{};
    size_t count = 0;
    if (ma_get_enabled_backends(all.data(), all.size(), &count) != MA_SUCCESS) return {};
    std::vector<ma_backend> real(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count));
    std::erase(real, ma_backend_null);
    std::erase(real, ma_backend_custom);
    return real;
}

// A sound server without a card offers a sink that swallows everything.
bool swallowsEverything(ma_device& device) {
    if (device.pContext->backend != ma_backend_pulseaudio) return false;
    ma_device_info info{};
    if (ma_device_get_info(&device, ma_device_type_playback, &info) != MA_SUCCESS) return false;
    return std::string_view(info.id.pulse) == "auto_null";
}

}  // namespace

struct ClipPlayback::Device {
    ma_context context{};
    ma_device handle{};
    bool contextOpen = false;
    bool open = false;

    Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    ~Device() {
        if (open) {
            // Giving back alone would wait for a server that asks for nothing at the moment.
            ma_device_stop(&handle);
            ma_device_uninit(&handle);
        }
        if (contextOpen) ma_context_uninit(&context);
    }

    ma_result openAt(ma_backend backend, const ma_device_config& config) {
        ma_result result = ma_context_init(&backend, 1, nullptr, &context);
        if (result != MA_SUCCESS) return result;
        contextOpen = true;
        quieten(context);
        result = ma_device_init(&context, &config, &handle);
        open = result == MA_SUCCESS;
        return result;
    }

    static void onData(ma_device* device, void* output, const void*, ma_uint32 frames) {
        static_cast<ClipPlayback*>(device->pUserData)->feed(static_cast<float*>(output), frames);
    }

    // Whether it was stopped by us or has been unplugged: nothing sounds any more.
    static void onNotification(const ma_device_notification* what) {
        if (what->type != ma_device_notification_type_stopped) return;
        static_cast<ClipPlayback*>(what->pDevice->pUserData)->end();
    }
};

ClipPlayback::ClipPlayback(PcmBuffer samples, ClipEndSignal atEnd, void* receiver)
    : clip(std::move(samples)), signal(atEnd), signalReceiver(receiver) {}

std::shared_ptr<ClipPlayback> ClipPlayback::open(PcmBuffer clip, SoundOutput output,
                                                 ClipEndSignal signal, void* receiver,
                                                 std::string& failure) {
    if (clip.sampleRate < lowestRate || clip.sampleRate > highestRate) {
        failure = "a sample rate of " + std::to_string(clip.sampleRate) + " Hz";
        return nullptr;
    }
    std::shared_ptr<ClipPlayback> playback(new ClipPlayback(std::move(clip), signal, receiver));

    ma_device_config config = ma_device_config_init(ma_device_type_playback);
    config.playback.format = ma_format_f32;
    config.playback.channels = 1;
    config.sampleRate = static_cast<ma_uint32>(playback->clip.sampleRate);
    config.noPreSilencedOutputBuffer = MA_TRUE;
    config.dataCallback = Device::onData;
    config.notificationCallback = Device::onNotification;
    config.pUserData = playback.get();

    // The first that has a device, in the library's order.
    std::unique_ptr<Device> device;
    failure = "there is no sound system";
    for (const ma_backend backend : backendsOf(output)) {
        auto candidate = std::make_unique<Device>();
        const ma_result result = candidate->openAt(backend, config);
        if (result == MA_SUCCESS) {
            device = std::move(candidate);
            break;
        }
        failure = ma_result_description(result);
    }
    if (!device) return nullptr;
    if (output == SoundOutput::card && swallowsEverything(device->handle)) {
        // No other way round the server: they lead to the same sink.
        failure = "there is no sound card";
        return nullptr;
    }
    failure.clear();
    const auto& sink = device->handle.playback;
    const double bufferSeconds = static_cast<double>(sink.internalPeriodSizeInFrames) *
                                 sink.internalPeriods /
                                 std::max<ma_uint32>(sink.internalSampleRate, 1);
    playback->buffered =
        static_cast<std::size_t>(std::ceil(bufferSeconds * playback->clip.sampleRate));
    playback->device = std::move(device);
    return playback;
}

ClipPlayback::~ClipPlayback() {
    close();
}

bool ClipPlayback::start() {
    const std::lock_guard guard(lock);
    if (!device) return false;
    // Before the device's thread can tell the end.
    started = true;
    if (ma_device_start(&device->handle) == MA_SUCCESS) return true;
    started = false;
    return false;
}

void ClipPlayback::close() {
    // What the device still asks for is silence, so that nothing more is heard while it drains.
    cut = true;
    const std::lock_guard guard(lock);
    device.reset();
}

std::int64_t ClipPlayback::durationMs() const {
    return static_cast<std::int64_t>(clip.data.size()) * 1000 / clip.sampleRate;
}

std::int64_t ClipPlayback::positionMs() const {
    const std::size_t given = fed;
    const std::size_t heard = std::min(given - std::min(given, buffered), clip.data.size());
    return static_cast<std::int64_t>(heard) * 1000 / clip.sampleRate;
}

void ClipPlayback::feed(float* into, std::size_t count) {
    const std::size_t at = fed;
    const std::size_t length = clip.data.size();
    std::size_t given = 0;
    if (!cut && at < length) {
        given = std::min(count, length - at);
        std::copy_n(clip.data.data() + at, given, into);
    }
    std::fill_n(into + given, count - given, 0.0F);
    fed = at + count;
    // The last samples are heard only when the device has asked for a buffer more.
    if (at + count >= length + buffered) end();
}

void ClipPlayback::end() {
    if (cut || ended.exchange(true)) return;
    signal(signalReceiver);
}

}  // namespace zepho
