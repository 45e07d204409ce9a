// Whether data is as good as random, so that an attempt to compress it would be in vain. Pure; any
// thread.
#pragma once

#include "core/platform/Bytes.h"

namespace zepho {

// True only if every part of the data uses all byte values alike and samples from all over it do not
// shrink, which a compressor takes twenty times as long to find out. False for little data, where the
// attempt costs nothing.
[[nodiscard]] bool looksLikeNoise(ByteView data);

}  // namespace zepho
