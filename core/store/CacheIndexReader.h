// Reads the text of an index file. Pure; any thread; nothing throws.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "core/store/CacheRecord.h"

namespace zepho {

// A speed beyond this is none, and does not fit the form it is written in.
inline constexpr double indexSpeedLimit = 1000;

// A name that stays within the directory and is not the index's own.
[[nodiscard]] bool isClipFileName(std::string_view name);

// See loadCacheIndex(); absent when the text is no JSON object.
[[nodiscard]] std::optional<std::vector<CacheRecordPointer>> readIndexText(std::string_view text);
// The same without the short way for our own form.
[[nodiscard]] std::optional<std::vector<CacheRecordPointer>> readAnyIndexText(
    std::string_view text);

}  // namespace zepho
