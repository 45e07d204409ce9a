// Clips, index files and log lines for the tests of the clip cache.
#pragma once

#include <string>
#include <vector>

#include "core/base/TtsTypes.h"
#include "core/store/WavCache.h"

namespace zepho::test {

// A WAV file of exactly `size` bytes, an even number from 46 on; `fill` tells two of them apart.
Bytes wavOfSize(std::size_t size, std::uint8_t fill = 1);

TtsResult clipOf(const Bytes& wav);
void putClip(WavCache& cache, const std::string& key, std::size_t size, std::uint8_t fill = 1);

void writeFile(const std::string& path, std::string_view content);
std::string readFile(const std::string& path);

// The texts of the log lines of source "cache" at `warn`.
std::vector<std::string> warnings();

// `bytes` of the statistics against the sum of the entries.
void expectInvariants(const WavCache& cache);

}  // namespace zepho::test
