#include "tests/tools/EncodedClips.h"

#include <cmath>
#include <cstdlib>
#include <numbers>
#include <optional>
#include <stdexcept>

#include "core/platform/Files.h"
#include "tests/support/TempDir.h"

namespace zepho::test {
namespace {

float toneAt(int rate, int channel, std::size_t frame) {
    const double hertz = 330.0 + 220.0 * channel;
    return static_cast<float>(
        0.4 * std::sin(2 * std::numbers::pi * hertz * static_cast<double>(frame) / rate));
}

Bytes encode(const std::string& command, ByteView wav) {
    const TempDir folder;
    saveFileBytes(folder.file("in.wav"), wav);
    // The command reads in.wav and writes out.
    const std::string line = "cd '" + folder.path() + "' && " + command + " >log 2>&1";
    if (std::system(line.c_str()) != 0) throw std::runtime_error("failed: " + command);
    std::optional<Bytes> made = loadFileBytes(folder.file("out"));
    if (!made) throw std::runtime_error("wrote nothing: " + command);
    return *std::move(made);
}

}  // namespace

Bytes toneWav(int rate, int channels, std::size_t frames) {
    // buildWav() repeats one channel, so the samples of all are handed over as one long channel and
    // the two fields of the header that differ are set right.
    PcmBuffer interleaved;
    interleaved.sampleRate = rate;
    for (std::size_t i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c) interleaved.data.push_back(toneAt(rate, c, i));
    Bytes wav = buildWav(interleaved, 1);
    const auto set = [&wav](std::size_t at, std::size_t size, int value) {
        for (std::size_t i = 0; i < size; ++i)
            wav[at + i] = static_cast<std::uint8_t>(value >> 8 * i);
    };
    set(22, 2, channels);
    set(28, 4, rate * channels * 2);
    set(32, 2, channels * 2);
    return wav;
}

PcmBuffer toneMono(int rate, int channels, std::size_t frames) {
    PcmBuffer mono;
    mono.sampleRate = rate;
    for (std::size_t i = 0; i < frames; ++i) {
        float sum = 0;
        for (int c = 0; c < channels; ++c) sum += toneAt(rate, c, i);
        mono.data.push_back(sum / static_cast<float>(channels));
    }
    return mono;
}

Bytes encodeMp3(ByteView wav, const std::string& options) {
    return encode("lame --quiet " + options + " in.wav out", wav);
}

Bytes encodeVorbis(ByteView wav, const std::string& options) {
    return encode("oggenc -Q " + options + " -o out in.wav", wav);
}

Bytes encodeOpus(ByteView wav) {
    return encode("opusenc --quiet in.wav out", wav);
}

}  // namespace zepho::test
