#include "core/audio/WaveformPeaks.h"

#include <algorithm>
#include <optional>
#include <span>

#include "core/audio/WavReader.h"

namespace zepho {
namespace {

WaveformPeak peakOf(std::span<const float> samples) {
    const auto [low, high] = std::minmax_element(samples.begin(), samples.end());
    // A float file may reach beyond the picture.
    return {std::clamp(*low, -1.0F, 1.0F), std::clamp(*high, -1.0F, 1.0F)};
}

}  // namespace

std::vector<WaveformPeak> waveformPeaks(const PcmBuffer& pcm, std::size_t columns) {
    if (pcm.isEmpty()) return {};
    const std::span<const float> samples(pcm.data);
    std::vector<WaveformPeak> peaks(columns);
    for (std::size_t column = 0; column < columns; ++column) {
        const std::size_t from = column * samples.size() / columns;
        const std::size_t to = (column + 1) * samples.size() / columns;
        peaks[column] = peakOf(samples.subspan(from, std::max<std::size_t>(to - from, 1)));
    }
    return peaks;
}

std::vector<WaveformPeak> waveformPeaks(ByteView wav, std::size_t columns) {
    const std::optional<PcmBuffer> pcm = parseWav(wav);
    return pcm ? waveformPeaks(*pcm, columns) : std::vector<WaveformPeak>{};
}

}  // namespace zepho
