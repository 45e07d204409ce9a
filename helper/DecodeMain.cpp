// zephon-decode: decodes one foreign clip and ends.
//
//   zephon-decode mp3|ogg <clip >reply
//
// The libraries that do the work can be brought down, and perhaps taken over, by a crafted clip. So
// they run here, in a process that has locked itself in before it looks at the first byte. The reply
// is that of DecoderReply.h; exit code 0 says no more than that there is one.
#include <algorithm>
#include <cstring>

#include "core/audio/DecoderReply.h"
#include "core/platform/SandboxedProgram.h"
#include "helper/ClipDecoders.h"

namespace {

using Input = std::span<const std::uint8_t>;

constexpr int badUsage = 2;
constexpr int noSandbox = 3;
constexpr int noReply = 4;

// A few bytes can ask the Vorbis decoder for gigabytes. What an honest clip needs does not grow with
// its length.
constexpr std::uint64_t decoderMemory = std::uint64_t{96} << 20;

struct Block {
    std::uint32_t count = 0;
    float samples[zepho::decoderBlockSize];

    bool write() {
        const bool written = zepho::writeStandardOutput(this, sizeof count + count * sizeof(float));
        count = 0;
        return written;
    }
};

// What has been decoded, on its way out.
class Reply {
public:
    // Decoding ends with the longest clip there may be: nobody uses more than its beginning.
    bool add(const float* samples, std::size_t length) {
        const std::uint64_t most = std::min(zepho::longestClipSeconds * facts.rate,
                                            zepho::largestClipBytes / sizeof(float));
        full = length >= most - facts.frames;
        if (full) length = most - facts.frames;
        facts.frames += length;
        while (length > 0) {
            const std::size_t step = std::min(length, zepho::decoderBlockSize - block.count);
            std::copy_n(samples, step, block.samples + block.count);
            block.count += static_cast<std::uint32_t>(step);
            samples += step;
            length -= step;
            if (block.count == zepho::decoderBlockSize && !block.write()) return false;
        }
        return !full;
    }

    [[nodiscard]] bool isFull() const { return full; }

    bool end() {
        return (block.count == 0 || block.write()) && block.write() &&
               zepho::writeStandardOutput(&facts, sizeof facts);
    }

    zepho::DecoderReply facts{zepho::decoderReplyForm};

private:
    static inline Block block;
    bool full = false;
};

bool reply(const char* kind, Input clip) {
    Reply made;
    const auto take = [](void* target, const float* samples, std::size_t count) {
        return static_cast<Reply*>(target)->add(samples, count);
    };
    const auto decode = std::strcmp(kind, "mp3") == 0 ? zepho::decodeMp3 : zepho::decodeOgg;
    made.facts.status = decode(clip, made.facts.rate, {take, &made});
    if (made.isFull()) made.facts.status = 1;
    return made.end();
}

}  // namespace

int main(int count, char** words) {
    if (count != 2 || (std::strcmp(words[1], "mp3") != 0 && std::strcmp(words[1], "ogg") != 0))
        zepho::endProgram(badUsage);
    const Input clip = zepho::mapStandardInput();
    if (!zepho::enterSandbox({.addressSpace = clip.size() + decoderMemory, .cpuSeconds = 2}))
        zepho::endProgram(noSandbox);
    zepho::endProgram(reply(words[1], clip) ? 0 : noReply);
}
