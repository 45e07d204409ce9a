#include "core/audio/PcmBuffer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "core/audio/SampleKernels.h"
#include "core/platform/Require.h"

namespace zepho {
namespace {

constexpr std::size_t headerSize = 44;

class LittleEndianWriter {
public:
    explicit LittleEndianWriter(std::uint8_t* place) : next(place) {}
    void tag(const char (&word)[5]) {
        std::memcpy(next, word, 4);
        next += 4;
    }
    void u16(std::uint64_t value) { put(value, 2); }
    void u32(std::uint64_t value) { put(value, 4); }

private:
    void put(std::uint64_t value, int size) {
        for (int i = 0; i < size; ++i) *next++ = static_cast<std::uint8_t>(value >> (8 * i));
    }
    std::uint8_t* next;
};

// The samples one after another, each repeated `lanes` times.
bool storeSamples(const std::vector<float>& samples, std::size_t lanes, std::uint8_t* out) {
    if (lanes == 1) return floatsTo16Bit(samples.data(), samples.size(), out);
    constexpr std::size_t blockSize = 512;
    std::uint8_t block[2 * blockSize];
    bool sound = true;
    for (std::size_t done = 0; done < samples.size(); done += blockSize) {
        const std::size_t count = std::min(blockSize, samples.size() - done);
        sound &= floatsTo16Bit(samples.data() + done, count, block);
        for (std::size_t i = 0; i < count; ++i) {
            for (std::size_t lane = 0; lane < lanes; ++lane, out += 2)
                std::memcpy(out, block + 2 * i, 2);
        }
    }
    return sound;
}

}  // namespace

std::int64_t PcmBuffer::durationMs() const {
    if (sampleRate < 1 || data.empty()) return 0;
    return std::llround(static_cast<double>(data.size()) / sampleRate * 1000);
}

PcmBuffer PcmBuffer::silence(int sampleRate, std::int64_t ms) {
    PcmBuffer pcm;
    pcm.sampleRate = sampleRate;
    const auto count =
        std::llround(static_cast<double>(sampleRate) * static_cast<double>(ms) / 1000);
    if (count >= 1) pcm.data.assign(static_cast<std::size_t>(count), 0.0F);
    return pcm;
}

Bytes buildWav(const PcmBuffer& pcm, int channels) {
    constexpr std::uint64_t limit32 = std::numeric_limits<std::uint32_t>::max();
    const auto lanes = static_cast<std::uint64_t>(std::max(channels, 1));
    const auto rate = static_cast<std::uint64_t>(pcm.sampleRate == 0 ? 44100 : pcm.sampleRate);
    require(pcm.sampleRate >= 0, "a sample rate below 0");
    require(lanes <= 65535 / 2, "more channels than a WAV can tell");
    require(rate * lanes * 2 <= limit32, "a byte rate beyond a WAV's fields");
    require(pcm.data.size() <= (limit32 - 36) / (lanes * 2), "more samples than a WAV can hold");
    const std::size_t dataBytes = pcm.data.size() * lanes * 2;

    Bytes wav(headerSize + dataBytes);
    LittleEndianWriter header(wav.data());
    header.tag("RIFF");
    header.u32(36 + dataBytes);
    header.tag("WAVE");
    header.tag("fmt ");
    header.u32(16);
    header.u16(1);
    header.u16(lanes);
    header.u32(rate);
    header.u32(rate * lanes * 2);
    header.u16(lanes * 2);
    header.u16(16);
    header.tag("data");
    header.u32(dataBytes);

    const bool sound = storeSamples(pcm.data, lanes, wav.data() + headerSize);
    require(sound, "a sample that is not a number");
    return wav;
}

void fadeEdges(PcmBuffer& pcm, int fadeMs) {
    if (pcm.data.empty() || pcm.sampleRate < 1) return;
    const std::size_t count = pcm.data.size();
    const float wanted =
        std::round(static_cast<float>(fadeMs) * static_cast<float>(pcm.sampleRate) / 1000.0F);
    if (!(wanted >= 1)) return;
    const std::size_t n = std::min(count / 2, static_cast<std::size_t>(wanted));
    for (std::size_t i = 0; i < n; ++i) {
        const float gain = static_cast<float>(i) / static_cast<float>(n);
        pcm.data[i] *= gain;
        pcm.data[count - 1 - i] *= gain;
    }
}

}  // namespace zepho
