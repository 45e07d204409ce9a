// The MP3 entry on any bytes, as zephon-decode runs it: whatever it makes of them, its answer is
// consistent. A crash inside the library is worth a report to its makers; the service is not in
// danger, for the same code runs in a sandbox there, which ends with the clip.
#include "fuzz/DecoderInvariant.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    zepho::fuzz::checkEntry(zepho_mp3_decode, data, size, {0, 1});
    return 0;
}
