#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string_view>

#include "helper/ClipDecoders.h"

#define STB_VORBIS_NO_STDIO
#define STB_VORBIS_NO_PUSHDATA_API
#include <stb/stb_vorbis.h>

namespace {

// The library takes the length as an int.
constexpr std::uint64_t sizeLimit = std::uint64_t{1} << 31;
constexpr std::size_t opusSearchBytes = 512;
constexpr int longestFrame = 4096;  // samples of each channel

// The first packet of an Opus stream begins with this word, and lies in the first page.
bool holdsOpusHead(std::span<const std::uint8_t> clip) {
    const std::string_view start(reinterpret_cast<const char*>(clip.data()),
                                 std::min(clip.size(), opusSearchBytes));
    return start.find("OpusHead") != std::string_view::npos;
}

// Whether the whole stream went to the sink, and there was something in it.
bool decodeFrames(stb_vorbis* decoder, int channels, zepho::SampleSink sink) {
    const int room = longestFrame * channels;
    auto* const interleaved =
        static_cast<short*>(std::malloc(static_cast<std::size_t>(room) * sizeof(short)));
    if (interleaved == nullptr) return false;
    bool wanted = true;
    bool anything = false;
    while (wanted) {
        const int count =
            stb_vorbis_get_frame_short_interleaved(decoder, channels, interleaved, room);
        if (count <= 0) break;
        anything = true;
        float mono[longestFrame];
        const short* next = interleaved;
        for (int i = 0; i < count; ++i) {
            int sum = 0;
            for (int c = 0; c < channels; ++c) sum += *next++;
            mono[i] = static_cast<float>(sum) / static_cast<float>(channels) * (1.0F / 32768.0F);
        }
        wanted = sink.take(sink.target, mono, static_cast<std::size_t>(count));
    }
    std::free(interleaved);
    return wanted && anything;
}

}  // namespace

namespace zepho {

std::int32_t decodeOgg(std::span<const std::uint8_t> clip, std::uint32_t& rate, SampleSink sink) {
    if (clip.size() >= sizeLimit) return 0;
    if (holdsOpusHead(clip)) return -2;
    int error = 0;
    stb_vorbis* const decoder =
        stb_vorbis_open_memory(clip.data(), static_cast<int>(clip.size()), &error, nullptr);
    if (decoder == nullptr) return 0;
    const stb_vorbis_info facts = stb_vorbis_get_info(decoder);
    rate = facts.sample_rate;
    const bool decoded = facts.channels >= 1 && facts.sample_rate >= 1 &&
                         facts.sample_rate <= std::numeric_limits<std::int32_t>::max() &&
                         decodeFrames(decoder, facts.channels, sink);
    stb_vorbis_close(decoder);
    return decoded ? 1 : 0;
}

}  // namespace zepho
