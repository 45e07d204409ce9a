#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "helper/ClipDecoders.h"

// dr_mp3 can be reached only where miniaudio's implementation is. Everything is made private to this
// file, so that it cannot clash with another copy in the same program, and the compiler drops what
// is not used here.
#define MA_API static
#define MA_NO_DEVICE_IO
#define MA_NO_ENCODING
#define MA_NO_ENGINE
#define MA_NO_FLAC
#define MA_NO_GENERATION
#define MA_NO_NODE_GRAPH
#define MA_NO_RESOURCE_MANAGER
#define MA_NO_RUNTIME_LINKING
#define MA_NO_THREADING
#define MA_NO_WAV
#define MINIAUDIO_IMPLEMENTATION
#include <miniaudio.h>

namespace {

struct MemoryReader {
    const std::uint8_t* data;
    std::uint64_t size;
    std::uint64_t position;
};

std::size_t readMemory(void* reader, void* into, std::size_t length) {
    auto& from = *static_cast<MemoryReader*>(reader);
    const auto count =
        static_cast<std::size_t>(std::min<std::uint64_t>(length, from.size - from.position));
    if (count > 0) std::memcpy(into, from.data + from.position, count);
    from.position += count;
    return count;
}

ma_bool32 seekMemory(void* reader, int offset, ma_dr_mp3_seek_origin origin) {
    auto& from = *static_cast<MemoryReader*>(reader);
    std::int64_t target = offset;
    if (origin == MA_DR_MP3_SEEK_CUR) target += static_cast<std::int64_t>(from.position);
    if (origin == MA_DR_MP3_SEEK_END) target += static_cast<std::int64_t>(from.size);
    if (target < 0 || static_cast<std::uint64_t>(target) > from.size) return MA_FALSE;
    from.position = static_cast<std::uint64_t>(target);
    return MA_TRUE;
}

// Without it the decoder does not learn the stream's length, and cuts no padding off its end.
ma_bool32 tellMemory(void* reader, ma_int64* position) {
    *position = static_cast<ma_int64>(static_cast<const MemoryReader*>(reader)->position);
    return MA_TRUE;
}

bool hasWordAt(const std::uint8_t* data, std::string_view word) {
    return std::memcmp(data, word.data(), word.size()) == 0;
}

std::uint64_t u32At(const std::uint8_t* data) {
    return data[0] | data[1] << 8 | data[2] << 16 | std::uint64_t{data[3]} << 24;
}

// The size of the file without the tags at its end (ID3v1, and APE before it). The decoder knows a
// last frame only where the stream ends or another frame follows; it does look for these tags, but
// forgets about them as it reads on, and then the last frame would be lost.
std::uint64_t sizeWithoutTags(const std::uint8_t* data, std::uint64_t size) {
    constexpr std::uint64_t id3Size = 128;
    constexpr std::uint64_t apeHead = 32;  // the footer, which the stated size counts in
    if (size >= id3Size && hasWordAt(data + size - id3Size, "TAG")) size -= id3Size;
    if (size >= apeHead && hasWordAt(data + size - apeHead, "APETAGEX")) {
        const std::uint8_t* footer = data + size - apeHead;
        const bool headed = (footer[23] & 0x80) != 0;
        const std::uint64_t tag = u32At(footer + 12) + (headed ? apeHead : 0);
        if (tag >= apeHead && tag <= size) size -= tag;
    }
    return size;
}

// The mean of each frame's channels, in the place of the frames.
void mixDown(float* frames, std::uint64_t count, std::uint32_t channels) {
    for (std::uint64_t i = 0; i < count; ++i) {
        float sum = 0;
        for (std::uint32_t c = 0; c < channels; ++c) sum += frames[i * channels + c];
        frames[i] = sum / static_cast<float>(channels);
    }
}

}  // namespace

namespace zepho {

std::int32_t decodeMp3(std::span<const std::uint8_t> clip, std::uint32_t& rate, SampleSink sink) {
    MemoryReader reader{clip.data(), sizeWithoutTags(clip.data(), clip.size()), 0};
    ma_dr_mp3 decoder;
    if (!ma_dr_mp3_init(&decoder, readMemory, seekMemory, tellMemory, nullptr, &reader, nullptr))
        return 0;
    rate = decoder.sampleRate;
    float samples[4096];
    bool wanted = decoder.channels > 0 && rate > 0;
    std::uint64_t total = 0;
    while (wanted) {
        const ma_uint64 room = std::size(samples) / decoder.channels;
        const ma_uint64 count = ma_dr_mp3_read_pcm_frames_f32(&decoder, room, samples);
        if (count == 0) break;
        if (decoder.channels > 1) mixDown(samples, count, decoder.channels);
        wanted = sink.take(sink.target, samples, count);
        total += count;
        if (count < room) break;
    }
    ma_dr_mp3_uninit(&decoder);
    return wanted && total > 0 ? 1 : 0;
}

}  // namespace zepho
