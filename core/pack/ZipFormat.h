// What the writer and the reader of zip archives share: records, signatures, the error.
//
// The subset of zip is one disk, entries stored or deflated, no encryption, no 64-bit sizes and no
// times. Plain values; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "core/platform/Bytes.h"

namespace zepho {

struct ZipEntry {
    std::string name;
    Bytes data;
};

// Why an archive, or one entry of it, cannot be read.
class ZipError : public std::exception {
public:
    enum class Kind { notAZip, corrupt };

    static ZipError notAZip() { return {Kind::notAZip, "not a zip archive"}; }
    static ZipError corrupt(std::string_view message) {
        return {Kind::corrupt, "corrupt zip: " + std::string(message)};
    }

    [[nodiscard]] const char* what() const noexcept override { return text.c_str(); }

    Kind kind;

private:
    ZipError(Kind which, std::string words) : kind(which), text(std::move(words)) {}

    std::string text;
};

namespace zip {

inline constexpr std::uint32_t localSignature = 0x04034B50;
inline constexpr std::uint32_t directorySignature = 0x02014B50;
inline constexpr std::uint32_t endSignature = 0x06054B50;
inline constexpr std::size_t localSize = 30;
inline constexpr std::size_t directorySize = 46;
inline constexpr std::size_t endSize = 22;
inline constexpr std::uint16_t stored = 0;
inline constexpr std::uint16_t deflated = 8;

// Little-endian integers. The caller has checked that the bytes are there.
inline std::uint16_t get16(const std::uint8_t* from) {
    return static_cast<std::uint16_t>(from[0] | from[1] << 8);
}
inline std::uint32_t get32(const std::uint8_t* from) {
    return get16(from) | static_cast<std::uint32_t>(get16(from + 2)) << 16;
}

}  // namespace zip
}  // namespace zepho
