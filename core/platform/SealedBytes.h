// Bytes in a file of memory, from which a socket sends without copying. Stateless; any thread.
//
// The file is sealed: nobody, this process included, can change it any more. What a socket still
// has to send keeps its pages when the last holder lets go.
#pragma once

#include <cstddef>
#include <optional>

#include "core/platform/Bytes.h"

namespace zepho {

// From this size on the copy that is saved costs more than the call that is added.
inline constexpr std::size_t worthSealing = std::size_t{32} * 1024;

// A copy of the bytes. Absent where the system refuses, and where too many descriptors of this
// process are in use for it already: one of each eight that it may have, 512 at most.
[[nodiscard]] std::optional<SharedBytes> sealedCopy(ByteView bytes);

}  // namespace zepho
