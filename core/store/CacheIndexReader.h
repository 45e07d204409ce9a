// Reads the text of an index file. Pure; any thread; nothing throws.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "core/store/CacheIndex.h"

namespace zepho {

// A speed beyond this is none, and does not fit the form it is written in.
inline constexpr double indexSpeedLimit = 1000;

// See loadCacheIndex(); absent when the text is no JSON object.
[[nodiscard]] std::optional<std::vector<CacheRecordPointer>> readIndexText(std::string_view text);

}  // namespace zepho
