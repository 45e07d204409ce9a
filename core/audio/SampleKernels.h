// Loops over samples that run on the widest vectors of the machine they find themselves on.
// Stateless; may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zepho {

// `count` little-endian 16-bit samples, at any address, to floats in -1..1.
void floatsFrom16Bit(const std::uint8_t* bytes, std::size_t count, float* out);

// `count` floats to 16-bit samples, capped to -32767..32767 and rounded half away from zero, at any
// address. False if one of them is not a number; what stands in its place then means nothing.
[[nodiscard]] bool floatsTo16Bit(const float* samples, std::size_t count, std::uint8_t* out);

// Adds `samples` times `window` to `out`, product and sum each rounded on its own.
void addWindowed(const float* samples, const float* window, std::size_t count, float* out);

// Beyond it nothing is a sample. Sums and products of what lies within never become infinite, and so
// never something that is not a number.
inline constexpr float loudestSample = 1e18F;

// Puts 0 in the place of what is no sample: infinite, not a number, or louder than the loudest.
void silenceNonSamples(float* samples, std::size_t count);

}  // namespace zepho
