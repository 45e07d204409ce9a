// Speed, rate and level of finished samples: plain arithmetic in 32-bit floats.
//
// Speeds above 1 make the audio shorter. A speed of 0 or below counts as 1, all others are clamped
// to 0.5 … 2. Results of the speed operations have the input's rate. Stateless; any thread.
#pragma once

#include <cstddef>
#include <vector>

#include "core/audio/PcmBuffer.h"
#include "core/base/TtsTypes.h"

namespace zepho {

// By resampling in the mode localResample, by stretching in any other.
[[nodiscard]] PcmBuffer changeSpeed(PcmBuffer pcm, float speed, TtsSpeedMode mode);

// Changes the duration and keeps the pitch: overlap-add of frames of 40 ms, each taken where the
// clip continues most like what has been laid down. Clips too short for it are resampled.
[[nodiscard]] PcmBuffer timeStretch(PcmBuffer pcm, float speed);

// Plays the samples at another rate, so the pitch moves with the speed.
[[nodiscard]] PcmBuffer changeSpeedByResample(PcmBuffer pcm, float speed);

// Converts to another rate. Unchanged if one of the rates is below 1 or they are the same.
[[nodiscard]] PcmBuffer resample(PcmBuffer pcm, int targetRate);

// Multiplies in place, without clipping; a gain within 0.001 of 1 does nothing.
void applyGain(PcmBuffer& pcm, float gain);
// Brings the highest absolute sample to `targetPeak`; silence is not blown up to noise.
void peakNormalize(PcmBuffer& pcm, float targetPeak);

// The Hann window with both ends 0.
[[nodiscard]] std::vector<float> makeHann(std::size_t n);
// Samples at 0, step, 2 * step … with straight lines in between, the last one held beyond the end.
[[nodiscard]] std::vector<float> interpolate(const std::vector<float>& samples, std::size_t outLen,
                                             float step);

}  // namespace zepho
