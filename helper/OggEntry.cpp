#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "helper/DecoderEntries.h"

#define STB_VORBIS_NO_STDIO
#define STB_VORBIS_NO_PUSHDATA_API
#include <stb/stb_vorbis.h>

namespace {

// The library takes the length as an int.
constexpr std::uint64_t sizeLimit = std::uint64_t{1} << 31;
constexpr std::uint64_t opusSearchBytes = 512;

// The first packet of an Opus stream begins with this word, and lies in the first page.
bool holdsOpusHead(const std::uint8_t* data, std::uint64_t size) {
    const std::string_view start(reinterpret_cast<const char*>(data),
                                 std::min(size, opusSearchBytes));
    return start.find("OpusHead") != std::string_view::npos;
}

}  // namespace

extern "C" int32_t zepho_ogg_decode(const uint8_t* data, uint64_t size, float** samples,
                                    uint64_t* frames, uint32_t* rate) {
    if (data == nullptr || size == 0 || size >= sizeLimit || samples == nullptr ||
        frames == nullptr || rate == nullptr)
        return 0;
    if (holdsOpusHead(data, size)) return -2;

    int channels = 0;
    int hertz = 0;
    short* interleaved = nullptr;
    const int count =
        stb_vorbis_decode_memory(data, static_cast<int>(size), &channels, &hertz, &interleaved);
    float* mono = nullptr;
    if (count >= 1 && interleaved != nullptr && channels >= 1 && hertz > 0)
        mono = static_cast<float*>(std::malloc(static_cast<std::size_t>(count) * sizeof(float)));
    if (mono != nullptr) {
        const short* next = interleaved;
        for (int i = 0; i < count; ++i) {
            int sum = 0;
            for (int c = 0; c < channels; ++c) sum += *next++;
            mono[i] = static_cast<float>(sum) / static_cast<float>(channels) * (1.0F / 32768.0F);
        }
    }
    std::free(interleaved);
    if (mono == nullptr) return 0;
    *samples = mono;
    *frames = static_cast<uint64_t>(count);
    *rate = static_cast<uint32_t>(hertz);
    return 1;
}
