// The outline of a clip for drawing: how far the samples reach in each column of the picture.
// Stateless; may be called from any thread.
#pragma once

#include <cstddef>
#include <vector>

#include "core/audio/PcmBuffer.h"
#include "core/platform/Bytes.h"

namespace zepho {

struct WaveformPeak {
    float min = 0;  // -1..1
    float max = 0;

    friend bool operator==(const WaveformPeak&, const WaveformPeak&) = default;
};

// One peak for each column, every sample counted in one of them; a clip with fewer samples than
// columns repeats them. Nothing without samples, and for bytes that are no readable WAV file.
[[nodiscard]] std::vector<WaveformPeak> waveformPeaks(const PcmBuffer& pcm, std::size_t columns);
[[nodiscard]] std::vector<WaveformPeak> waveformPeaks(ByteView wav, std::size_t columns);

}  // namespace zepho
