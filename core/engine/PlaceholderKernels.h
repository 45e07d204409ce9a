// The arithmetic of the placeholder's samples, in the widest vectors that the processor has.
//
// Pure; any thread. Everything is in 32-bit floats; the sines differ from exact ones by about one
// unit in the last place.
#pragma once

#include <array>
#include <cstddef>

namespace zepho::placeholder {

inline constexpr float sampleRate = 44100;
inline constexpr float twoPi = 6.283185F;

// Samples are made in place, one block at a time. A block always has room for `blockSize` floats, of
// which the kernels may write all, whatever the count: vectors are never cut short.
inline constexpr std::size_t blockSize = 256;

// One sounding segment of the line.
struct Sound {
    std::size_t start = 0;            // its first sample in the whole line
    std::size_t length = 0;           // in samples
    float stress = 1;                 // factor of the amplitude
    std::array<float, 3> formants{};  // in hertz
};

// The samples `first` .. `first + count` of the segment. On entry the block holds the oscillator's
// phase at each sample, on return the samples.
void shapeVoiced(const Sound& sound, std::size_t first, float* block, std::size_t count);

// The same for a segment of noise; on entry the block holds noise between -1 and 1.
void shapeNoise(const Sound& sound, std::size_t first, float* block, std::size_t count);

}  // namespace zepho::placeholder
