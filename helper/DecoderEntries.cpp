#include "helper/DecoderEntries.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "helper/ClipDecoders.h"

namespace {

constexpr std::size_t firstRoom = 4096;

// A growing array, in the memory that zepho_audio_free gives back.
struct Collected {
    float* samples = nullptr;
    std::size_t count = 0;
    std::size_t room = 0;

    bool add(const float* more, std::size_t length) {
        if (room < count + length) {
            const std::size_t wanted = std::max({firstRoom, 2 * room, count + length});
            void* const grown = std::realloc(samples, wanted * sizeof(float));
            if (grown == nullptr) return false;
            samples = static_cast<float*>(grown);
            room = wanted;
        }
        std::memcpy(samples + count, more, length * sizeof(float));
        count += length;
        return true;
    }
};

int32_t collect(decltype(&zepho::decodeMp3) decode, const uint8_t* data, uint64_t size,
                float** samples, uint64_t* frames, uint32_t* rate) {
    if (data == nullptr || size == 0 || samples == nullptr || frames == nullptr || rate == nullptr)
        return 0;
    Collected all;
    const auto take = [](void* target, const float* more, std::size_t count) {
        return static_cast<Collected*>(target)->add(more, count);
    };
    std::uint32_t hertz = 0;
    const std::int32_t status = decode({data, size}, hertz, {take, &all});
    if (status != 1) {
        std::free(all.samples);
        return status;
    }
    *samples = all.samples;
    *frames = all.count;
    *rate = hertz;
    return status;
}

}  // namespace

extern "C" int32_t zepho_mp3_decode(const uint8_t* data, uint64_t size, float** samples,
                                    uint64_t* frames, uint32_t* rate) {
    return collect(zepho::decodeMp3, data, size, samples, frames, rate);
}

extern "C" int32_t zepho_ogg_decode(const uint8_t* data, uint64_t size, float** samples,
                                    uint64_t* frames, uint32_t* rate) {
    return collect(zepho::decodeOgg, data, size, samples, frames, rate);
}

extern "C" void zepho_audio_free(float* samples) {
    std::free(samples);
}
