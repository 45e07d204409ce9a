// Audio as the service handles it: mono samples in 32-bit floats at one rate. A value; any thread.
#pragma once

#include <cstdint>
#include <vector>

#include "core/platform/Bytes.h"

namespace zepho {

struct PcmBuffer {
    std::vector<float> data;  // nominal range -1..1
    int sampleRate = 0;       // samples per second

    [[nodiscard]] bool isEmpty() const { return data.empty(); }
    // Milliseconds, rounded half away from zero; 0 without samples or rate.
    [[nodiscard]] std::int64_t durationMs() const;

    static PcmBuffer silence(int sampleRate, std::int64_t ms);
};

// A complete RIFF/WAVE file, 16-bit PCM, each sample repeated for each channel. A channel count
// below 1 counts as 1, a rate of 0 as 44100. A NaN sample or a size beyond the format's fields is a
// programming error.
Bytes buildWav(const PcmBuffer& pcm, int channels);

// Fades both ends linearly in place; on a short buffer the fades meet in the middle.
void fadeEdges(PcmBuffer& pcm, int fadeMs);

}  // namespace zepho
