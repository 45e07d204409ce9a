// The clip that all speed changes of the comparison are given, and what they share around it.
#pragma once

#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "core/audio/PcmBuffer.h"

namespace zepho::bench {

constexpr int clipRate = 44100;

// 12 s of mono as a 16-bit WAV: syllables of a gliding voice with formants and a little noise, with
// pauses between them. Made once; measured loops ask for it before they begin.
const Bytes& clip();

// What the peers are given: the clip's samples, read from the WAV in the form they need.
std::vector<std::int16_t> clipSamples();
std::vector<float> clipFloats();

// What peers that give floats still owe: a 16-bit WAV.
void writeFloats(std::vector<float> samples);

// The factor of this run: its argument is percent of the normal speed.
float speedOf(const benchmark::State& state);
void bothSpeeds(benchmark::internal::Benchmark* bench);

}  // namespace zepho::bench
