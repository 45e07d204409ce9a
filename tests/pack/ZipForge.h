// Builds zip archives field by field, wrong ones among them, independently of the program's writer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/platform/Bytes.h"

namespace zepho::test {

// What an absent field says is the truth.
struct ForgedEntry {
    std::string name;
    Bytes stored;  // the data as it lies in the archive
    std::uint16_t method = 0;
    std::uint32_t usize = 0;
    std::optional<std::uint32_t> csize = std::nullopt;   // in the directory
    std::optional<std::uint32_t> offset = std::nullopt;  // in the directory
};

struct ForgedEnd {
    std::optional<std::uint16_t> count = std::nullopt;
    std::optional<std::uint32_t> directory = std::nullopt;
    std::string comment = {};
};

Bytes forgeZip(const std::vector<ForgedEntry>& entries, const ForgedEnd& end = {});

// A raw DEFLATE stream of `size` zero bytes or a few more, in about a thousandth of that, made
// without a codec.
Bytes zeroBomb(std::uint64_t size);

// Bytes that no codec can shrink, the same in every run.
Bytes noise(std::size_t size, std::uint32_t seed = 1);

}  // namespace zepho::test
