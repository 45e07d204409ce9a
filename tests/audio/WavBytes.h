// Makes WAV files for tests piece by piece, damaged ones included.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "core/platform/Bytes.h"

namespace zepho::test {

inline std::string littleEndian(std::uint64_t value, int size) {
    std::string bytes;
    for (int i = 0; i < size; ++i) bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

// A chunk that claims to be `size` bytes long, whatever its body is.
inline std::string chunkClaiming(std::string_view id, std::uint32_t size, std::string_view body) {
    return std::string(id) + littleEndian(size, 4) + std::string(body);
}

inline std::string chunk(std::string_view id, std::string_view body) {
    return chunkClaiming(id, static_cast<std::uint32_t>(body.size()), body) +
           std::string(body.size() % 2, '\0');
}

inline std::string formatChunk(int tag, int channels, std::uint32_t rate, int bits) {
    return chunk("fmt ", littleEndian(static_cast<std::uint64_t>(tag), 2) +
                             littleEndian(static_cast<std::uint64_t>(channels), 2) +
                             littleEndian(rate, 4) + std::string(6, '\x7F') +
                             littleEndian(static_cast<std::uint64_t>(bits), 2));
}

inline std::string riff(std::string_view chunks) {
    return "RIFF????WAVE" + std::string(chunks);
}

template <class Value>
std::string packed(const std::vector<Value>& values) {
    std::string bytes(values.size() * sizeof(Value), '\0');
    if (!values.empty()) std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

}  // namespace zepho::test
