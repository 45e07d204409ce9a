#include "core/audio/WavReader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#include "core/audio/SampleKernels.h"
#include "core/platform/Files.h"

namespace zepho {
namespace {

constexpr std::size_t smallestFile = 44;
constexpr std::size_t chunksBegin = 12;
constexpr std::size_t chunkHeader = 8;
constexpr std::size_t formatBody = 16;
constexpr std::size_t headBytes = 1024;

constexpr std::uint32_t tagInteger = 1;
constexpr std::uint32_t tagFloat = 3;
constexpr std::uint32_t tagExtensible = 0xFFFE;

std::uint32_t u16At(ByteView bytes, std::size_t pos) {
    return static_cast<std::uint32_t>(bytes[pos] | bytes[pos + 1] << 8);
}

std::uint32_t u32At(ByteView bytes, std::size_t pos) {
    return u16At(bytes, pos) | u16At(bytes, pos + 2) << 16;
}

bool hasWordAt(ByteView bytes, std::size_t pos, std::string_view word) {
    return bytes.size() >= pos + word.size() &&
           std::memcmp(bytes.data() + pos, word.data(), word.size()) == 0;
}

bool isWaveFile(ByteView bytes) {
    return bytes.size() >= smallestFile && hasWordAt(bytes, 0, "RIFF") &&
           hasWordAt(bytes, 8, "WAVE");
}

// One chunk of the file. A size is 32 bits wide and positions are 64, so no sum can overflow.
struct Chunk {
    std::uint64_t pos;
    std::uint64_t size;
    std::uint64_t end;   // behind the last byte of the body, maybe beyond the buffer
    std::uint64_t next;  // where the next chunk starts: bodies are padded to even length

    [[nodiscard]] bool is(ByteView bytes, std::string_view id) const {
        return hasWordAt(bytes, pos, id);
    }
    [[nodiscard]] std::uint64_t body() const { return pos + chunkHeader; }
    [[nodiscard]] bool holdsFormat(ByteView bytes) const {
        return bytes.size() - body() >= formatBody;
    }
    [[nodiscard]] bool hasSuccessor(ByteView bytes) const {
        return next > pos && next <= bytes.size() && bytes.size() - next >= chunkHeader;
    }
};

// `pos` has room for a chunk's header in front of the end of the buffer.
Chunk chunkAt(ByteView bytes, std::uint64_t pos) {
    const std::uint64_t size = u32At(bytes, pos + 4);
    const std::uint64_t end = pos + chunkHeader + size;
    return {pos, size, end, end + (size & 1)};
}

struct Layout {
    std::uint32_t tag = tagInteger;
    std::uint32_t channels = 1;
    std::uint32_t rate = 44100;
    std::uint32_t bits = 16;

