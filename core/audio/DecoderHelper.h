// Decodes foreign clips in zephon-decode, a short-lived program of ours that is locked into a
// sandbox: the decoder libraries never see bytes from outside in this process.
//
// One shared object serves the program; tests make their own. Any thread may call decode(), which
// blocks until the clip is decoded or given up. The lock is held to count the running helpers only.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "core/audio/PcmBuffer.h"
#include "core/platform/Bytes.h"

namespace zepho {

enum class DecoderEntry { mp3, ogg };

struct DecodedClip {
    std::int32_t status = 0;       // what the entry said: 1 decoded, 0 not, -2 Opus inside Ogg
    std::optional<PcmBuffer> pcm;  // only with status 1
};

struct DecoderHelperLimits {
    // A helper may compute for two seconds. The rest is for the machine to be busy with other things:
    // a clip that is given up without being broken makes a line in another voice.
    std::chrono::milliseconds deadline{30'000};   // for one clip, from the start of its helper
    std::chrono::milliseconds patience{120'000};  // for helpers of other clips to end
    int atOnce = 2;
};

class DecoderHelper {
public:
    // `program` is the path of zephon-decode.
    explicit DecoderHelper(std::string program, DecoderHelperLimits limits = {});

    // The one that lies beside the running program.
    static DecoderHelper& shared();

    // Whatever happens to the helper (missing, killed, late) is status 0 and a line in the log.
    [[nodiscard]] DecodedClip decode(DecoderEntry entry, ByteView bytes);

private:
    class Turn;

    // Constant after construction.
    const std::string path;
    const DecoderHelperLimits bounds;

    // Guarding itself.
    std::condition_variable ended;

    // Guarded by lock.
    std::mutex lock;
    int running = 0;
};

}  // namespace zepho
