// SHA-256 over bytes. Pure; any thread.
#pragma once

#include <array>
#include <cstdint>

#include "core/platform/Bytes.h"

namespace zepho {

using Sha256Digest = std::array<std::uint8_t, 32>;

Sha256Digest sha256Digest(ByteView bytes);

}  // namespace zepho
