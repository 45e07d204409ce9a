// The Ogg entry on any bytes, as zephon-decode runs it.
//
// Findings inside stb_vorbis are to be expected: heap writes beyond an array, huge allocations and
// long loops are known of this version. They are contained, since the service runs this code in a
// sandbox only, and are no reason to worry; a broken invariant of ours is. To look for those in
// spite of the library's faults, run with
//   -fork=1 -ignore_crashes=1 -ignore_ooms=1 -ignore_timeouts=1 -rss_limit_mb=512
#include "fuzz/DecoderInvariant.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    zepho::fuzz::checkEntry(zepho_ogg_decode, data, size, {-2, 0, 1});
    return 0;
}
