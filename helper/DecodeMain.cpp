// zephon-decode: decodes one foreign clip and ends.
//
//   zephon-decode mp3|ogg <clip >reply
//
// The libraries that do the work can be brought down, and perhaps taken over, by a crafted clip. So
// they run here, in a process that has locked itself in before it looks at the first byte. The reply
// is a DecoderReply with the samples behind it; exit code 0 says no more than that there is one.
#include <algorithm>
#include <cstring>

#include "core/audio/DecoderReply.h"
#include "core/platform/SandboxedProgram.h"
#include "helper/DecoderEntries.h"

namespace {

using Input = std::span<const std::uint8_t>;

constexpr int badUsage = 2;
constexpr int noSandbox = 3;
constexpr int noReply = 4;

// The arrays of a clip of about half a minute.
constexpr std::size_t usualMemory = std::size_t{16} << 20;

// A few bytes can ask the Vorbis decoder for gigabytes, while ten minutes of stereo do need some
// hundred megabytes. So a clip may ask for memory in proportion to what its sender had to send: the
// lowest bit rates in use make about 220 bytes of samples and copies out of one byte. The usual memory
// is there in any case.
std::uint64_t addressSpaceFor(std::uint64_t clipBytes) {
    constexpr std::uint64_t mega = std::uint64_t{1} << 20;
    return clipBytes + usualMemory + std::min(96 * mega + 256 * clipBytes, 400 * mega);
}

bool reply(const char* kind, Input clip) {
    zepho::DecoderReply head{zepho::decoderReplyForm};
    float* samples = nullptr;
    head.status = (std::strcmp(kind, "mp3") == 0 ? zepho_mp3_decode : zepho_ogg_decode)(
        clip.data(), clip.size(), &samples, &head.frames, &head.rate);
    if (head.status == 1 && head.frames > zepho::longestClipSeconds * head.rate) head.status = 0;
    if (!zepho::writeStandardOutput(&head, sizeof head)) return false;
    return head.status != 1 || zepho::writeStandardOutput(samples, head.frames * sizeof(float));
}

}  // namespace

int main(int count, char** words) {
    if (count != 2 || (std::strcmp(words[1], "mp3") != 0 && std::strcmp(words[1], "ogg") != 0))
        zepho::endProgram(badUsage);
    const Input clip = zepho::mapStandardInput();
    zepho::prepareHeap(usualMemory);
    if (!zepho::enterSandbox({.addressSpace = addressSpaceFor(clip.size()),
                              .output = sizeof(zepho::DecoderReply) + zepho::largestClipBytes,
                              .cpuSeconds = 2}))
        zepho::endProgram(noSandbox);
    zepho::endProgram(reply(words[1], clip) ? 0 : noReply);
}
