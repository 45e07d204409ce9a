// Base64 as clips travel in JSON. Pure; any thread.
#pragma once

#include <optional>
#include <string_view>

#include "core/platform/Bytes.h"

namespace zepho {

// Strict: full groups of four with their padding, and nothing outside the alphabet, white space
// included. Absent when the text is not of that form; the empty text is no bytes.
std::optional<Bytes> decodeBase64(std::string_view text);

}  // namespace zepho