    void read(ByteView bytes, std::uint64_t body) {
        tag = u16At(bytes, body);
        channels = u16At(bytes, body + 2);
        rate = u32At(bytes, body + 4);
        bits = u16At(bytes, body + 14);
    }
};

struct Found {
    Layout layout;
    ByteView samples;
};

std::optional<Found> findSamples(ByteView bytes) {
    Found found;
    bool formatSeen = false;
    bool dataSeen = false;
    for (Chunk chunk = chunkAt(bytes, chunksBegin);; chunk = chunkAt(bytes, chunk.next)) {
        if (chunk.is(bytes, "fmt ")) {
            if (chunk.size < formatBody || !chunk.holdsFormat(bytes)) return std::nullopt;
            found.layout.read(bytes, chunk.body());
            formatSeen = true;
        } else if (chunk.is(bytes, "data")) {
            // A stream whose header was never patched tells a size far beyond its end.
            const std::uint64_t end = std::min<std::uint64_t>(chunk.end, bytes.size());
            found.samples = bytes.subspan(chunk.body(), end - chunk.body());
            dataSeen = true;
        }
        if (!chunk.hasSuccessor(bytes)) break;
    }
    if (!formatSeen || !dataSeen) return std::nullopt;
    return found;
}

template <class Value>
Value valueAt(const std::uint8_t* place) {
    Value value;
    std::memcpy(&value, place, sizeof value);
    return value;
}

struct Unsigned8 {
    static constexpr std::size_t size = 1;
    static float at(const std::uint8_t* place) {
        return static_cast<float>(*place - 128) * (1.0F / 128);
    }
};

struct Signed16 {
    static constexpr std::size_t size = 2;
    static float at(const std::uint8_t* place) {
        return static_cast<float>(valueAt<std::int16_t>(place)) * (1.0F / 32768);
    }
};

struct Signed24 {
    static constexpr std::size_t size = 3;
    static float at(const std::uint8_t* place) {
        const std::int32_t low = place[0] | place[1] << 8;
        const std::int32_t high = (place[2] ^ 0x80) - 0x80;  // with its sign
        return static_cast<float>(high * 65536 + low) * (1.0F / 8388608);
    }
};

struct Signed32 {
    static constexpr std::size_t size = 4;
    static float at(const std::uint8_t* place) {
        return static_cast<float>(valueAt<std::int32_t>(place)) * (1.0F / 2147483648.0F);
    }
};

struct Float32 {
    static constexpr std::size_t size = 4;
    static float at(const std::uint8_t* place) {
        const auto value = valueAt<float>(place);
        return std::abs(value) <= loudestSample ? value : 0.0F;
    }
};

template <class Sample>
std::vector<float> decodeAs(ByteView samples, std::size_t channels, std::size_t frames) {
    std::vector<float> mono(frames);
    const std::uint8_t* next = samples.data();
    if (channels == 1) {
        for (std::size_t i = 0; i < frames; ++i) mono[i] = Sample::at(next + i * Sample::size);
        return mono;
    }
    for (float& mean : mono) {
        float sum = 0;
        for (std::size_t channel = 0; channel < channels; ++channel) {
            sum += Sample::at(next);
            next += Sample::size;
        }
        mean = sum / static_cast<float>(channels);
    }
    return mono;
}

std::optional<std::vector<float>> decode(ByteView samples, const WavFormat& format) {
    const auto channels = static_cast<std::size_t>(format.channels);
    const std::size_t bytesPerSample = static_cast<std::size_t>(format.bitsPerSample) / 8;
    const std::size_t frames = samples.size() / (channels * bytesPerSample);
    if (frames < 1) return std::nullopt;
    switch (format.bitsPerSample) {
        case 8:
            return decodeAs<Unsigned8>(samples, channels, frames);
        case 16:
            if (channels == 1) {
                std::vector<float> mono(frames);
                floatsFrom16Bit(samples.data(), frames, mono.data());
                return mono;
            }
            return decodeAs<Signed16>(samples, channels, frames);
        case 24:
            return decodeAs<Signed24>(samples, channels, frames);
        case 32:
            return format.isFloat ? decodeAs<Float32>(samples, channels, frames)
                                  : decodeAs<Signed32>(samples, channels, frames);
        default:
            return std::nullopt;
    }
}

}  // namespace

std::optional<ParsedWav> parseWavWithFormat(ByteView bytes) {
    if (!isWaveFile(bytes)) return std::nullopt;
    const std::optional<Found> found = findSamples(bytes);
    if (!found) return std::nullopt;
    const Layout& layout = found->layout;
    if (layout.channels == 0 || layout.rate == 0) return std::nullopt;
    // No recorder works at two gigahertz, and a buffer's rate has no room for it.
    if (layout.rate > std::numeric_limits<std::int32_t>::max()) return std::nullopt;
    if (layout.tag != tagInteger && layout.tag != tagFloat && layout.tag != tagExtensible)
        return std::nullopt;
    if (layout.bits < 8) return std::nullopt;

    ParsedWav wav;
    wav.format.channels = static_cast<int>(layout.channels);
    wav.format.sampleRate = static_cast<int>(layout.rate);
    wav.format.bitsPerSample = static_cast<int>(layout.bits);
    // Extensible files tell the kind of their samples in a GUID; in practice 32 bits are floats.
    wav.format.isFloat = layout.tag == tagExtensible ? layout.bits == 32 : layout.tag == tagFloat;
    auto samples = decode(found->samples, wav.format);
    if (!samples) return std::nullopt;
    wav.pcm.data = std::move(*samples);
    wav.pcm.sampleRate = wav.format.sampleRate;
    return wav;
}

std::optional<PcmBuffer> parseWav(ByteView bytes) {
    auto wav = parseWavWithFormat(bytes);
    if (!wav) return std::nullopt;
    return std::move(wav->pcm);
}

std::int64_t wavDurationMs(ByteView bytes) {
    const auto pcm = parseWav(bytes);
    return pcm ? pcm->durationMs() : 0;
}

std::optional<WavHeader> readWavHeader(const std::string& path) {
    const auto file = readFileHead(path, headBytes);
    if (!file) return std::nullopt;
    return parseWavHeader(file->bytes, file->fileSize);
}

std::optional<WavHeader> parseWavHeader(ByteView head, std::int64_t fileSize) {
    head = head.first(std::min(head.size(), headBytes));
    if (!isWaveFile(head)) return std::nullopt;
    Layout layout;
    layout.rate = 0;
    std::int64_t declared = 0;
    for (Chunk chunk = chunkAt(head, chunksBegin);; chunk = chunkAt(head, chunk.next)) {
        if (chunk.is(head, "fmt ") && chunk.holdsFormat(head)) layout.read(head, chunk.body());
        if (chunk.is(head, "data")) {
            declared = static_cast<std::int64_t>(chunk.size);
            break;
        }
        if (chunk.size == 0 || !chunk.hasSuccessor(head)) break;
    }
    if (layout.rate == 0 || layout.channels == 0 || layout.bits == 0) return std::nullopt;

    // A header that was never patched tells 0 or more than there is, and a data chunk may lie
    // beyond these bytes. The rest of the file is the best guess then.
    const bool credible = declared != 0 && fileSize >= declared;
    const std::int64_t dataBytes =
        credible ? declared
                 : std::max<std::int64_t>(0, fileSize - static_cast<std::int64_t>(smallestFile));
    const double bytesPerSecond =
        layout.bits * 0.125 *
        static_cast<double>(std::uint64_t{layout.channels} * std::uint64_t{layout.rate});
    WavHeader header;
    header.sampleRate = layout.rate;
    header.durationMs = std::llround(static_cast<double>(dataBytes) / bytesPerSecond * 1000);
    header.totalBytes = fileSize;
    return header;
}

bool looksLikeWav(ByteView bytes) {
    return bytes.size() >= chunksBegin && hasWordAt(bytes, 0, "RIFF");
}

}  // namespace zepho
